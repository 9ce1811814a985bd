// libFuzzer target: arbitrary bytes as a VST 3 settings file through the preset loader, into
// stand-ins that read their state carelessly (in pieces, seeking where the bytes say). The class
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

// Both parts in one object: the calls they share read the same way.
class FuzzPlugin final : public IComponent, public IEditController {
  public:
    tresult PLUGIN_API setState(IBStream* state) override { return readCarelessly(state); }
    tresult PLUGIN_API setComponentState(IBStream* state) override { return readCarelessly(state); }
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
    int32 PLUGIN_API getParameterCount() override { return 0; }
    tresult PLUGIN_API getParameterInfo(int32, ParameterInfo&) override { return kInvalidArgument; }
    tresult PLUGIN_API getParamStringByValue(ParamID, ParamValue, String128) override {
        return kInvalidArgument;
    }
    tresult PLUGIN_API getParamValueByString(ParamID, TChar*, ParamValue&) override {
        return kInvalidArgument;
    }
    ParamValue PLUGIN_API normalizedParamToPlain(ParamID, ParamValue value) override {
        return value;
    }
    ParamValue PLUGIN_API plainParamToNormalized(ParamID, ParamValue value) override {
        return value;
    }
    ParamValue PLUGIN_API getParamNormalized(ParamID) override { return 0.0; }
    tresult PLUGIN_API setParamNormalized(ParamID, ParamValue) override { return kResultOk; }
    tresult PLUGIN_API setComponentHandler(IComponentHandler*) override { return kResultOk; }
    IPlugView* PLUGIN_API createView(FIDString) override { return nullptr; }
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
    FuzzPlugin plugin;
    loadVst3Preset(bytes, classId, &plugin, &plugin);
    loadVst3Preset(bytes, classId, &plugin, nullptr);
    return 0;
}
