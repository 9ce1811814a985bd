#include "checks/check_common.h"
#include "checks/check_list.h"
#include "checks/realtime_report.h"

#include <cmath>
#include <cstdlib>
#include <string>

namespace {

// Calls after which what a plug-in still does counts as done on every call: its first blocks
// may fill tables or caches.
constexpr uint32_t warmUpCalls = 16;

uint32_t markedCalls(int level) {
    return level <= 1 ? 64 : level == 2 ? 256 : 2048;
}

HelperOutcome probe(const CheckTarget& target, uint32_t warmUp) {
    return target.runRealtimeProbe(
        {"probe", "--vst", target.path, "--level", std::to_string(target.level), "--vst-version",
         std::to_string(target.vstVersion), "--warm-up", std::to_string(warmUp), "--calls",
         std::to_string(markedCalls(target.level))});
}

// Why a probe that caught nothing did not end well.
std::string probeFailure(const HelperOutcome& outcome) {
    const std::string said = lastLine(outcome.err);
    if (!outcome.exited)
        return "the probe " + outcome.ending + (said.empty() ? "" : ": " + said);
    return said.empty() ? "the probe ended with status " + std::to_string(outcome.code) : said;
}

std::string described(const RealtimeViolation& violation) {
    return "`" + violation.call + "`" +
           (violation.origin.empty() ? "" : " from " + violation.origin);
}

nlohmann::json figuresOf(const RealtimeViolation& violation, bool firstCallsOnly) {
    return {{"call", violation.call},
            {"origin", violation.origin},
            {"library", violation.library},
            {"backtrace", violation.backtrace},
            {"first_calls_only", firstCallsOnly}};
}

// The real-time factor of the watched calls, from the seconds a clean probe printed: the
// speed figure with the watch on.
nlohmann::json watchedFactor(const HelperOutcome& outcome, uint32_t calls) {
    // The probe's own line is its last: a plug-in may print before it.
    const double seconds = std::strtod(lastLine(outcome.out).c_str(), nullptr);
    if (!(seconds > 0))
        return nullptr;
    const double factor = calls * static_cast<double>(Plugin::blockFrames) / checkRate / seconds;
    return std::round(factor * 10) / 10;
}

} // namespace

CheckResult runRealtimeSafetyCheck(const CheckTarget& target) {
    if (!target.runRealtimeProbe)
        return verdict(CheckStatus::skip,
                       "this build has no real-time probe (LLVM's real-time sanitizer runtime)");
    const HelperOutcome fromFirst = probe(target, 0);
    const auto caught = readRealtimeViolation(fromFirst.err);
    if (!caught) {
        if (!fromFirst.exited || fromFirst.code != 0)
            return verdict(CheckStatus::fail, probeFailure(fromFirst));
        return verdict(
            CheckStatus::pass,
            "no allocation, lock or blocking call in " + std::to_string(markedCalls(target.level)) +
                " process calls",
            {{"calls_checked", markedCalls(target.level)},
             {"realtime_factor_watched", watchedFactor(fromFirst, markedCalls(target.level))}});
    }
    const HelperOutcome warmedUp = probe(target, warmUpCalls);
    if (const auto still = readRealtimeViolation(warmedUp.err))
        return verdict(CheckStatus::fail, described(*still) + " on later process calls too",
                       figuresOf(*still, false));
    if (!warmedUp.exited || warmedUp.code != 0)
        return verdict(CheckStatus::fail, probeFailure(warmedUp));
    return verdict(CheckStatus::warn,
                   described(*caught) + " in the first " + std::to_string(warmUpCalls) +
                       " process calls only",
                   figuresOf(*caught, true));
}
