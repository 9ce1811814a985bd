#include "hosting/vst3/vst3_kind.h"

#include "hosting/poll_run_loop.h"
#include "hosting/vst3/vst3_bridge.h"
#include "hosting/vst3/vst3_state.h"

PluginIdentity Vst3Kind::identity(const PluginHost&) const {
    PluginIdentity identity;
    identity.kind = PluginKind::vst3;
    identity.name = classInfo.name;
    identity.vendor = classInfo.vendor;
    identity.version = classInfo.version;
    identity.id = classInfo.classIdText();
    identity.category = classInfo.subCategories;
    return identity;
}

uint32_t Vst3Kind::parameterNumber(int32_t index) const {
    return bridge.parameterId(index).value_or(static_cast<uint32_t>(index));
}

void Vst3Kind::loadState(PluginHost&, std::span<const uint8_t> bytes) {
    loadVst3State(bridge, bytes.data(), bytes.size());
}

std::vector<uint8_t> Vst3Kind::saveState(PluginHost& host) {
    return saveVst3State(bridge, host);
}

void Vst3Kind::watchEditorEvents(PollRunLoop& loop, std::function<void()> idle) const {
    // A view's own descriptors and timers wake the loop; the editor idle runs them.
    const Vst3RunLoop& viewLoop = bridge.editorRunLoop();
    loop.addDynamicSource({[&viewLoop] { return viewLoop.descriptors(); },
                           [&viewLoop] { return viewLoop.millisecondsToNextTimer(); },
                           std::move(idle)});
}
