// The processor's lifecycle. VST 3 allows bus arrangements and processing set-up only while the
// component is inactive, and wants setActive before setProcessing (and the reverse on the way
// down). Our callers resume right after opening and only then send precision, rate and speaker
// arrangement, so what the host wants is kept apart from what the plug-in runs with: every
// set-up change takes the plug-in down, and it comes up again lazily - activated at the end of
// the set-up opcode (so latency is right before the first reply), processing on the first block.
#include "hosting/vst3/vst3_processing.h"

#include "hosting/vst3/vst3_speakers.h"

#include <limits>
#include <optional>

namespace vst3 {

using Steinberg::int32;
using Steinberg::kNotImplemented;
using Steinberg::kResultOk;
using Steinberg::kResultTrue;
using Steinberg::tresult;
using Steinberg::Vst::kInput;
using Steinberg::Vst::kOffline;
using Steinberg::Vst::kOutput;
using Steinberg::Vst::kRealtime;
using Steinberg::Vst::kSample32;
using Steinberg::Vst::kSample64;
using Steinberg::Vst::ProcessSetup;
using Steinberg::Vst::SpeakerArrangement;

namespace {

// What setActive may answer and still leave the component usable; some plug-ins never
// implemented it.
bool activated(tresult answer) {
    return answer == kResultOk || answer == kNotImplemented;
}

} // namespace

void Vst3Processing::open() {
    canDouble = parts.processor()->canProcessSampleSize(kSample64) == kResultTrue;
    // 64-bit only when 32-bit is refused outright.
    if (canDouble && parts.processor()->canProcessSampleSize(kSample32) != kResultTrue)
        wanted.sampleSize = kSample64;
    target.refreshLatency();
    const std::lock_guard lock(lifecycle);
    applySetupLocked();
}

void Vst3Processing::bringDown() {
    const std::lock_guard lock(lifecycle);
    bringDownLocked();
}

void Vst3Processing::latencyChanged() {
    // A new latency takes effect only through a restart of the processing.
    if (running != Running::inactive)
        restartPending = true;
}

void Vst3Processing::bringDownLocked() {
    if (running == Running::processing) {
        parts.processor()->setProcessing(false);
        running = Running::active;
    }
    if (running == Running::active) {
        parts.component()->setActive(false);
        running = Running::inactive;
    }
}

void Vst3Processing::applySetupLocked() {
    bringDownLocked();
    // Asked once per set-up rather than per block.
    processMode = target.hostProcessLevel() == kVstProcessLevelOffline ? kOffline : kRealtime;
    buses.read(*parts.component(), *parts.processor());
    buses.activate(*parts.component());
    ProcessSetup setup{processMode, wanted.sampleSize, wanted.blockSize, wanted.sampleRate};
    parts.processor()->setupProcessing(setup);
    buses.prepare(wanted.blockSize);
    target.updatePinCounts();
    setupDirty = false;
}

void Vst3Processing::bringUpLocked(bool startProcessing) {
    if (setupDirty)
        applySetupLocked();
    if (running == Running::inactive) {
        if (!activated(parts.component()->setActive(true)))
            return;
        running = Running::active;
        // Latency often depends on the rate and the set-up just applied.
        target.refreshLatency();
    }
    if (startProcessing && running == Running::active) {
        // Many plug-ins answer kNotImplemented here; processing goes ahead regardless.
        parts.processor()->setProcessing(true);
        running = Running::processing;
    }
}

void Vst3Processing::applyNowLocked() {
    if (setupDirty)
        applySetupLocked();
    if (mainsOn)
        bringUpLocked(false);
    target.refreshLatency();
}

intptr_t Vst3Processing::setMains(bool on) {
    const std::lock_guard lock(lifecycle);
    mainsOn = on;
    if (!on)
        bringDownLocked();
    return 0;
}

intptr_t Vst3Processing::setSampleRate(float rate) {
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

intptr_t Vst3Processing::setBlockSize(intptr_t frames) {
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

intptr_t Vst3Processing::setProcessPrecision(intptr_t precision) {
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

intptr_t Vst3Processing::setSpeakerArrangement(VstSpeakerArrangement* input,
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

intptr_t Vst3Processing::getSpeakerArrangement(VstSpeakerArrangement** input,
                                               VstSpeakerArrangement** output) {
    inputArrangement = vst3_speakers::toVst2(buses.mainArrangement(kInput));
    outputArrangement = vst3_speakers::toVst2(buses.mainArrangement(kOutput));
    if (input != nullptr)
        *input = &inputArrangement;
    if (output != nullptr)
        *output = &outputArrangement;
    return 1;
}

intptr_t Vst3Processing::startProcess() {
    const std::lock_guard lock(lifecycle);
    if (mainsOn)
        bringUpLocked(true);
    return 1;
}

intptr_t Vst3Processing::stopProcess() {
    const std::lock_guard lock(lifecycle);
    if (running == Running::processing) {
        parts.processor()->setProcessing(false);
        running = Running::active;
    }
    return 1;
}

} // namespace vst3
