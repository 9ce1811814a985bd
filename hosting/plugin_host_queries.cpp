#include "hosting/plugin_host.h"

#include "hosting/editor/main_thread.h"
#include "hosting/guarded_call.h"

#include <algorithm>
#include <array>
#include <thread>

namespace {

// Plug-ins often write past the lengths the interface allows for texts; give them room and read
// up to the first zero byte, or the whole buffer if they leave none.
constexpr size_t textBufferBytes = 256;

} // namespace

PluginIdentity PluginHost::identity() const {
    return loaded.kind ? loaded.kind->identity(*this) : PluginIdentity{};
}

PinProperties PluginHost::pin(PinSide side, int32_t index) const {
    VstPinProperties properties{};
    dispatch(side == PinSide::input ? effGetInputProperties : effGetOutputProperties, index, 0,
             &properties);
    // The label need not be terminated: at most its field.
    const char* label = properties.label;
    return {std::string(label, std::find(label, label + sizeof properties.label, '\0')),
            properties.flags, properties.arrangementType};
}

bool PluginHost::hasEditor() const {
    return loaded.effect && (loaded.effect->flags & effFlagsHasEditor);
}

int32_t PluginHost::parameterCount() const {
    return loaded.effect ? loaded.effect->numParams : 0;
}

uint32_t PluginHost::parameterNumber(int32_t index) const {
    return loaded.kind ? loaded.kind->parameterNumber(index) : static_cast<uint32_t>(index);
}

std::string PluginHost::dispatchText(int32_t opcode, int32_t index) const {
    std::array<char, textBufferBytes> buffer{};
    dispatch(opcode, index, 0, buffer.data());
    return std::string(buffer.data(), std::find(buffer.begin(), buffer.end(), '\0'));
}

std::string PluginHost::parameterName(int32_t index) const {
    return dispatchText(effGetParamName, index);
}

std::string PluginHost::parameterDisplay(int32_t index) const {
    return dispatchText(effGetParamDisplay, index);
}

std::string PluginHost::parameterUnit(int32_t index) const {
    return dispatchText(effGetParamLabel, index);
}

float PluginHost::parameterValue(int32_t index) const {
    const AEffect* effect = loaded.effect;
    if (effect == nullptr || effect->getParameter == nullptr)
        return 0.0f;
    return callPlugin([&] { return effect->getParameter(const_cast<AEffect*>(effect), index); });
}

void PluginHost::setParameterValue(int32_t index, float value) {
    if (loaded.effect && loaded.effect->setParameter)
        callPlugin([&] { loaded.effect->setParameter(loaded.effect, index, value); });
}

void PluginHost::loadState(std::span<const uint8_t> bytes) {
    if (loaded.effect == nullptr || !loaded.kind || bytes.empty())
        return;
    // New settings may change what the editor shows and how big it is: let it redraw, and
    // watch the next idle steps for a size change. The editor is the main thread's: settings
    // that the live worker loads leave that to it.
    const bool onEditorThread = std::this_thread::get_id() == mainThread;
    if (onEditorThread)
        rememberEditorSize();
    loaded.kind->loadState(*this, bytes);
    if (needIdle)
        dispatch(effIdle);
    if (onEditorThread)
        letEditorCatchUp();
    else if (editor.open)
        runOnMainThread([this] {
            rememberEditorSize();
            letEditorCatchUp();
        });
}

std::vector<uint8_t> PluginHost::saveState() {
    if (loaded.effect == nullptr || !loaded.kind)
        return {};
    return loaded.kind->saveState(*this);
}
