#include "hosting/vst3/vst3_state.h"

#include "hosting/plugin_host.h"
#include "hosting/vst3/vst3_bridge.h"
#include "hosting/vst3/vst3_preset.h"
#include "hosting/vst3/vst3_read_stream.h"

#include "public.sdk/source/common/memorystream.h"
#include "public.sdk/source/vst/vstpresetfile.h"

#include <cstdio>
#include <cstring>
#include <limits>

using namespace Steinberg;
using namespace Steinberg::Vst;
using vst3::Vst3Bridge;

namespace {

constexpr char presetMagic[4] = {'V', 'S', 'T', '3'};
// One (uint32 id, float64 normalised value) record, native byte order, no padding.
constexpr uint64_t recordBytes = sizeof(ParamID) + sizeof(ParamValue);
static_assert(recordBytes == 12);

bool isPresetImage(const uint8_t* bytes, uint64_t length) {
    return length >= sizeof presetMagic && std::memcmp(bytes, presetMagic, sizeof presetMagic) == 0;
}

void applyRecords(Vst3Bridge& bridge, const uint8_t* bytes, uint64_t length) {
    for (uint64_t at = 0; at + recordBytes <= length; at += recordBytes) {
        ParamID id;
        ParamValue value;
        std::memcpy(&id, bytes + at, sizeof id);
        std::memcpy(&value, bytes + at + sizeof id, sizeof value);
        bridge.setParameterById(id, value);
    }
}

} // namespace

void loadVst3State(Vst3Bridge& bridge, const uint8_t* bytes, uint64_t length) {
    // Streams count in 32 bits; nothing we wrote is near that.
    if (length == 0 || length > static_cast<uint64_t>(std::numeric_limits<int32>::max()))
        return;
    const std::span<const uint8_t> data(bytes, static_cast<size_t>(length));

    const Vst3Bridge::StateLoad loading(bridge);
    // Held for the call, so that nothing the plug-in does meanwhile can free them.
    const IPtr<IComponent> component(bridge.component());
    const IPtr<IEditController> controller(bridge.controller());
    if (isPresetImage(bytes, length)) {
        // A preset replaces the whole state, values given before it included; records add to
        // what is there.
        Vst3PresetResult result = checkVst3Preset(data, bridge.classId());
        if (result == Vst3PresetResult::applied) {
            bridge.dropQueuedValues();
            result = loadVst3Preset(data, bridge.classId(), component, controller);
        }
        // The command goes on with the plug-in's own settings, so the user can repair them.
        if (result != Vst3PresetResult::applied)
            std::fprintf(stderr, "%s\n", vst3PresetMessage(result));
        return;
    }
    if (!controller)
        return;
    // Anything else is the controller's own state, or, when it knows no such thing, a list of
    // id/value records; the records reach the processor with the next block.
    IPtr<Vst3ReadStream> stream = owned(new Vst3ReadStream(data));
    if (controller->setState(stream) != kNotImplemented || length % recordBytes != 0)
        return;
    applyRecords(bridge, bytes, length);
}

std::vector<uint8_t> saveVst3State(Vst3Bridge& bridge, PluginHost& host) {
    // Values still queued reach the component first, so the image holds them.
    host.prime();
    bridge.settleParameters();
    IPtr<MemoryStream> stream = owned(new MemoryStream);
    const IPtr<IComponent> component(bridge.component());
    const IPtr<IEditController> controller(bridge.controller());
    if (!PresetFile::savePreset(stream, bridge.classId(), component, controller, nullptr, -1))
        return {};
    const auto* first = reinterpret_cast<const uint8_t*>(stream->getData());
    return {first, first + stream->getSize()};
}
