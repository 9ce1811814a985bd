#include "scan/scan_report.h"

#include <cmath>
#include <set>
#include <sstream>
#include <string>

using Json = nlohmann::ordered_json;

namespace scan {

namespace {

// More would be a module listing garbage; it is still reported, as one line.
constexpr size_t mostClasses = 1000;

// The child's message: its last line that holds anything.
std::string lastLine(const std::string& text) {
    std::istringstream lines(text);
    std::string last;
    for (std::string line; std::getline(lines, line);) {
        if (line.find_first_not_of(" \t\r") != std::string::npos)
            last = line;
    }
    return last;
}

// The child's answer: one JSON object with a status it may give, alone on one line.
std::optional<Json> answerIn(const std::string& out) {
    static const std::set<std::string> statuses{"ok", "refused", "failed"};
    if (out.empty() || out.back() != '\n' || out.find('\n') != out.size() - 1)
        return std::nullopt;
    Json answer = Json::parse(out, nullptr, false);
    if (answer.is_discarded() || !answer.is_object() || !answer.contains("status") ||
        !answer["status"].is_string() || statuses.count(answer["status"]) == 0)
        return std::nullopt;
    return answer;
}

std::string secondsText(double seconds) {
    std::ostringstream text;
    text << seconds;
    return text.str();
}

} // namespace

Report reportOn(const FoundPlugin& plugin, size_t effectClass, const ChildOutcome& outcome,
                double timeoutSeconds) {
    Report report;
    Json& line = report.line;
    line["path"] = plugin.path;
    line["kind"] = kindName(plugin.kind);
    if (plugin.kind == PluginKind::vst3)
        line["class"] = effectClass;
    const std::string message = lastLine(outcome.err);
    const auto otherwise = [&](const std::string& fallback) {
        return message.empty() ? fallback : message;
    };
    if (outcome.end == ChildOutcome::End::timedOut) {
        line["status"] = "timeout";
        line["message"] = "no answer within " + secondsText(timeoutSeconds) + " seconds";
    } else if (outcome.end == ChildOutcome::End::signalled) {
        line["status"] = "crashed";
        line["message"] = otherwise("VST crashed with " + signalName(outcome.code));
        line["signal"] = signalName(outcome.code);
    } else if (outcome.code != 0) {
        // The child answers whatever the plug-in does; ending without an answer is the plug-in
        // ending the process (exit()), or the worker failing outright.
        line["status"] = "crashed";
        line["message"] = otherwise("the worker ended with status " + std::to_string(outcome.code));
    } else if (auto answer = answerIn(outcome.out)) {
        line["status"] = (*answer)["status"];
        if (line["status"] != "ok")
            line["message"] = otherwise("no message");
        if (answer->contains("classes") && (*answer)["classes"].is_number_unsigned())
            report.classes = std::min((*answer)["classes"].get<size_t>(), mostClasses);
        answer->erase("status");
        answer->erase("classes");
        line.update(*answer);
    } else {
        line["status"] = "failed";
        line["message"] = "the worker's answer could not be read";
    }
    line["seconds"] = std::round(outcome.seconds * 1000) / 1000;
    return report;
}

} // namespace scan
