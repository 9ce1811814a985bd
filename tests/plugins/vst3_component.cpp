#include "tests/plugins/vst3_plugin.h"

#include "pluginterfaces/vst/ivsthostapplication.h"
#include "pluginterfaces/vst/ivstparameterchanges.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace test_vst3 {

namespace {

constexpr SpeakerArrangement monoArrangement = SpeakerArr::kMono;
constexpr SpeakerArrangement stereoArrangement = SpeakerArr::kStereo;

std::string hex(uint64 value) {
    std::ostringstream text;
    text << "0x" << std::hex << value;
    return text.str();
}

void copyName(String128 out, const char* text) {
    size_t at = 0;
    for (; text[at] != 0 && at < 127; ++at)
        out[at] = static_cast<char16>(text[at]);
    out[at] = 0;
}

} // namespace

tresult PLUGIN_API Component::initialize(FUnknown* context) {
    log.line("initialize component");
    if (options.throwInitialize)
        throw std::runtime_error("initialize refused by TEST_VST3");
    if (options.refuseInitialize)
        return kResultFalse;
    host = context;
    const SpeakerArrangement arrangement = options.mono ? monoArrangement : stereoArrangement;
    inputArrangement = arrangement;
    outputArrangement = arrangement;
    return kResultOk;
}

tresult PLUGIN_API Component::terminate() {
    log.line("terminate component");
    if (active)
        violation("terminate while active");
    host = nullptr;
    handler = nullptr;
    return kResultOk;
}

tresult PLUGIN_API Component::getControllerClassId(TUID classId) {
    if (options.single || options.noController)
        return kResultFalse;
    std::memcpy(classId, controllerClassId(), sizeof(TUID));
    return kResultTrue;
}

int32 PLUGIN_API Component::getBusCount(MediaType type, BusDirection direction) {
    if (type != kAudio)
        return 0;
    return direction == kInput && options.sidechain ? 2 : 1;
}

tresult PLUGIN_API Component::getBusInfo(MediaType type, BusDirection direction, int32 index,
                                         BusInfo& bus) {
    if (type != kAudio || index < 0 || index >= getBusCount(type, direction))
        return kInvalidArgument;
    bus = BusInfo{};
    bus.mediaType = kAudio;
    bus.direction = direction;
    if (index == 1) {
        bus.channelCount = 1;
        copyName(bus.name, "Sidechain");
        bus.busType = kAux;
        bus.flags = 0;
        return kResultOk;
    }
    const SpeakerArrangement arrangement =
        direction == kInput ? inputArrangement : outputArrangement;
    bus.channelCount = SpeakerArr::getChannelCount(arrangement);
    copyName(bus.name, direction == kInput ? "Main In" : "Main Out");
    bus.busType = kMain;
    bus.flags = BusInfo::kDefaultActive;
    return kResultOk;
}

tresult PLUGIN_API Component::activateBus(MediaType type, BusDirection direction, int32 index,
                                          TBool state) {
    log.line("activateBus " + std::to_string(direction) + " " + std::to_string(index) + " " +
             std::to_string(state));
    if (active)
        violation("activateBus while active");
    if (type == kAudio && direction == kInput && index == 1)
        sidechainActive = state != 0;
    return kResultOk;
}

tresult PLUGIN_API Component::setActive(TBool state) {
    log.line("setActive " + std::to_string(state));
    if (!state && processing)
        violation("setActive 0 while processing");
    active = state != 0;
    return kResultOk;
}

tresult PLUGIN_API Component::setState(IBStream* state) {
    if (state == nullptr || !readValues(*state, processorValues)) {
        log.line("setState refused");
        return kResultFalse;
    }
    log.line("setState " + test_effect::number(processorValues.gain));
    if (options.single)
        values = processorValues;
    return kResultOk;
}

tresult PLUGIN_API Component::getState(IBStream* state) {
    return state != nullptr && writeValues(*state, processorValues) ? kResultOk : kResultFalse;
}

tresult PLUGIN_API Component::setBusArrangements(SpeakerArrangement* inputs, int32 numIns,
                                                 SpeakerArrangement* outputs, int32 numOuts) {
    std::string line = "setBusArrangements in";
    for (int32 at = 0; at < numIns; ++at)
        line += " " + hex(inputs[at]);
    line += " out";
    for (int32 at = 0; at < numOuts; ++at)
        line += " " + hex(outputs[at]);
    if (active)
        violation("setBusArrangements while active");
    const bool acceptable =
        !options.refuseArrangements && numIns == getBusCount(kAudio, kInput) && numOuts == 1 &&
        inputs[0] == outputs[0] &&
        (inputs[0] == monoArrangement || SpeakerArr::getChannelCount(inputs[0]) >= 2);
    log.line(line + (acceptable ? " accepted" : " refused"));
    if (!acceptable)
        return kResultFalse;
    inputArrangement = inputs[0];
    outputArrangement = outputs[0];
    return kResultTrue;
}

tresult PLUGIN_API Component::getBusArrangement(BusDirection direction, int32 index,
                                                SpeakerArrangement& arrangement) {
    if (index == 1 && direction == kInput && options.sidechain) {
        arrangement = monoArrangement;
        return kResultOk;
    }
    if (index != 0)
        return kInvalidArgument;
    arrangement = direction == kInput ? inputArrangement : outputArrangement;
    return kResultOk;
}

tresult PLUGIN_API Component::canProcessSampleSize(int32 size) {
    if (size == kSample32)
        return kResultTrue;
    return size == kSample64 && options.doublePrecision ? kResultTrue : kNotImplemented;
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
    log.line("setProcessing " + std::to_string(state));
    if (state && !active)
        violation("setProcessing 1 while inactive");
    processing = state != 0;
    return kResultOk;
}

void Component::applyChanges(IParameterChanges* changes) {
    if (changes == nullptr)
        return;
    for (int32 index = 0; index < changes->getParameterCount(); ++index) {
        IParamValueQueue* queue = changes->getParameterData(index);
        int32 offset = 0;
        ParamValue value = 0.0;
        if (queue == nullptr || queue->getPointCount() < 1 ||
            queue->getPoint(queue->getPointCount() - 1, offset, value) != kResultOk)
            continue;
        log.line("paramChange " + std::to_string(queue->getParameterId()) + " " +
                 test_effect::number(value));
        if (double* slot = processorValues.find(queue->getParameterId()))
            *slot = value;
    }
}

template <typename Sample> void Component::render(ProcessData& data) {
    const double factor =
        processorValues.bypass >= 0.5
            ? 1.0
            : 2.0 * processorValues.gain * (processorValues.polarity >= 0.5 ? -1.0 : 1.0);
    double peak = 0.0;
    AudioBusBuffers& out = data.outputs[0];
    const AudioBusBuffers& in = data.inputs[0];
    for (int32 channel = 0; channel < out.numChannels; ++channel) {
        auto* target = reinterpret_cast<Sample**>(out.channelBuffers32)[channel];
        const Sample* source = channel < in.numChannels
                                   ? reinterpret_cast<Sample**>(in.channelBuffers32)[channel]
                                   : nullptr;
        for (int32 frame = 0; frame < data.numSamples; ++frame) {
            const Sample value =
                source != nullptr ? static_cast<Sample>(source[frame] * factor) : Sample(0);
            target[frame] = value;
            peak = std::max(peak, std::fabs(static_cast<double>(value)));
        }
    }
    if (data.outputParameterChanges != nullptr && data.numSamples > 0) {
        int32 index = 0;
        int32 point = 0;
        if (IParamValueQueue* queue = data.outputParameterChanges->addParameterData(levelId, index))
            queue->addPoint(0, std::min(peak, 1.0), point);
    }
}

tresult PLUGIN_API Component::process(ProcessData& data) {
    log.line("process " + std::to_string(data.numSamples) + " " +
             std::to_string(data.symbolicSampleSize));
    if (!processing)
        violation("process while not processing");
    if (data.numInputs != getBusCount(kAudio, kInput) || data.numOutputs != 1)
        violation("process with " + std::to_string(data.numInputs) + " input buses");
    for (int32 bus = 0; bus < data.numInputs; ++bus)
        for (int32 channel = 0; channel < data.inputs[bus].numChannels; ++channel)
            if (data.inputs[bus].channelBuffers32[channel] == nullptr)
                violation("null input channel");
    applyChanges(data.inputParameterChanges);
    if (data.symbolicSampleSize != sampleSize)
        violation("process with another sample size");
    if (data.symbolicSampleSize == kSample64)
        render<double>(data);
    else
        render<float>(data);
    return kResultOk;
}

tresult PLUGIN_API Component::connect(IConnectionPoint* other) {
    log.line("connect component");
    peer = other;
    // Say hello through a message the host makes, as editors of some frameworks do all the time.
    FUnknownPtr<IHostApplication> application(host);
    if (!application || !peer)
        return kResultOk;
    TUID messageId;
    IMessage::iid.toTUID(messageId);
    IMessage* message = nullptr;
    if (application->createInstance(messageId, messageId, reinterpret_cast<void**>(&message)) !=
            kResultTrue ||
        message == nullptr)
        return kResultOk;
    message->setMessageID("hello");
    if (IAttributeList* attributes = message->getAttributes())
        attributes->setInt("answer", 42);
    peer->notify(message);
    message->release();
    return kResultOk;
}

tresult PLUGIN_API Component::disconnect(IConnectionPoint*) {
    log.line("disconnect component");
    peer = nullptr;
    return kResultOk;
}

tresult PLUGIN_API Component::notify(IMessage* message) {
    receive(message);
    return kResultOk;
}

tresult PLUGIN_API Component::queryInterface(const TUID iid, void** object) {
    if (vst3_com::offerUnknown<IComponent>(this, iid, object) ||
        vst3_com::offer<IComponent>(this, iid, object) ||
        vst3_com::offer<IAudioProcessor>(this, iid, object) ||
        vst3_com::offer<IConnectionPoint>(this, iid, object))
        return kResultOk;
    if (options.single && vst3_com::offer<IEditController>(this, iid, object))
        return kResultOk;
    return vst3_com::refuse(object);
}

} // namespace test_vst3
