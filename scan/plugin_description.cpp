#include "scan/plugin_description.h"

#include "hosting/plugin_host.h"
#include "hosting/plugin_loading.h"
#include "hosting/vst3/vst3_module.h"

#include <array>
#include <string>

namespace scan {

namespace {

// Plug-ins fill fixed fields and need not terminate them.
template <size_t size> std::string textFrom(PluginHost& host, int32_t opcode) {
    std::array<char, size + 1> text{};
    host.dispatch(opcode, 0, 0, text.data());
    text.back() = '\0';
    return text.data();
}

const char* categoryName(intptr_t category) {
    static constexpr std::array names{"Unknown",     "Effect",         "Synth",  "Analysis",
                                      "Mastering",   "Spatial",        "RoomFx", "SurroundFx",
                                      "Restoration", "OfflineProcess", "Shell",  "Generator"};
    return category >= 0 && category < static_cast<intptr_t>(names.size()) ? names[category]
                                                                           : "Unknown";
}

nlohmann::ordered_json pinNames(PluginHost& host, int32_t count, int32_t opcode) {
    auto names = nlohmann::ordered_json::array();
    for (int32_t pin = 0; pin < count; ++pin) {
        VstPinProperties properties{};
        host.dispatch(opcode, pin, 0, &properties);
        names.push_back(
            std::string(properties.label, strnlen(properties.label, sizeof properties.label)));
    }
    return names;
}

} // namespace

nlohmann::ordered_json describePlugin(PluginHost& host) {
    nlohmann::ordered_json description;
    if (const Vst3ClassInfo* info = openedVst3Class(host)) {
        // The factory's own record is whole; the VST 2 opcodes would cut the texts short.
        description["name"] = info->name;
        description["vendor"] = info->vendor;
        description["version"] = info->version;
        description["class_id"] = info->classIdText();
        description["category"] = info->subCategories;
    } else {
        description["name"] = textFrom<kVstMaxEffectNameLen>(host, effGetEffectName);
        description["vendor"] = textFrom<kVstMaxVendorStrLen>(host, effGetVendorString);
        description["version"] = std::to_string(host.dispatch(effGetVendorVersion));
        description["unique_id"] = host.effect()->uniqueID;
        description["category"] = categoryName(host.dispatch(effGetPlugCategory));
    }
    description["inputs"] = host.numInputs();
    description["input_names"] = pinNames(host, host.numInputs(), effGetInputProperties);
    description["outputs"] = host.numOutputs();
    description["output_names"] = pinNames(host, host.numOutputs(), effGetOutputProperties);
    description["parameters"] = host.parameterCount();
    description["has_editor"] = host.hasEditorFlag();
    description["latency"] = host.initialDelay();
    description["tail"] = host.tailSize();
    return description;
}

} // namespace scan
