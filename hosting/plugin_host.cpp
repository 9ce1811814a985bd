#include "hosting/plugin_host.h"

#include "hosting/guarded_call.h"
#include "hosting/module/module_library.h"
#include "hosting/plugin_stage.h"
#include "hosting/vst2/speaker_layout.h"
#include "hosting/vst2/vst2_kind.h"
#include "hosting/vst3/vst3_module.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>
#include <utility>

namespace {

// The leading group of pins sharing pin 0's arrangement type; later groups (side chains) are
// left unconnected. Returns the group size and pin 0's type.
struct PinGroup {
    uint32_t used = 0;
    int32_t firstType = 0;
};

PinGroup leadingPinGroup(const PluginHost& host, int32_t opcode, int32_t pinCount) {
    PinGroup group;
    group.used = static_cast<uint32_t>(pinCount);
    for (int32_t pin = 0; pin < pinCount; ++pin) {
        VstPinProperties properties{};
        host.dispatch(opcode, pin, 0, &properties);
        if (pin == 0) {
            group.firstType = properties.arrangementType;
        } else if (properties.arrangementType != group.firstType) {
            group.used = static_cast<uint32_t>(pin);
            break;
        }
    }
    return group;
}

// Mono (0) is also what a plug-in that ignores the pin query leaves: read it as unknown and
// guess stereo for a pair of pins.
int32_t guessedType(uint32_t pinsUsed) {
    return pinsUsed == 2 ? kSpeakerArrStereo : kSpeakerArrMono;
}

// A null processReplacing counts as absent whatever the flags claim.
bool replacingAvailable(const AEffect& effect) {
    return (effect.flags & effFlagsCanReplacing) && effect.processReplacing != nullptr;
}

uint32_t maskIfItFits(uint32_t mask, uint32_t channels) {
    return speaker_layout::bitCount(mask) == static_cast<int>(channels) ? mask : 0;
}

// Some plug-ins read or write a whole declared block whatever the frame count says.
constexpr size_t declaredBlockFrames = Plugin::blockFrames;

} // namespace

PluginHost::Reconfiguration::Reconfiguration(PluginHost& host) : host(host) {
    if (host.reconfigurationDepth++ == 0) {
        host.resumeAfterReconfiguration = host.transport.active;
        if (host.transport.active)
            host.suspend();
    }
}

PluginHost::Reconfiguration::~Reconfiguration() {
    if (--host.reconfigurationDepth == 0 && host.resumeAfterReconfiguration)
        host.resume();
}

PluginHost::PluginHost() = default;

// Closed here only when close() was not reached, as while another failure unwinds: that failure
// is the one reported, and what the plug-in throws now must not end the process.
PluginHost::~PluginHost() {
    guardedCall([this] { close(); });
}

void PluginHost::close() {
    const PluginStageScope stage(PluginStage::closing);
    suspend();
    // Each call happens once, whatever the one before threw; the first exception is passed on.
    std::exception_ptr thrown;
    AEffect* const effect = std::exchange(loaded.effect, nullptr);
    auto closeCall = [&](int32_t opcode) {
        try {
            callPlugin([&] { effect->dispatcher(effect, opcode, 0, 0, nullptr, 0.0f); });
        } catch (...) {
            if (!thrown)
                thrown = std::current_exception();
        }
    };
    if (effect != nullptr && effect->dispatcher != nullptr) {
        if (editor.open.exchange(false) && (effect->flags & effFlagsHasEditor))
            closeCall(effEditClose);
        closeCall(effClose);
    }
    // The bridge it knew was deleted with the record.
    loaded.kind.reset();
    pins.clear();
    scratch.clear();
    loaded.library.reset();
    loaded.vst3Module.reset();
    if (thrown)
        std::rethrow_exception(thrown);
}

void PluginHost::adoptEffect(AEffect* effect) {
    loaded.effect = effect;
    if (effect == nullptr)
        return;
    effect->user = this;
    // A record made without a loader (tests) is driven as the VST 2 record it is.
    if (!loaded.kind)
        loaded.kind = std::make_unique<Vst2Kind>();
    const int32_t rate = transport.sampleRate;
    loaded.rateAtOpen = rate != 0 ? rate : defaultSampleRate;
}

void PluginHost::adoptVst2Code(VstPluginMainProc entryPoint,
                               std::shared_ptr<ModuleLibrary> library) {
    loaded.entryPoint = entryPoint;
    loaded.library = std::move(library);
}

void PluginHost::adoptVst3Module(std::shared_ptr<Vst3Module> module) {
    loaded.vst3Module = std::move(module);
}

intptr_t PluginHost::dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr,
                              float opt) const {
    if (loaded.effect == nullptr || loaded.effect->dispatcher == nullptr)
        return 0;
    return callPlugin(
        [&] { return loaded.effect->dispatcher(loaded.effect, opcode, index, value, ptr, opt); });
}

void PluginHost::resume() {
    if (loaded.effect != nullptr)
        guardedCall([&] {
            dispatch(effMainsChanged, 0, 1);
            dispatch(effStartProcess);
        });
    transport.active = true;
}

void PluginHost::suspend() {
    if (loaded.effect != nullptr && transport.active)
        guardedCall([&] { dispatch(effStopProcess); });
    if (loaded.effect != nullptr)
        guardedCall([&] { dispatch(effMainsChanged, 0, 0); });
    transport.active = false;
}

void PluginHost::setSampleRate(int32_t rate) {
    if (rate == transport.sampleRate)
        return;
    if (loaded.effect != nullptr) {
        const Reconfiguration suspended(*this);
        dispatch(effSetSampleRate, 0, 0, nullptr, static_cast<float>(rate));
    }
    transport.sampleRate = rate;
}

bool PluginHost::setProcessPrecision(bool useDouble) {
    if (loaded.effect == nullptr)
        return false;
    precision.useDouble = useDouble;
    if (precision.sent == useDouble)
        return precision.accepted;
    const Reconfiguration suspended(*this);
    precision.sent = useDouble;
    precision.accepted = dispatch(effSetProcessPrecision, 0,
                                  useDouble ? kVstProcessPrecision64 : kVstProcessPrecision32) != 0;
    return precision.accepted;
}

bool PluginHost::configure(bool useDouble, StreamFormat& format) {
    const Reconfiguration suspended(*this);
    setProcessPrecision(useDouble);
    return setFormat(format);
}

bool PluginHost::setFormat(StreamFormat& format) {
    if (applied.request == format) {
        // Suspending for nothing would cut the plug-in's reverb tails and delay lines short.
        format = applied.answer;
        return applied.accepted;
    }
    const StreamFormat request = format;
    const Reconfiguration suspended(*this);
    const bool accepted = applyFormat(format);
    applied.request = request;
    applied.answer = format;
    applied.accepted = accepted;
    return accepted;
}

// Each side's arrangement comes from its own mask and channel count, so that a plug-in with
// more or fewer outputs than inputs (an encoder, a decoder) is set up for what is read back.
void PluginHost::sendSpeakerArrangements(const StreamFormat& format) {
    if (format.inputChannelMask == 0 && format.outputChannelMask == 0)
        return;
    auto input = speaker_layout::arrangementForMask(format.inputChannelMask, format.inputChannels);
    auto output =
        speaker_layout::arrangementForMask(format.outputChannelMask, format.outputChannels);
    dispatch(effSetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&input.get()), &output.get());
}

bool PluginHost::applyFormat(StreamFormat& format) {
    setSampleRate(static_cast<int32_t>(format.sampleRate));
    sendSpeakerArrangements(format);
    const int32_t inputs = inputCount();
    const int32_t outputs = outputCount();
    // Counts may have changed since loading (audioMasterIOChanged).
    if (inputs < 1 || outputs < 1 || !pinCountsWithinLimits())
        return false;

    const PinGroup inputGroup = leadingPinGroup(*this, effGetInputProperties, inputs);
    const PinGroup outputGroup = leadingPinGroup(*this, effGetOutputProperties, outputs);
    int32_t inputType = inputGroup.firstType;
    int32_t outputType = outputGroup.firstType;
    if (inputType == kSpeakerArrMono)
        inputType = guessedType(inputGroup.used);
    if (outputType == kSpeakerArrMono)
        outputType = guessedType(outputGroup.used);

    applied.inputsUsed = std::min(inputGroup.used, format.inputChannels);
    applied.outputsUsed = std::min(outputGroup.used, format.outputChannels);
    format.inputChannels = applied.inputsUsed;
    format.outputChannels = applied.outputsUsed;
    format.inputChannelMask =
        maskIfItFits(speaker_layout::maskForArrangement(inputType), applied.inputsUsed);
    format.outputChannelMask =
        maskIfItFits(speaker_layout::maskForArrangement(outputType), applied.outputsUsed);

    // Sized here, so that the audio thread allocates nothing.
    sizePinBuffers(applied.inputsUsed, applied.outputsUsed);
    for (int32_t pin = 0; pin < inputs; ++pin)
        dispatch(effConnectInput, pin, static_cast<uint32_t>(pin) < applied.inputsUsed ? 1 : 0);
    for (int32_t pin = 0; pin < outputs; ++pin)
        dispatch(effConnectOutput, pin, static_cast<uint32_t>(pin) < applied.outputsUsed ? 1 : 0);
    applied.set = true;
    return true;
}

int32_t PluginHost::inputCount() const {
    return loaded.effect ? std::max(loaded.effect->numInputs, 0) : 0;
}

int32_t PluginHost::outputCount() const {
    return loaded.effect ? std::max(loaded.effect->numOutputs, 0) : 0;
}

bool PluginHost::canProcessDouble() const {
    return loaded.effect && (loaded.effect->flags & effFlagsCanDoubleReplacing) &&
           loaded.effect->processDoubleReplacing;
}

bool PluginHost::canProcessFloat() const {
    return loaded.effect &&
           (replacingAvailable(*loaded.effect) || loaded.effect->process != nullptr);
}

bool PluginHost::pinCountsWithinLimits() const {
    return loaded.effect && loaded.effect->numInputs <= mostPins &&
           loaded.effect->numOutputs <= mostPins;
}

int32_t PluginHost::latency() const {
    return loaded.effect ? loaded.effect->initialDelay : 0;
}

intptr_t PluginHost::tailSize() const {
    return dispatch(effGetTailSize);
}

bool PluginHost::readsRateOnlyWhenOpening() const {
    return loaded.kind && loaded.kind->learnsRateOnlyWhenOpening() && loaded.entryPoint != nullptr;
}

bool PluginHost::wouldLearnRateByReopening(uint32_t rate) const {
    const bool rateCanBeTold =
        rate >= 1 && rate <= static_cast<uint32_t>(std::numeric_limits<int32_t>::max());
    return rateCanBeTold && readsRateOnlyWhenOpening() &&
           static_cast<uint32_t>(loaded.rateAtOpen) != rate;
}

void PluginHost::sizePinBuffers(uint32_t inputsLive, uint32_t outputsLive) {
    const auto inputPins = static_cast<uint32_t>(inputCount());
    const auto outputPins = static_cast<uint32_t>(outputCount());
    const size_t unused = inputPins - std::min(inputsLive, inputPins) + outputPins -
                          std::min(outputsLive, outputPins);
    pins.resize(inputPins + outputPins);
    // A double per frame holds either precision's silent channel.
    if (scratch.size() < unused * declaredBlockFrames)
        scratch.resize(unused * declaredBlockFrames);
}

template <typename Sample>
Sample** PluginHost::pinArray(Sample** inputs, Sample** outputs, uint32_t inputsLive,
                              uint32_t outputsLive) {
    const auto inputPins = static_cast<uint32_t>(inputCount());
    const auto outputPins = static_cast<uint32_t>(outputCount());
    const size_t unusedInputs = inputPins - std::min(inputsLive, inputPins);
    // Already sized when the format was set, unless the pin counts changed since.
    sizePinBuffers(inputsLive, outputsLive);
    // The silent inputs come first and are laid down again every block: plug-ins may work in
    // place, in their inputs too. What lands in unused outputs is never read.
    std::fill_n(reinterpret_cast<Sample*>(scratch.data()), unusedInputs * declaredBlockFrames,
                Sample(0));
    auto* silent = reinterpret_cast<Sample*>(scratch.data());
    for (uint32_t pin = 0; pin < inputPins; ++pin)
        pins[pin] =
            pin < inputsLive ? inputs[pin] : std::exchange(silent, silent + declaredBlockFrames);
    for (uint32_t pin = 0; pin < outputPins; ++pin)
        pins[inputPins + pin] =
            pin < outputsLive ? outputs[pin] : std::exchange(silent, silent + declaredBlockFrames);
    return reinterpret_cast<Sample**>(pins.data());
}

void PluginHost::callProcessFloat(float** inputs, float** outputs, int32_t frames) {
    if (!replacingAvailable(*loaded.effect)) {
        // The accumulating call adds into the outputs.
        for (uint32_t channel = 0; channel < applied.outputsUsed; ++channel)
            if (outputs[channel] != nullptr)
                std::memset(outputs[channel], 0,
                            sizeof(float) * static_cast<size_t>(std::max(frames, 0)));
        if (loaded.effect->process)
            callPlugin([&] { loaded.effect->process(loaded.effect, inputs, outputs, frames); });
        return;
    }
    callPlugin([&] { loaded.effect->processReplacing(loaded.effect, inputs, outputs, frames); });
}

void PluginHost::callProcessDouble(double** inputs, double** outputs, int32_t frames) {
    callPlugin(
        [&] { loaded.effect->processDoubleReplacing(loaded.effect, inputs, outputs, frames); });
}

bool PluginHost::processFloat(float** inputs, float** outputs, int32_t frames) {
    if (!transport.active || !canProcessFloat())
        return false;
    if (static_cast<uint32_t>(inputCount() + outputCount()) ==
        applied.inputsUsed + applied.outputsUsed) {
        callProcessFloat(inputs, outputs, frames);
        return true;
    }
    float** all = pinArray(inputs, outputs, applied.inputsUsed, applied.outputsUsed);
    callProcessFloat(all, all + inputCount(), frames);
    return true;
}

bool PluginHost::processDouble(double** inputs, double** outputs, int32_t frames) {
    if (!transport.active || loaded.effect == nullptr ||
        loaded.effect->processDoubleReplacing == nullptr)
        return false;
    if (static_cast<uint32_t>(inputCount() + outputCount()) ==
        applied.inputsUsed + applied.outputsUsed) {
        callProcessDouble(inputs, outputs, frames);
        return true;
    }
    double** all = pinArray(inputs, outputs, applied.inputsUsed, applied.outputsUsed);
    callProcessDouble(all, all + inputCount(), frames);
    return true;
}

void PluginHost::prime() {
    if (loaded.effect == nullptr)
        return;
    if (!applied.set) {
        StreamFormat defaults;
        defaults.sampleRate = 44100;
        defaults.inputChannels = 1;
        defaults.outputChannels = 1;
        setFormat(defaults);
    }
    // Silent scratch rather than null channels: not every plug-in checks the frame count
    // before it touches its buffers.
    if (precision.useDouble) {
        if (loaded.effect->processDoubleReplacing) {
            double** all = pinArray<double>(nullptr, nullptr, 0, 0);
            callProcessDouble(all, all + inputCount(), 0);
        }
        return;
    }
    float** all = pinArray<float>(nullptr, nullptr, 0, 0);
    callProcessFloat(all, all + inputCount(), 0);
}
