#include "checks/check_common.h"
#include "checks/check_list.h"

#include <cmath>
#include <vector>

namespace {

// Values read back may differ by a float's rounding once they have been through the settings.
constexpr float valueTolerance = 1e-4f;

std::vector<float> valuesOf(const Plugin& plugin) {
    std::vector<float> values(static_cast<size_t>(std::max(plugin.parameterCount(), 0)));
    for (size_t index = 0; index < values.size(); ++index)
        values[index] = plugin.parameterValue(static_cast<int32_t>(index));
    return values;
}

// Every parameter away from where it starts, so that settings that keep nothing show.
void moveParameters(Plugin& plugin) {
    for (int32_t index = 0; index < plugin.parameterCount(); ++index) {
        const float value = plugin.parameterValue(index);
        plugin.setParameterValue(index, value < 0.5f ? value + 0.3f : value - 0.3f);
    }
}

} // namespace

CheckResult runStateCheck(const CheckTarget& target) {
    const Audio input = [&] {
        auto plugin = openConfigured(target);
        return noise(plugin->inputs(), 2 * measurementFrames(target.level), 17);
    }();
    auto source = openConfigured(target);
    moveParameters(source->plugin());
    const std::vector<uint8_t> saved = source->plugin().saveState();
    if (saved.empty())
        return verdict(CheckStatus::skip, "the plug-in gives no settings");
    const std::vector<float> sourceValues = valuesOf(source->plugin());
    const Audio sourceOutput = source->process(input);

    auto copy = openConfigured(target);
    copy->plugin().loadState(saved);
    const std::vector<uint8_t> savedAgain = copy->plugin().saveState();
    const std::vector<float> copyValues = valuesOf(copy->plugin());
    const Audio copyOutput = copy->process(input);

    auto third = openConfigured(target);
    third->plugin().loadState(savedAgain);
    const std::vector<uint8_t> savedThird = third->plugin().saveState();

    // Compared once the first half has passed: a plug-in may glide to values set one by one
    // (parameter smoothing) where it takes settings at once.
    const uint32_t settled = measurementFrames(target.level);
    const double db = differenceDb(from(sourceOutput, settled), from(copyOutput, settled));
    nlohmann::json figures = {{"bytes", saved.size()},
                              {"parameters", sourceValues.size()},
                              {"difference_db", decibelFigure(db)}};
    // The sound decides: some parameters (bypass, triggers, meters) are not settings at all, and
    // a plug-in may stamp its settings; those are worth a warning only.
    const CheckStatus status = sameOutputStatus(db);
    if (status != CheckStatus::pass)
        return verdict(status,
                       "an instance given the settings sounds different by " + decibelText(db),
                       figures);
    int32_t differing = 0;
    std::string first;
    for (size_t index = 0; index < sourceValues.size() && index < copyValues.size(); ++index)
        if (std::fabs(sourceValues[index] - copyValues[index]) > valueTolerance && differing++ == 0)
            first = "parameter " + std::to_string(index) + " reads " +
                    std::to_string(copyValues[index]) + " after the settings, not " +
                    std::to_string(sourceValues[index]);
    figures["parameters_differing"] = differing;
    if (differing > 0)
        return verdict(CheckStatus::warn,
                       std::to_string(differing) + " parameters not carried (" + first +
                           "); the sound is",
                       figures);
    if (savedAgain != savedThird)
        return verdict(CheckStatus::warn,
                       "settings given back after a second round trip differ from the first",
                       figures);
    return verdict(CheckStatus::pass,
                   std::to_string(saved.size()) + " bytes carry every value and the sound",
                   figures);
}
