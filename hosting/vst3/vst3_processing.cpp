// The processor's blocks: the process data filled from the host's buffers, the parameter
// changes and the host's time, without allocating; set-up still due is applied first.
#include "hosting/vst3/vst3_processing.h"

#include "hosting/guarded_call.h"

#include <algorithm>
#include <type_traits>

namespace vst3 {

using Steinberg::int32;
using Steinberg::Vst::kSample32;
using Steinberg::Vst::kSample64;
using Steinberg::Vst::ProcessContext;

template <typename Sample> void Vst3Processing::silence(Sample** outputs, int32 frames) const {
    if (outputs == nullptr)
        return;
    const int32 pins = target.outputPins();
    for (int32 channel = 0; channel < pins; ++channel)
        if (outputs[channel] != nullptr)
            std::fill_n(outputs[channel], std::max(frames, 0), Sample(0));
}

void Vst3Processing::fillProcessContext() {
    processContext = ProcessContext{};
    processContext.sampleRate = wanted.sampleRate;
    processContext.projectTimeSamples = projectTime;
    // Only tempo and signature: our host answers the nanoseconds request with a NaN.
    const auto* time = target.hostTime(kVstTempoValid | kVstTimeSigValid);
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
void Vst3Processing::processBlock(Sample** inputs, Sample** outputs, int32 frames) {
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

void Vst3Processing::processSilentFrame() {
    if (wanted.sampleSize == kSample64)
        processBlock<double>(nullptr, nullptr, 1);
    else
        processBlock<float>(nullptr, nullptr, 1);
}

template void Vst3Processing::processBlock<float>(float**, float**, int32);
template void Vst3Processing::processBlock<double>(double**, double**, int32);

} // namespace vst3
