#include "app/validate_command.h"

#include "app/arguments.h"
#include "app/command_failure.h"
#include "checks/check.h"
#include "checks/check_common.h"
#include "checks/validation_report.h"
#include "scan/child_processes.h"
#include "scan/plugin_discovery.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace {

constexpr int mostSeconds = 86400;
// Seconds a check may take at each level before it counts as hung.
constexpr int defaultSeconds[] = {0, 60, 120, 300};

std::vector<const Check*> selectedChecks(const ArgumentMap& arguments) {
    std::vector<const Check*> selected;
    const auto list = findArgument(arguments, "--checks");
    if (!list) {
        for (const Check& check : allChecks())
            selected.push_back(&check);
        return selected;
    }
    std::stringstream ids(*list);
    std::string id;
    while (std::getline(ids, id, ',')) {
        const Check* check = findCheck(id);
        if (check == nullptr)
            throw std::runtime_error("unknown check: '" + id + "'");
        if (std::find(selected.begin(), selected.end(), check) == selected.end())
            selected.push_back(check);
    }
    if (selected.empty())
        throw std::runtime_error("--checks names no check");
    return selected;
}

std::vector<std::string> pluginsAt(const std::string& path) {
    if (!std::filesystem::is_directory(path) || path.ends_with(".vst3") ||
        path.ends_with(".vst3/") || path.ends_with(".vst") || path.ends_with(".vst/")) {
        if (!std::filesystem::exists(path))
            throw std::runtime_error("no such plug-in: '" + path + "'");
        return {path};
    }
    std::vector<std::string> paths;
    for (const auto& found : scan::findPlugins({path}))
        paths.push_back(found.path);
    return paths;
}

// One child of the runner, `check` being a check's id or the identity word, run to its end.
scan::ChildOutcome runChild(const std::string& program, const std::vector<std::string>& common,
                            std::string_view check, int timeout) {
    std::vector<std::string> arguments = {std::string(validateChildWord)};
    arguments.insert(arguments.end(), common.begin(), common.end());
    arguments.insert(arguments.end(), {"--check", std::string(check)});
    scan::ChildProcesses child(program);
    try {
        child.start(0, arguments, timeout);
    } catch (const std::system_error& error) {
        // One child that cannot start (the program replaced under us, no processes left) fails
        // its check; the report goes on.
        return {scan::ChildOutcome::End::exited, 127, "", std::string(error.what()) + "\n", 0};
    }
    return child.waitForSome().front().second;
}

// The object a child that ended well printed on its first line; null otherwise.
nlohmann::json answerOf(const scan::ChildOutcome& outcome) {
    if (outcome.end != scan::ChildOutcome::End::exited || outcome.code != 0)
        return nullptr;
    auto parsed =
        nlohmann::json::parse(outcome.out.substr(0, outcome.out.find('\n')), nullptr, false);
    return parsed.is_object() ? parsed : nlohmann::json(nullptr);
}

// The child's verdict from how it ended.
nlohmann::json resultOf(const Check& check, const scan::ChildOutcome& outcome, int timeout) {
    if (nlohmann::json answer = answerOf(outcome);
        answer.is_object() && answer.value("id", "") == check.id)
        return answer;
    // The last thing the child said names the stage it died in.
    const std::string said = lastLine(outcome.err);
    std::string message = childEnding(outcome, timeout);
    if (outcome.end == scan::ChildOutcome::End::exited)
        message += " and no result";
    if (!said.empty())
        message += ": " + said;
    return {
        {"id", check.id}, {"status", "fail"}, {"message", message}, {"seconds", outcome.seconds}};
}

// The realtime-safety check's helper: next to the program in a build tree, in the package's
// helper folder once installed; empty when this build has none.
std::string realtimeProbeBeside(const std::string& program) {
    const std::filesystem::path folder = std::filesystem::path(program).parent_path();
    for (const auto& candidate :
         {folder / realtimeProbeName, folder / ".." / "lib" / "vst-adapter" / realtimeProbeName}) {
        std::error_code error;
        if (std::filesystem::is_regular_file(candidate, error))
            return candidate.lexically_normal().string();
    }
    return "";
}

} // namespace

std::string childEnding(const scan::ChildOutcome& outcome, int timeout) {
    switch (outcome.end) {
    case scan::ChildOutcome::End::timedOut:
        return "no result within " + std::to_string(timeout) + " s (hung)";
    case scan::ChildOutcome::End::signalled:
        return "crashed with " + scan::signalName(outcome.code);
    case scan::ChildOutcome::End::exited:
        break;
    }
    return "ended with status " + std::to_string(outcome.code);
}

bool isValidateWord(std::string_view command) {
    return command == "validate";
}

int runValidateCommand(int argc, const char* const* argv) {
    ArgumentMap arguments = argumentsFromCommandLine(argc, argv);
    const auto path = findArgument(arguments, "--vst");
    if (!path)
        throw CommandFailure("No VST specified.\n");
    const int level = findArgument(arguments, "--level") ? getIntOption(arguments, "--level") : 2;
    if (level < 1 || level > 3)
        throw std::runtime_error("--level must be 1, 2 or 3");
    int timeout = defaultSeconds[level];
    if (findArgument(arguments, "--timeout")) {
        timeout = getIntOption(arguments, "--timeout");
        if (timeout < 1 || timeout > mostSeconds)
            throw std::runtime_error("--timeout must be 1 to 86400 seconds");
    }
    const auto version = findArgument(arguments, "--vst-version");
    const std::vector<const Check*> checks = selectedChecks(arguments);
    const std::vector<std::string> plugins = pluginsAt(*path);
    const std::string program = scan::ownExecutable(argv[0]);
    const std::string realtimeProbe = realtimeProbeBeside(program);

    bool passed = true;
    std::vector<ValidationReport> reports;
    for (const std::string& plugin : plugins) {
        std::vector<std::string> common = {"--vst",     plugin,
                                           "--level",   std::to_string(level),
                                           "--timeout", std::to_string(timeout)};
        if (version)
            common.insert(common.end(), {"--vst-version", *version});
        if (!realtimeProbe.empty())
            common.insert(common.end(), {"--realtime-probe", realtimeProbe});
        // Kind and name from a child of their own; empty when the plug-in cannot be opened
        // (every check then says why).
        ValidationReport report{plugin, "", "", {}};
        if (const auto identity = answerOf(runChild(program, common, identityWord, timeout));
            identity.is_object()) {
            report.kind = identity.value("kind", "");
            report.name = identity.value("name", "");
        }
        // One child at a time: checks measure time and memory, which other children would skew.
        for (const Check* check : checks)
            report.checks.push_back(
                resultOf(*check, runChild(program, common, check->id, timeout), timeout));
        passed = report.passed() && passed;
        printTable(report);
        std::string line =
            reportJson(report).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        std::printf("%s\n", line.c_str());
        std::fflush(stdout);
        reports.push_back(std::move(report));
    }
    if (const auto junit = findArgument(arguments, "--junit"))
        writeJunit(*junit, reports);
    return passed ? 0 : 255;
}
