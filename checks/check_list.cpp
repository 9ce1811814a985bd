#include "checks/check_list.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array checks = {
    Check{"load", "loads, opens and closes ten times; memory held stays flat", runLoadCheck},
    Check{"info", "name, pins, parameters and identity agree with each other", runInfoCheck},
    Check{"process", "silence, noise, impulses and full scale at several formats stay finite",
          runProcessCheck},
    Check{"block-size", "output does not depend on the host's block size", runBlockSizeCheck},
    Check{"determinism", "two fresh instances give the same output", runDeterminismCheck},
    Check{"latency", "the measured delay is the reported latency", runLatencyCheck},
    Check{"tail", "output falls silent within the reported tail", runTailCheck},
    Check{"state", "settings carry parameters and sound to a fresh instance", runStateCheck},
    Check{"parameters", "every parameter takes 0, 1, its default and random values",
          runParametersCheck},
    Check{"speed", "real-time factor at 44.1 kHz in 512-frame blocks", runSpeedCheck},
    Check{"reopen", "an instance opened again sounds as a fresh one", runReopenCheck},
    Check{"suspend-resume", "suspending and resuming starts afresh", runSuspendResumeCheck},
    Check{"realtime-safety", "no allocation, lock or blocking call inside the process call",
          runRealtimeSafetyCheck},
    Check{"threads", "parameters edited from a second thread while audio runs arrive safely",
          runThreadsCheck},
    Check{"editor", "the editor opens and closes, also while audio runs", runEditorCheck},
    Check{"bus-layouts",
          "1 to 8 channels each way: taken ones process, refused ones change nothing",
          runBusLayoutsCheck},
};

} // namespace

std::string_view statusWord(CheckStatus status) {
    switch (status) {
    case CheckStatus::pass:
        return "pass";
    case CheckStatus::fail:
        return "fail";
    case CheckStatus::warn:
        return "warn";
    case CheckStatus::skip:
        return "skip";
    }
    return "fail";
}

std::span<const Check> allChecks() {
    return checks;
}

const Check* findCheck(std::string_view id) {
    const auto found = std::find_if(checks.begin(), checks.end(),
                                    [id](const Check& check) { return check.id == id; });
    return found == checks.end() ? nullptr : &*found;
}
