#include "hosting/vst2/vst2_kind.h"

#include "hosting/plugin_host.h"
#include "hosting/vst2/vst2_abi.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

bool keepsChunk(const AEffect& effect) {
    return (effect.flags & effFlagsProgramChunks) != 0;
}

const char* categoryName(intptr_t category) {
    static constexpr std::array<const char*, 12> names = {
        "Unknown", "Effect",     "Synth",       "Analysis",       "Mastering", "Spatial",
        "RoomFx",  "SurroundFx", "Restoration", "OfflineProcess", "Shell",     "Generator"};
    return category >= 0 && category < static_cast<intptr_t>(names.size())
               ? names[static_cast<size_t>(category)]
               : "Unknown";
}

void loadParameters(PluginHost& host, std::span<const uint8_t> bytes) {
    // Extra values are ignored and missing ones leave their parameters alone, so settings saved by
    // another version of the plug-in still apply as far as they go.
    // A plug-in without the function has no parameters to set, whatever its count says.
    if (host.effect()->setParameter == nullptr)
        return;
    const uint64_t count = bytes.size() / sizeof(float);
    const auto parameters = static_cast<uint64_t>(std::max(host.parameterCount(), 0));
    for (uint64_t index = 0; index < count && index < parameters; ++index) {
        float value;
        std::memcpy(&value, bytes.data() + index * sizeof(float), sizeof value);
        host.setParameterValue(static_cast<int32_t>(index), value);
    }
}

std::vector<uint8_t> saveParameters(PluginHost& host) {
    if (host.effect()->getParameter == nullptr)
        return {};
    const int32_t parameters = host.parameterCount();
    std::vector<uint8_t> bytes(static_cast<size_t>(std::max(parameters, 0)) * sizeof(float));
    for (int32_t index = 0; index < parameters; ++index) {
        const float value = host.parameterValue(index);
        std::memcpy(bytes.data() + static_cast<size_t>(index) * sizeof(float), &value,
                    sizeof value);
    }
    return bytes;
}

std::vector<uint8_t> saveChunk(PluginHost& host) {
    void* chunk = nullptr;
    const intptr_t size = host.dispatch(effGetChunk, 0, 0, &chunk);
    if (size < 1 || chunk == nullptr)
        return {};
    const auto* first = static_cast<const uint8_t*>(chunk);
    return {first, first + size};
}

} // namespace

PluginIdentity Vst2Kind::identity(const PluginHost& host) const {
    PluginIdentity identity;
    identity.kind = PluginKind::vst2;
    const AEffect* effect = host.effect();
    if (effect == nullptr)
        return identity;
    identity.name = host.dispatchText(effGetEffectName);
    if (identity.name.empty())
        identity.name = host.dispatchText(effGetProductString);
    identity.vendor = host.dispatchText(effGetVendorString);
    const intptr_t version = host.dispatch(effGetVendorVersion);
    identity.version = std::to_string(version != 0 ? version : effect->version);
    identity.id = std::to_string(effect->uniqueID);
    identity.category = categoryName(host.dispatch(effGetPlugCategory));
    return identity;
}

void Vst2Kind::loadState(PluginHost& host, std::span<const uint8_t> bytes) {
    if (keepsChunk(*host.effect()))
        host.dispatch(effSetChunk, 0, static_cast<intptr_t>(bytes.size()),
                      const_cast<uint8_t*>(bytes.data()));
    else
        loadParameters(host, bytes);
}

std::vector<uint8_t> Vst2Kind::saveState(PluginHost& host) {
    return keepsChunk(*host.effect()) ? saveChunk(host) : saveParameters(host);
}
