#include "checks/check_common.h"
#include "checks/check_list.h"

#include <chrono>
#include <cmath>

namespace {

double secondsOfAudio(int level) {
    return level <= 1 ? 2.0 : level == 2 ? 10.0 : 30.0;
}

} // namespace

CheckResult runSpeedCheck(const CheckTarget& target) {
    auto plugin = openConfigured(target);
    const auto frames = static_cast<uint32_t>(secondsOfAudio(target.level) * checkRate);
    const Audio input = noise(plugin->inputs(), frames, 29);
    // A first second outside the measurement: plug-ins may allocate or build tables then.
    plugin->process(noise(plugin->inputs(), checkRate, 31));
    const auto start = std::chrono::steady_clock::now();
    plugin->process(input);
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
    const double factor = secondsOfAudio(target.level) / std::max(spent.count(), 1e-9);
    const nlohmann::json figures = {{"realtime_factor", std::round(factor * 10) / 10},
                                    {"audio_seconds", secondsOfAudio(target.level)}};
    const std::string text = std::to_string(static_cast<long>(factor)) + "x real time";
    if (factor < 1)
        return verdict(CheckStatus::fail, "slower than real time: " + text, figures);
    if (factor < 10)
        return verdict(CheckStatus::warn, "below 10x real time: " + text, figures);
    return verdict(CheckStatus::pass, text, figures);
}
