#include "app/scan_command.h"

#include "app/arguments.h"
#include "app/command_failure.h"
#include "app/version.h"
#include "scan/child_processes.h"
#include "scan/scan_command.h"

#include <stdexcept>
#include <thread>

namespace {

constexpr int mostSeconds = 86400;
constexpr int mostJobs = 256;

} // namespace

bool isScanWord(std::string_view command) {
    return command == "scan";
}

int runScanCommand(int argc, const char* const* argv) {
    scan::ScanOptions options;
    ArgumentMap others;
    for (int i = 2; i + 1 < argc; i += 2) {
        if (std::string_view(argv[i]) == "--vst")
            options.roots.emplace_back(argv[i + 1]);
        else
            others[argv[i]] = argv[i + 1];
    }
    if (options.roots.empty())
        throw CommandFailure("No VST specified.\n");
    options.cache = findArgument(others, "--cache");
    if (findArgument(others, "--timeout")) {
        const int seconds = getIntOption(others, "--timeout");
        if (seconds < 1 || seconds > mostSeconds)
            throw std::runtime_error("--timeout must be 1 to 86400 seconds");
        options.timeoutSeconds = seconds;
    }
    options.jobs = std::max(1u, std::thread::hardware_concurrency());
    if (findArgument(others, "--jobs")) {
        const int jobs = getIntOption(others, "--jobs");
        if (jobs < 1 || jobs > mostJobs)
            throw std::runtime_error("--jobs must be 1 to 256");
        options.jobs = static_cast<size_t>(jobs);
    }
    options.program = scan::ownExecutable(argv[0]);
    options.workerVersion = adapterVersion;
    scan::runScan(options);
    return 0;
}
