// libFuzzer target: arbitrary bytes as a VST 3 settings file through the preset loader, into
// a stand-in that reads its state carelessly (in pieces, seeking where the bytes say). The class
// id comes from the input, so mutations get past the class check.

#include "hosting/vst3/vst3_preset.h"
#include "hosting/vst3/vst3_preset_layout.h"

#include "pluginterfaces/base/ibstream.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

// Reads `state` to its end in pieces, each read's first bytes choosing the next seek.
tresult readCarelessly(IBStream* state) {
    if (state == nullptr)
        return kInvalidArgument;
    uint8_t piece[24];
    for (int step = 0; step < 64; ++step) {
        int32 got = -1;
        if (state->read(piece, 1 + step % static_cast<int>(sizeof piece), &got) != kResultOk)
            return kResultFalse;
        if (got < 0 || got > static_cast<int32>(sizeof piece))
            std::abort();
        if (got == 0)
            return kResultOk;
        int64 target = 0;
        std::memcpy(&target, piece, std::min<size_t>(sizeof target, static_cast<size_t>(got)));
        int64 where = -1;
        state->seek(target, step % 3, &where);
        state->tell(&where);
    }
    return kResultOk;
}

// The component alone: the controller's calls read through the same stream, so they add no new
// reading of the bytes.
class FuzzComponent final : public IComponent {
  public:
    tresult PLUGIN_API setState(IBStream* state) override { return readCarelessly(state); }
    tresult PLUGIN_API getState(IBStream*) override { return kNotImplemented; }
    tresult PLUGIN_API initialize(FUnknown*) override { return kResultOk; }
    tresult PLUGIN_API terminate() override { return kResultOk; }
    tresult PLUGIN_API getControllerClassId(TUID) override { return kNotImplemented; }
    tresult PLUGIN_API setIoMode(IoMode) override { return kNotImplemented; }
    int32 PLUGIN_API getBusCount(MediaType, BusDirection) override { return 0; }
    tresult PLUGIN_API getBusInfo(MediaType, BusDirection, int32, BusInfo&) override {
        return kInvalidArgument;
    }
    tresult PLUGIN_API getRoutingInfo(RoutingInfo&, RoutingInfo&) override {
        return kNotImplemented;
    }
    tresult PLUGIN_API activateBus(MediaType, BusDirection, int32, TBool) override {
        return kInvalidArgument;
    }
    tresult PLUGIN_API setActive(TBool) override { return kResultOk; }
    tresult PLUGIN_API queryInterface(const TUID, void** object) override {
        *object = nullptr;
        return kNoInterface;
    }
    uint32 PLUGIN_API addRef() override { return 1; }
    uint32 PLUGIN_API release() override { return 1; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::span<const uint8_t> bytes(data, size);
    FUID classId;
    if (size >= vst3_preset_layout::headerBytes)
        classId.fromString(vst3_preset_layout::classIdText(bytes).c_str());
    FuzzComponent component;
    loadVst3Preset(bytes, classId, &component, nullptr);
    return 0;
}
