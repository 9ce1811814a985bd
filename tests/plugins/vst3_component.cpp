#include "tests/plugins/vst3_plugin.h"

#include "pluginterfaces/vst/ivstparameterchanges.h"

#include <cstring>

namespace test_vst3 {

tresult PLUGIN_API Component::initialize(FUnknown*) {
    arrangement = options.mono ? SpeakerArr::kMono : SpeakerArr::kStereo;
    return kResultOk;
}

tresult PLUGIN_API Component::getControllerClassId(TUID classId) {
    std::memcpy(classId, controllerClassId(), sizeof(TUID));
    return kResultTrue;
}

tresult PLUGIN_API Component::getBusInfo(MediaType type, BusDirection direction, int32 index,
                                         BusInfo& bus) {
    if (type != kAudio || index != 0)
        return kInvalidArgument;
    bus = BusInfo{};
    bus.mediaType = kAudio;
    bus.direction = direction;
    bus.channelCount = SpeakerArr::getChannelCount(arrangement);
    const char* name = direction == kInput ? "Main In" : "Main Out";
    for (size_t at = 0; name[at] != 0; ++at)
        bus.name[at] = static_cast<char16>(name[at]);
    bus.busType = kMain;
    bus.flags = BusInfo::kDefaultActive;
    return kResultOk;
}

tresult PLUGIN_API Component::activateBus(MediaType, BusDirection, int32, TBool) {
    if (active)
        violation("activateBus while active");
    return kResultOk;
}

tresult PLUGIN_API Component::setActive(TBool state) {
    if (!state && processing)
        violation("setActive 0 while processing");
    active = state != 0;
    return kResultOk;
}

tresult PLUGIN_API Component::setState(IBStream* state) {
    return state != nullptr && readValues(*state, values) ? kResultOk : kResultFalse;
}

tresult PLUGIN_API Component::getState(IBStream* state) {
    return state != nullptr && writeValues(*state, values) ? kResultOk : kResultFalse;
}

tresult PLUGIN_API Component::setBusArrangements(SpeakerArrangement* inputs, int32 numIns,
                                                 SpeakerArrangement* outputs, int32 numOuts) {
    if (active)
        violation("setBusArrangements while active");
    if (numIns != 1 || numOuts != 1 || inputs[0] != outputs[0])
        return kResultFalse;
    arrangement = inputs[0];
    return kResultTrue;
}

tresult PLUGIN_API Component::getBusArrangement(BusDirection, int32 index,
                                                SpeakerArrangement& result) {
    if (index != 0)
        return kInvalidArgument;
    result = arrangement;
    return kResultOk;
}

tresult PLUGIN_API Component::canProcessSampleSize(int32 size) {
    return size == kSample32 || (size == kSample64 && options.doublePrecision) ? kResultTrue
                                                                               : kNotImplemented;
}

tresult PLUGIN_API Component::setupProcessing(ProcessSetup& setup) {
    log.line("setupProcessing " + std::to_string(setup.processMode) + " " +
             std::to_string(setup.symbolicSampleSize) + " " +
             std::to_string(setup.maxSamplesPerBlock) + " " +
             test_effect::number(setup.sampleRate));
    if (active)
        violation("setupProcessing while active");
    sampleSize = setup.symbolicSampleSize;
    return kResultOk;
}

tresult PLUGIN_API Component::setProcessing(TBool state) {
    if (state && !active)
        violation("setProcessing 1 while inactive");
    processing = state != 0;
    return kResultOk;
}

template <typename Sample> void Component::render(ProcessData& data) {
    const double factor =
        values.bypass >= 0.5 ? 1.0 : 2.0 * values.gain * (values.polarity >= 0.5 ? -1.0 : 1.0);
    const AudioBusBuffers& in = data.inputs[0];
    AudioBusBuffers& out = data.outputs[0];
    for (int32 channel = 0; channel < out.numChannels; ++channel) {
        auto* target = reinterpret_cast<Sample**>(out.channelBuffers32)[channel];
        const Sample* source = reinterpret_cast<Sample**>(in.channelBuffers32)[channel];
        for (int32 frame = 0; frame < data.numSamples; ++frame)
            target[frame] = static_cast<Sample>(source[frame] * factor);
    }
}

tresult PLUGIN_API Component::process(ProcessData& data) {
    if (!processing)
        violation("process while not processing");
    if (data.symbolicSampleSize != sampleSize)
        violation("process with another sample size");
    if (IParameterChanges* changes = data.inputParameterChanges) {
        for (int32 index = 0; index < changes->getParameterCount(); ++index) {
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
    if (data.numInputs < 1 || data.numOutputs < 1)
        return kResultOk;
    if (data.symbolicSampleSize == kSample64)
        render<double>(data);
    else
        render<float>(data);
    return kResultOk;
}

tresult PLUGIN_API Component::queryInterface(const TUID iid, void** object) {
    if (vst3_com::offerUnknown<IComponent>(this, iid, object) ||
        vst3_com::offer<IComponent>(this, iid, object) ||
        vst3_com::offer<IAudioProcessor>(this, iid, object))
        return kResultOk;
    return vst3_com::refuse(object);
}

} // namespace test_vst3
