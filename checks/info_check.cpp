#include "checks/check_common.h"
#include "checks/check_list.h"

#include <set>

namespace {

std::string kindWord(PluginKind kind) {
    return kind == PluginKind::vst3 ? "vst3" : "vst2";
}

} // namespace

CheckResult runInfoCheck(const CheckTarget& target) {
    PluginUnderTest opened(target, checkRate);
    Plugin& plugin = opened.plugin();
    const PluginIdentity identity = plugin.identity();
    const int32_t inputs = plugin.inputCount();
    const int32_t outputs = plugin.outputCount();
    const int32_t parameters = plugin.parameterCount();
    nlohmann::json figures = {{"kind", kindWord(identity.kind)},
                              {"name", identity.name},
                              {"vendor", identity.vendor},
                              {"version", identity.version},
                              {"plugin_id", identity.id},
                              {"category", identity.category},
                              {"inputs", inputs},
                              {"outputs", outputs},
                              {"parameters", parameters},
                              {"has_editor", plugin.hasEditor()},
                              {"latency", plugin.latency()},
                              {"tail", plugin.tailSize()}};
    if (outputs < 1)
        return verdict(CheckStatus::fail, "no output pins", figures);
    if (parameters < 0)
        return verdict(CheckStatus::fail, "a negative parameter count", figures);
    if (plugin.latency() < 0)
        return verdict(CheckStatus::fail, "a negative latency", figures);
    // Its own pin counts must be a format it takes: that is what they promise.
    if (inputs >= 1 &&
        !opened.configure(checkRate, static_cast<uint32_t>(inputs), static_cast<uint32_t>(outputs)))
        return verdict(CheckStatus::fail, "refuses a format of its own pin counts", figures);
    std::set<uint32_t> numbers;
    std::vector<std::string> warnings;
    int32_t unnamed = 0;
    for (int32_t index = 0; index < parameters; ++index) {
        if (!numbers.insert(plugin.parameterNumber(index)).second)
            return verdict(CheckStatus::fail,
                           "parameter " + std::to_string(index) + " shares its number " +
                               std::to_string(plugin.parameterNumber(index)),
                           figures);
        if (plugin.parameterName(index).empty())
            ++unnamed;
    }
    if (identity.name.empty())
        warnings.push_back("no name");
    if (identity.vendor.empty())
        warnings.push_back("no vendor");
    if (unnamed > 0)
        warnings.push_back(std::to_string(unnamed) + " parameters without a name");
    for (int32_t pin = 0; pin < outputs; ++pin)
        if (plugin.pin(PinSide::output, pin).label.empty()) {
            warnings.push_back("unlabelled pins");
            break;
        }
    if (!warnings.empty()) {
        std::string message;
        for (const auto& warning : warnings)
            message += (message.empty() ? "" : ", ") + warning;
        return verdict(CheckStatus::warn, message, figures);
    }
    return verdict(CheckStatus::pass,
                   std::to_string(inputs) + " in, " + std::to_string(outputs) + " out, " +
                       std::to_string(parameters) + " parameters",
                   figures);
}
