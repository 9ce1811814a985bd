#include "scan/plugin_description.h"

#include "hosting/plugin.h"

#include <string>

namespace scan {

namespace {

nlohmann::ordered_json pinNames(const Plugin& plugin, int32_t count, PinSide side) {
    auto names = nlohmann::ordered_json::array();
    for (int32_t pin = 0; pin < count; ++pin)
        names.push_back(plugin.pin(side, pin).label);
    return names;
}

} // namespace

nlohmann::ordered_json describePlugin(const Plugin& plugin) {
    const PluginIdentity identity = plugin.identity();
    nlohmann::ordered_json description;
    description["name"] = identity.name;
    description["vendor"] = identity.vendor;
    description["version"] = identity.version;
    if (identity.kind == PluginKind::vst3)
        description["class_id"] = identity.id;
    else
        description["unique_id"] = std::stoll(identity.id);
    description["category"] = identity.category;
    description["inputs"] = plugin.inputCount();
    description["input_names"] = pinNames(plugin, plugin.inputCount(), PinSide::input);
    description["outputs"] = plugin.outputCount();
    description["output_names"] = pinNames(plugin, plugin.outputCount(), PinSide::output);
    description["parameters"] = plugin.parameterCount();
    description["has_editor"] = plugin.hasEditor();
    description["latency"] = plugin.latency();
    description["tail"] = plugin.tailSize();
    return description;
}

} // namespace scan
