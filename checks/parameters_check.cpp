#include "checks/check_common.h"
#include "checks/check_list.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace {

// Endpoints are representable by every parameter, stepped ones included.
constexpr float endpointTolerance = 0.02f;

int32_t parametersSwept(int level, int32_t count) {
    return level >= 3 ? count : std::min(count, level <= 1 ? 16 : 64);
}

} // namespace

CheckResult runParametersCheck(const CheckTarget& target) {
    auto plugin = openConfigured(target);
    Plugin& parameters = plugin->plugin();
    const int32_t count = parametersSwept(target.level, parameters.parameterCount());
    if (count == 0)
        return verdict(CheckStatus::skip, "no parameters");
    std::mt19937 generator(19);
    std::uniform_real_distribution<float> anyValue(0.0f, 1.0f);
    const Audio block = noise(plugin->inputs(), Plugin::blockFrames, 23);
    int32_t withoutText = 0;
    std::string misread;
    float worstEndpoint = 0;
    auto processChecked = [&](const std::string& after) {
        const Audio output = plugin->process(block);
        if (hasNonFinite(output))
            throw std::runtime_error("NaN or infinity in the output after " + after);
    };
    for (int32_t index = 0; index < count; ++index) {
        const float start = parameters.parameterValue(index);
        const std::string name =
            "parameter " + std::to_string(index) + " (" + parameters.parameterName(index) + ")";
        for (const float value : {0.0f, 1.0f, anyValue(generator), start}) {
            parameters.setParameterValue(index, value);
            processChecked(name + " = " + std::to_string(value));
            const float back = parameters.parameterValue(index);
            if (!std::isfinite(back) || back < -endpointTolerance || back > 1 + endpointTolerance)
                return verdict(CheckStatus::fail,
                               name + " reads back " + std::to_string(back) + ", outside 0..1");
            if (value == 0.0f || value == 1.0f) {
                worstEndpoint = std::max(worstEndpoint, std::fabs(back - value));
                if (std::fabs(back - value) > endpointTolerance && misread.empty())
                    misread = name + " set to " + std::to_string(value) + " reads back " +
                              std::to_string(back);
            }
        }
        if (parameters.parameterDisplay(index).empty())
            ++withoutText;
    }
    for (int round = 0; round < 4; ++round) {
        for (int32_t index = 0; index < count; ++index)
            parameters.setParameterValue(index, anyValue(generator));
        processChecked("every parameter set at random");
    }
    const nlohmann::json figures = {{"swept", count},
                                    {"without_display_text", withoutText},
                                    {"worst_endpoint_error", worstEndpoint}};
    if (!misread.empty())
        return verdict(CheckStatus::warn, misread, figures);
    if (withoutText > 0)
        return verdict(CheckStatus::warn,
                       std::to_string(withoutText) + " parameters show no display text", figures);
    return verdict(CheckStatus::pass, std::to_string(count) + " parameters swept", figures);
}
