#include "app/validate_command.h"

#include "app/arguments.h"
#include "checks/check.h"
#include "checks/check_common.h"
#include "hosting/plugin_stage.h"
#include "scan/child_processes.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <new>
#include <stdexcept>

namespace {

nlohmann::json runOne(const Check& check, const CheckTarget& target) {
    const auto start = std::chrono::steady_clock::now();
    CheckResult result;
    try {
        result = check.run(target);
    } catch (const std::bad_alloc&) {
        result = {CheckStatus::fail, "out of memory", nlohmann::json::object()};
    } catch (const std::exception& failure) {
        result = {CheckStatus::fail, failure.what(), nlohmann::json::object()};
    }
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
    // The figures never stand in for the report's own fields.
    nlohmann::json report = result.figures;
    report["id"] = check.id;
    report["status"] = statusWord(result.status);
    report["message"] = result.message;
    report["seconds"] = spent.count();
    return report;
}

// Who the plug-in is, for the report's head.
nlohmann::json identify(const CheckTarget& target) {
    PluginUnderTest opened(target, checkRate);
    const PluginIdentity identity = opened.plugin().identity();
    return {{"id", identityWord},
            {"kind", identity.kind == PluginKind::vst3 ? "vst3" : "vst2"},
            {"name", identity.name}};
}

// Runs `program` to its end within `seconds`, as a check's helper.
HelperRun helperRunner(std::string program, int seconds) {
    return [program = std::move(program), seconds](const std::vector<std::string>& arguments) {
        scan::ChildProcesses child(program);
        child.start(0, arguments, seconds);
        const scan::ChildOutcome outcome = child.waitForSome().front().second;
        const bool exited = outcome.end == scan::ChildOutcome::End::exited;
        return HelperOutcome{exited, outcome.code, exited ? "" : childEnding(outcome, seconds),
                             outcome.out, outcome.err};
    };
}

} // namespace

bool runValidateChild(VSTGlobals& globals) {
    const auto path = findArgument(globals.arguments, "--vst");
    const auto id = findArgument(globals.arguments, "--check");
    const Check* check = id ? findCheck(*id) : nullptr;
    if (!path || (check == nullptr && (!id || *id != identityWord)))
        throw std::runtime_error("validate-check needs --vst and a known --check");
    CheckTarget target{*path,
                       getIntOption(globals.arguments, "--vst-version"),
                       getIntOption(globals.arguments, "--level"),
                       {}};
    if (const auto probe = findArgument(globals.arguments, "--realtime-probe"))
        // Two probe runs fit in the check's own time limit, with room to report.
        target.runRealtimeProbe =
            helperRunner(*probe, std::max(getIntOption(globals.arguments, "--timeout") / 3, 1));
    const nlohmann::json result = check ? runOne(*check, target) : identify(target);
    const std::string line =
        result.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    globals.output->write(line.data(), line.size());
    return true;
}
