#include "checks/check_common.h"
#include "checks/check_list.h"

#include <algorithm>
#include <cmath>

namespace {

// Below this normalised correlation the output is not a delayed copy of the input.
constexpr double weakestCorrelation = 0.5;
constexpr uint32_t windowFrames = 8192;
constexpr uint32_t searchBeyondReported = 2048;
constexpr uint32_t longestSearch = 96000;

// Normalised correlation of `output` at `lag` frames behind `input`, over the window.
double correlationAt(const std::vector<float>& input, const std::vector<float>& output,
                     uint32_t lag) {
    double product = 0;
    double inputEnergy = 0;
    double outputEnergy = 0;
    for (uint32_t frame = 0; frame < windowFrames; ++frame) {
        const double x = input[frame];
        const double y = output[frame + lag];
        product += x * y;
        inputEnergy += x * x;
        outputEnergy += y * y;
    }
    return inputEnergy > 0 && outputEnergy > 0 ? product / std::sqrt(inputEnergy * outputEnergy)
                                               : 0.0;
}

} // namespace

CheckResult runLatencyCheck(const CheckTarget& target) {
    auto plugin = openConfigured(target);
    const int32_t reported = std::max(plugin->plugin().latency(), 0);
    const uint32_t longest =
        std::min<uint32_t>(static_cast<uint32_t>(reported) + searchBeyondReported, longestSearch);
    // The measured window starts after a second of settling, so that start-up ramps do not count.
    const uint32_t settle = checkRate;
    const Audio input = noise(plugin->inputs(), settle + windowFrames + longest, 11);
    // The reported latency may change once audio flows; the one in force afterwards counts.
    const Audio output = plugin->process(input);
    const int32_t reportedAfter = std::max(plugin->plugin().latency(), 0);
    std::vector<float> dry(input[0].begin() + settle, input[0].end());
    std::vector<float> wet(output[0].begin() + settle, output[0].end());
    uint32_t bestLag = 0;
    double best = 0;
    for (uint32_t lag = 0; lag <= longest; ++lag) {
        const double correlation = std::fabs(correlationAt(dry, wet, lag));
        if (correlation > best) {
            best = correlation;
            bestLag = lag;
        }
    }
    nlohmann::json figures = {{"reported", reportedAfter},
                              {"measured", bestLag},
                              {"correlation", std::round(best * 1000) / 1000}};
    if (best < weakestCorrelation)
        return verdict(CheckStatus::skip,
                       "the output is not a delayed copy of the input, so its delay cannot be "
                       "measured",
                       figures);
    if (static_cast<int32_t>(bestLag) != reportedAfter)
        return verdict(CheckStatus::fail,
                       "measured " + std::to_string(bestLag) + " frames, reported " +
                           std::to_string(reportedAfter),
                       figures);
    return verdict(CheckStatus::pass, std::to_string(bestLag) + " frames, as reported", figures);
}
