#include "checks/check_common.h"
#include "checks/check_list.h"

#include "hosting/process_defaults.h"

namespace {

// What a fresh instance makes of the check's input: the reference both checks compare with.
Audio freshOutput(const CheckTarget& target, uint32_t seed) {
    auto plugin = openConfigured(target);
    return plugin->process(noise(plugin->inputs(), measurementFrames(target.level), seed));
}

// `lenient`: a difference is worth a warning, not a failure.
CheckResult compared(const Audio& fresh, const Audio& restarted, const std::string& how,
                     bool lenient = false) {
    const double db = differenceDb(fresh, restarted);
    const nlohmann::json figures = {{"difference_db", decibelFigure(db)}};
    CheckStatus status = sameOutputStatus(db);
    if (lenient && status == CheckStatus::fail)
        status = CheckStatus::warn;
    if (status == CheckStatus::pass)
        return verdict(status, how + " sounds as a fresh instance", figures);
    return verdict(status, how + " differs from a fresh instance by " + decibelText(db), figures);
}

} // namespace

CheckResult runReopenCheck(const CheckTarget& target) {
    const Audio fresh = freshOutput(target, 37);
    auto plugin = openConfigured(target);
    plugin->process(noise(plugin->inputs(), measurementFrames(target.level), 41));
    restoreProcessDefaults();
    plugin->pluginSlot().reopen(static_cast<int32_t>(checkRate));
    if (!plugin->configure(checkRate, checkChannels, checkChannels))
        return verdict(CheckStatus::fail, "the reopened instance refuses the format");
    return compared(fresh,
                    plugin->process(noise(plugin->inputs(), measurementFrames(target.level), 37)),
                    "an instance closed and opened again");
}

CheckResult runSuspendResumeCheck(const CheckTarget& target) {
    const Audio fresh = freshOutput(target, 43);
    auto plugin = openConfigured(target);
    plugin->process(noise(plugin->inputs(), measurementFrames(target.level), 47));
    plugin->plugin().suspend();
    plugin->plugin().resume();
    return compared(fresh,
                    plugin->process(noise(plugin->inputs(), measurementFrames(target.level), 43)),
                    "an instance suspended and resumed",
                    // Resuming is no promise to forget: many plug-ins keep their delay lines and
                    // envelopes, which a host hears after every reconfiguration.
                    true);
}
