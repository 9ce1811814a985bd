// The component and its processor.
#include "tests/plugins/vst3_plugin.h"

#include "pluginterfaces/vst/ivstparameterchanges.h"

#include <cstring>

namespace test_vst3 {

namespace {

class Component final : public IComponent, public IAudioProcessor {
  public:
    explicit Component(const Options& options) : options(options), log(options.logPath.c_str()) {}

    tresult PLUGIN_API initialize(FUnknown*) override { return kResultOk; }
    tresult PLUGIN_API terminate() override { return kResultOk; }
    tresult PLUGIN_API getControllerClassId(TUID classId) override {
        std::memcpy(classId, controllerClassId, sizeof(TUID));
        return kResultTrue;
    }
    tresult PLUGIN_API setIoMode(IoMode) override { return kNotImplemented; }
    int32 PLUGIN_API getBusCount(MediaType type, BusDirection) override {
        return type == kAudio ? 1 : 0;
    }
    tresult PLUGIN_API getBusInfo(MediaType type, BusDirection direction, int32 index,
                                  BusInfo& bus) override {
        if (type != kAudio || index != 0)
            return kInvalidArgument;
        bus = BusInfo{kAudio, direction, SpeakerArr::getChannelCount(arrangement),
                      {},     kMain,     BusInfo::kDefaultActive};
        const char* name = direction == kInput ? "Main In" : "Main Out";
        for (size_t at = 0; name[at] != 0; ++at)
            bus.name[at] = static_cast<char16>(name[at]);
        return kResultOk;
    }
    tresult PLUGIN_API getRoutingInfo(RoutingInfo&, RoutingInfo&) override {
        return kNotImplemented;
    }
    tresult PLUGIN_API activateBus(MediaType, BusDirection, int32, TBool) override {
        if (active)
            violation("activateBus while active");
        return kResultOk;
    }
    tresult PLUGIN_API setActive(TBool state) override {
        if (!state && processing)
            violation("setActive 0 while processing");
        active = state != 0;
        return kResultOk;
    }
    tresult PLUGIN_API setState(IBStream* state) override {
        return state != nullptr && readValues(*state, values) ? kResultOk : kResultFalse;
    }
    tresult PLUGIN_API getState(IBStream* state) override {
        return state != nullptr && writeValues(*state, values) ? kResultOk : kResultFalse;
    }

    tresult PLUGIN_API setBusArrangements(SpeakerArrangement* inputs, int32 numIns,
                                          SpeakerArrangement* outputs, int32 numOuts) override {
        if (active)
            violation("setBusArrangements while active");
        if (numIns != 1 || numOuts != 1 || inputs[0] != outputs[0])
            return kResultFalse;
        arrangement = inputs[0];
        return kResultTrue;
    }
    tresult PLUGIN_API getBusArrangement(BusDirection, int32 index,
                                         SpeakerArrangement& result) override {
        result = arrangement;
        return index == 0 ? kResultOk : kInvalidArgument;
    }
    tresult PLUGIN_API canProcessSampleSize(int32 size) override {
        return size == kSample32 || (size == kSample64 && options.doublePrecision)
                   ? kResultTrue
                   : kNotImplemented;
    }
    uint32 PLUGIN_API getLatencySamples() override { return active ? options.latency : 0; }
    tresult PLUGIN_API setupProcessing(ProcessSetup& setup) override {
        log.line("setupProcessing " + std::to_string(setup.processMode) + " " +
                 std::to_string(setup.symbolicSampleSize) + " " +
                 std::to_string(setup.maxSamplesPerBlock) + " " +
                 test_effect::number(setup.sampleRate));
        if (active)
            violation("setupProcessing while active");
        sampleSize = setup.symbolicSampleSize;
        return kResultOk;
    }
    tresult PLUGIN_API setProcessing(TBool state) override {
        if (state && !active)
            violation("setProcessing 1 while inactive");
        processing = state != 0;
        return kResultOk;
    }
    tresult PLUGIN_API process(ProcessData& data) override {
        if (!processing)
            violation("process while not processing");
        if (data.symbolicSampleSize != sampleSize)
            violation("process with another sample size");
        applyChanges(data.inputParameterChanges);
        if (data.numInputs < 1 || data.numOutputs < 1)
            return kResultOk;
        if (data.symbolicSampleSize == kSample64)
            render<double>(data);
        else
            render<float>(data);
        return kResultOk;
    }
    uint32 PLUGIN_API getTailSamples() override { return 0; }

    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override {
        if (vst3_com::offerUnknown<IComponent>(this, iid, object) ||
            vst3_com::offer<IComponent>(this, iid, object) ||
            vst3_com::offer<IAudioProcessor>(this, iid, object))
            return kResultOk;
        return vst3_com::refuse(object);
    }
    uint32 PLUGIN_API addRef() override { return refs.add(); }
    uint32 PLUGIN_API release() override { return refs.drop(this); }

  private:
    void violation(const std::string& what) const { log.line("violation " + what); }

    void applyChanges(IParameterChanges* changes) {
        for (int32 index = 0; changes != nullptr && index < changes->getParameterCount(); ++index) {
            IParamValueQueue* queue = changes->getParameterData(index);
            int32 offset = 0;
            ParamValue value = 0.0;
            if (queue == nullptr ||
                queue->getPoint(queue->getPointCount() - 1, offset, value) != kResultOk)
                continue;
            log.line("paramChange " + std::to_string(queue->getParameterId()) + " " +
                     test_effect::number(value));
            if (double* slot = values.find(queue->getParameterId()))
                *slot = value;
        }
    }

    template <typename Sample> void render(ProcessData& data) {
        const double factor =
            values.bypass >= 0.5 ? 1.0 : 2.0 * values.gain * (values.polarity >= 0.5 ? -1.0 : 1.0);
        for (int32 channel = 0; channel < data.outputs[0].numChannels; ++channel) {
            auto* target = reinterpret_cast<Sample**>(data.outputs[0].channelBuffers32)[channel];
            const auto* source =
                reinterpret_cast<Sample**>(data.inputs[0].channelBuffers32)[channel];
            for (int32 frame = 0; frame < data.numSamples; ++frame)
                target[frame] = static_cast<Sample>(source[frame] * factor);
        }
    }

    vst3_com::RefCount<Component> refs;
    Options options;
    test_effect::CallLog log;
    Values values;
    SpeakerArrangement arrangement = options.mono ? SpeakerArr::kMono : SpeakerArr::kStereo;
    bool active = false;
    bool processing = false;
    int32 sampleSize = kSample32;
};

} // namespace

IComponent* makeComponent(const Options& options) {
    return new Component(options);
}

} // namespace test_vst3
