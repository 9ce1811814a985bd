#include "hosting/plugin_state.h"

#include "hosting/plugin_host.h"
#include "hosting/vst3/vst3_state.h"

#include <cstring>

namespace {

bool keepsChunk(const AEffect& effect) {
    return (effect.flags & effFlagsProgramChunks) != 0;
}

void loadParameters(PluginHost& host, const uint8_t* bytes, uint64_t length) {
    // Extra values are ignored and missing ones leave their parameters alone, so settings saved by
    // another version of the plug-in still apply as far as they go.
    // A plug-in without the function has no parameters to set, whatever its count says.
    if (host.effect()->setParameter == nullptr)
        return;
    const uint64_t count = length / sizeof(float);
    const auto parameters = static_cast<uint64_t>(std::max(host.parameterCount(), 0));
    for (uint64_t index = 0; index < count && index < parameters; ++index) {
        float value;
        std::memcpy(&value, bytes + index * sizeof(float), sizeof value);
        host.setParameter(static_cast<int32_t>(index), value);
    }
}

std::vector<uint8_t> saveParameters(PluginHost& host) {
    if (host.effect()->getParameter == nullptr)
        return {};
    const int32_t parameters = host.parameterCount();
    std::vector<uint8_t> bytes(static_cast<size_t>(std::max(parameters, 0)) * sizeof(float));
    for (int32_t index = 0; index < parameters; ++index) {
        const float value = host.parameter(index);
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

// New settings may change what the editor shows and how big it is: let it redraw, and watch
// the next idle steps for a size change.
void settleAfterLoad(PluginHost& host) {
    if (host.idleRequested())
        host.dispatch(effIdle);
    host.letEditorCatchUp();
}

} // namespace

void loadState(PluginHost& host, const uint8_t* bytes, uint64_t length) {
    if (host.effect() == nullptr || length == 0)
        return;
    host.rememberEditorSize();
    if (host.bridge() != nullptr)
        loadVst3State(host, bytes, length);
    else if (keepsChunk(*host.effect()))
        host.dispatch(effSetChunk, 0, static_cast<intptr_t>(length), const_cast<uint8_t*>(bytes));
    else
        loadParameters(host, bytes, length);
    settleAfterLoad(host);
}

std::vector<uint8_t> saveState(PluginHost& host) {
    if (host.bridge() != nullptr)
        return saveVst3State(host);
    if (host.effect() == nullptr)
        return {};
    return keepsChunk(*host.effect()) ? saveChunk(host) : saveParameters(host);
}
