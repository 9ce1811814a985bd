// The bridge's lifecycle. VST 3 allows bus arrangements and processing set-up only while the
// component is inactive, and wants setActive before setProcessing (and the reverse on the way
// down). Our callers resume right after opening and only then send precision, rate and speaker
// arrangement, so the bridge keeps what the host wants apart from what the plug-in runs with:
// every set-up change takes the plug-in down, and it comes up again lazily - activated at the
// end of the set-up opcode (so latency is right before the first reply), processing on the
// first block.
#include "hosting/vst3/vst3_bridge.h"

#include "hosting/guarded_call.h"
#include "hosting/vst3/vst3_speakers.h"

#include <algorithm>
#include <limits>
#include <type_traits>

namespace vst3 {

namespace {

// What setActive may answer and still leave the component usable; some plug-ins never
// implemented it.
bool activated(tresult answer) {
    return answer == kResultOk || answer == kNotImplemented;
}

} // namespace

void Vst3Bridge::refreshLatency() {
    effect.initialDelay = static_cast<int32>(std::min<uint32>(
        parts.processor()->getLatencySamples(), std::numeric_limits<int32>::max()));
}

void Vst3Bridge::updatePinCounts() {
    const int32 inputs = buses.mainChannels(kInput);
    const int32 outputs = buses.mainChannels(kOutput);
    if (inputs == effect.numInputs && outputs == effect.numOutputs)
        return;
    effect.numInputs = inputs;
    effect.numOutputs = outputs;
    callHost(audioMasterIOChanged);
}

void Vst3Bridge::bringDownLocked() {
    if (running == Running::processing) {
        parts.processor()->setProcessing(false);
        running = Running::active;
    }
    if (running == Running::active) {
        parts.component()->setActive(false);
        running = Running::inactive;
    }
}

void Vst3Bridge::applySetupLocked() {
    bringDownLocked();
    // Asked once per set-up rather than per block.
    processMode = callHost(audioMasterGetCurrentProcessLevel) == kVstProcessLevelOffline
                      ? kOffline
                      : kRealtime;
    buses.read(*parts.component(), *parts.processor());
    buses.activate(*parts.component());
    ProcessSetup setup{processMode, wanted.sampleSize, wanted.blockSize, wanted.sampleRate};
    parts.processor()->setupProcessing(setup);
    buses.prepare(wanted.blockSize);
    // The record is filled (and its counts first set) once creation is done.
    if (effect.magic == kEffectMagic)
        updatePinCounts();
    setupDirty = false;
}

void Vst3Bridge::bringUpLocked(bool startProcessing) {
    if (setupDirty)
        applySetupLocked();
    if (running == Running::inactive) {
        if (!activated(parts.component()->setActive(true)))
            return;
        running = Running::active;
        // Latency often depends on the rate and the set-up just applied.
        refreshLatency();
    }
    if (startProcessing && running == Running::active) {
        // Many plug-ins answer kNotImplemented here; processing goes ahead regardless.
        parts.processor()->setProcessing(true);
        running = Running::processing;
    }
}

void Vst3Bridge::applyNowLocked() {
    if (setupDirty)
        applySetupLocked();
    if (mainsOn)
        bringUpLocked(false);
    refreshLatency();
}

intptr_t Vst3Bridge::setMains(bool on) {
    const std::lock_guard lock(lifecycle);
    mainsOn = on;
    if (!on)
        bringDownLocked();
    return 0;
}

intptr_t Vst3Bridge::setSampleRate(float rate) {
    if (!(rate > 0.0f))
        return 0;
    const std::lock_guard lock(lifecycle);
    if (wanted.sampleRate != rate) {
        bringDownLocked();
        wanted.sampleRate = rate;
        setupDirty = true;
    }
    applyNowLocked();
    return 1;
}

intptr_t Vst3Bridge::setBlockSize(intptr_t frames) {
    if (frames < 1 || frames > std::numeric_limits<int32>::max())
        return 0;
    const std::lock_guard lock(lifecycle);
    if (wanted.blockSize != frames) {
        bringDownLocked();
        wanted.blockSize = static_cast<int32>(frames);
        setupDirty = true;
    }
    return 1;
}

intptr_t Vst3Bridge::setProcessPrecision(intptr_t precision) {
    const int32 size = precision == kVstProcessPrecision64 ? kSample64 : kSample32;
    if (parts.processor()->canProcessSampleSize(size) != kResultTrue)
        return 0;
    const std::lock_guard lock(lifecycle);
    if (wanted.sampleSize != size) {
        bringDownLocked();
        wanted.sampleSize = size;
        setupDirty = true;
    }
    applyNowLocked();
    return 1;
}

intptr_t Vst3Bridge::setSpeakerArrangement(VstSpeakerArrangement* input,
                                           VstSpeakerArrangement* output) {
    std::optional<SpeakerArrangement> inputMask;
    std::optional<SpeakerArrangement> outputMask;
    if (input != nullptr)
        inputMask = vst3_speakers::fromVst2(*input);
    if (output != nullptr)
        outputMask = vst3_speakers::fromVst2(*output);
    const std::lock_guard lock(lifecycle);
    bringDownLocked();
    bool accepted = false;
    if (inputMask || outputMask)
        accepted = buses.requestMain(*parts.component(), *parts.processor(), inputMask, outputMask);
    // A refusal keeps the plug-in's own layout; either way the pins are counted again.
    setupDirty = true;
    applyNowLocked();
    return accepted ? 1 : 0;
}

intptr_t Vst3Bridge::getSpeakerArrangement(VstSpeakerArrangement** input,
                                           VstSpeakerArrangement** output) {
    inputArrangement = vst3_speakers::toVst2(buses.mainArrangement(kInput));
    outputArrangement = vst3_speakers::toVst2(buses.mainArrangement(kOutput));
    if (input != nullptr)
        *input = &inputArrangement;
    if (output != nullptr)
        *output = &outputArrangement;
    return 1;
}

intptr_t Vst3Bridge::startProcess() {
    const std::lock_guard lock(lifecycle);
    if (mainsOn)
        bringUpLocked(true);
    return 1;
}

intptr_t Vst3Bridge::stopProcess() {
    const std::lock_guard lock(lifecycle);
    if (running == Running::processing) {
        parts.processor()->setProcessing(false);
        running = Running::active;
    }
    return 1;
}

template <typename Sample> void Vst3Bridge::silence(Sample** outputs, int32 frames) const {
    if (outputs == nullptr)
        return;
    for (int32 channel = 0; channel < effect.numOutputs; ++channel)
        if (outputs[channel] != nullptr)
            std::fill_n(outputs[channel], std::max(frames, 0), Sample(0));
}

void Vst3Bridge::fillProcessContext() {
    processContext = ProcessContext{};
    processContext.sampleRate = wanted.sampleRate;
    processContext.projectTimeSamples = projectTime;
    // Only tempo and signature: our host answers the nanoseconds request with a NaN.
    const auto* time = reinterpret_cast<const VstTimeInfo*>(
        callHost(audioMasterGetTime, 0, kVstTempoValid | kVstTimeSigValid));
    if (time != nullptr) {
        if (time->flags & kVstTempoValid) {
            processContext.tempo = time->tempo;
            processContext.state |= ProcessContext::kTempoValid;
        }
        if (time->flags & kVstTimeSigValid) {
            processContext.timeSigNumerator = time->timeSigNumerator;
            processContext.timeSigDenominator = time->timeSigDenominator;
            processContext.state |= ProcessContext::kTimeSigValid;
        }
    }
    if (mainsOn)
        processContext.state |= ProcessContext::kPlaying;
}

template <typename Sample>
void Vst3Bridge::processBlock(Sample** inputs, Sample** outputs, int32 frames) {
    constexpr int32 sampleSize = std::is_same_v<Sample, double> ? kSample64 : kSample32;
    frames = std::max(frames, 0);
    if (running != Running::processing || setupDirty || restartPending) {
        guardedCall([&] {
            const std::lock_guard lock(lifecycle);
            if (!mainsOn)
                return;
            // A latency change is applied by going down and up again.
            if (restartPending.exchange(false))
                bringDownLocked();
            bringUpLocked(true);
        });
    }
    if (running != Running::processing || wanted.sampleSize != sampleSize) {
        silence(outputs, frames);
        return;
    }

    buses.bind(inputs, outputs, frames, processData);
    processData.processMode = processMode;
    processData.symbolicSampleSize = sampleSize;
    fillProcessContext();
    processData.processContext = &processContext;
    parameters.beginBlock(frames, processData);
    processData.inputEvents = buses.hasEventInputs() ? &eventList : nullptr;
    processData.outputEvents = buses.hasEventOutputs() ? &eventList : nullptr;

    processingThread = std::this_thread::get_id();
    const bool processed = guardedCall([&] { parts.processor()->process(processData); });
    processingThread = std::thread::id();
    parameters.endBlock(processed);
    if (!processed)
        silence(outputs, frames);
    projectTime += frames;
}

void Vst3Bridge::settleParameters() {
    if (!parameters.hasPending())
        return;
    // One frame of silence into scratch: enough for any plug-in to take its queued values.
    if (wanted.sampleSize == kSample64)
        processBlock<double>(nullptr, nullptr, 1);
    else
        processBlock<float>(nullptr, nullptr, 1);
}

template void Vst3Bridge::processBlock<float>(float**, float**, int32);
template void Vst3Bridge::processBlock<double>(double**, double**, int32);

} // namespace vst3
