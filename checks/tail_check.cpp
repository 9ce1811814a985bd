#include "checks/check_common.h"
#include "checks/check_list.h"

#include <algorithm>

namespace {

constexpr double audible = 1e-4; // -80 dB full scale
constexpr uint32_t longestListen = 60 * checkRate;

} // namespace

CheckResult runTailCheck(const CheckTarget& target) {
    auto plugin = openConfigured(target);
    const uint32_t burst = checkRate / 4;
    plugin->process(noise(plugin->inputs(), burst, 13));
    const int32_t latency = std::max(plugin->plugin().latency(), 0);
    const intptr_t reported = plugin->plugin().tailSize();
    // 0 says nothing (the worker then renders a tenth of a second), 1 says there is none.
    const int64_t allowed = reported == 1 ? 0 : reported <= 0 ? checkRate / 10 : reported;
    const auto listen = static_cast<uint32_t>(
        std::min<int64_t>(latency + allowed + 2 * static_cast<int64_t>(checkRate), longestListen));
    const Audio after = plugin->process(silence(plugin->inputs(), listen));
    const int64_t sounding = lastAudibleFrameEnd(after, audible);
    const int64_t measured = std::max<int64_t>(sounding - latency, 0);
    const nlohmann::json figures = {
        {"reported", reported}, {"measured", measured}, {"latency", latency}, {"listened", listen}};
    if (sounding >= static_cast<int64_t>(listen))
        return verdict(CheckStatus::fail,
                       "still sounding after " + std::to_string(listen) + " frames of silence",
                       figures);
    // One block of slack: a plug-in's own buffering may round its tail up to a block.
    const bool beyond = measured > allowed + Plugin::blockFrames;
    // A plug-in that reports no length promised nothing: that it sounds longer than a host's
    // default is worth knowing, not a broken promise.
    if (beyond && reported == 0)
        return verdict(CheckStatus::warn,
                       "reports no tail length and sounds for " + std::to_string(measured) +
                           " frames after the input stops; hosts render " +
                           std::to_string(allowed) + " by default",
                       figures);
    if (beyond)
        return verdict(CheckStatus::fail,
                       "sounds for " + std::to_string(measured) +
                           " frames after the input stops, "
                           "beyond the " +
                           std::to_string(allowed) + " it reports",
                       figures);
    return verdict(CheckStatus::pass,
                   "silent after " + std::to_string(measured) + " frames (reported " +
                       std::to_string(reported) + ")",
                   figures);
}
