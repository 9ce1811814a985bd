#include "checks/realtime_report.h"

#include <algorithm>
#include <regex>
#include <sstream>

namespace {

// The frames a report shows after the caught call, at most.
constexpr size_t framesShown = 6;

struct Frame {
    std::string function; // empty when the module has no name for the address
    std::string where;    // a module's file name, or a source file's
    std::string offset;   // into the module, for frames without a function name

    std::string text() const {
        return function.empty() ? where + "+" + offset : function + " (" + where + ")";
    }
};

std::string baseName(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

// "#3 0x7f.. in work (/usr/lib/x.so+0x1153) (BuildId: ..)" or "#3 0x7f.. in work /src/x.c:4:45"
// (with debug information the sanitizer names the source instead of the module).
std::optional<Frame> readFrame(const std::string& line) {
    static const std::regex withModule(
        R"(^\s*#\d+ 0x[0-9a-f]+ in (.+?) \(([^()]+)\+0x[0-9a-f]+\))");
    static const std::regex withSource(R"(^\s*#\d+ 0x[0-9a-f]+ in (.+) (\S+?):\d+(:\d+)?\s*$)");
    static const std::regex bare(R"(^\s*#\d+ 0x[0-9a-f]+\s+\(([^()]+)\+(0x[0-9a-f]+)\))");
    std::smatch found;
    if (std::regex_search(line, found, withModule))
        return Frame{found[1], baseName(found[2]), ""};
    if (std::regex_search(line, found, withSource))
        return Frame{found[1], baseName(found[2]), ""};
    if (std::regex_search(line, found, bare))
        return Frame{"", baseName(found[1]), found[2]};
    return std::nullopt;
}

// The C and C++ runtimes stand between a plug-in and the call it made (operator new, fopen).
bool isSystemRuntime(const Frame& frame) {
    // With debug information, the runtimes' inlined helpers show as frames of their own.
    for (const char* inlined : {"std::", "void std::", "__gthread", "__gnu_cxx::"})
        if (frame.function.starts_with(inlined))
            return true;
    const std::string& where = frame.where;
    for (const char* prefix : {"libc.so", "libstdc++.so", "libm.so", "libgcc_s.so", "ld-linux",
                               "libpthread.so", "libc++.so", "libc++abi.so"})
        if (where.starts_with(prefix))
            return true;
    return false;
}

} // namespace

std::optional<RealtimeViolation> readRealtimeViolation(std::string_view text) {
    std::istringstream lines{std::string(text)};
    std::string line;
    RealtimeViolation violation;
    bool inReport = false;
    std::vector<Frame> frames;
    while (std::getline(lines, line)) {
        if (!inReport) {
            if (line.find("Real-time violation") == std::string::npos &&
                line.find("real-time probe:") == std::string::npos)
                continue;
            const auto open = line.find('`');
            const auto close = open == std::string::npos ? open : line.find('`', open + 1);
            if (close == std::string::npos)
                continue;
            violation.call = line.substr(open + 1, close - open - 1);
            inReport = true;
            continue;
        }
        if (const auto frame = readFrame(line))
            frames.push_back(*frame);
        else if (!frames.empty())
            break;
    }
    if (!inReport)
        return std::nullopt;
    // The frames up to the intercepted function itself are the sanitizer's and ours.
    const auto intercepted = std::find_if(frames.begin(), frames.end(), [&](const Frame& frame) {
        return frame.function == violation.call;
    });
    const size_t first =
        intercepted == frames.end() ? 0 : static_cast<size_t>(intercepted - frames.begin()) + 1;
    for (size_t at = first; at < frames.size() && violation.backtrace.size() < framesShown; ++at)
        violation.backtrace.push_back(frames[at].text());
    for (size_t at = first; at < frames.size() && violation.origin.empty(); ++at)
        if (!isSystemRuntime(frames[at])) {
            violation.origin = frames[at].text();
            violation.library = frames[at].where;
        }
    return violation;
}
