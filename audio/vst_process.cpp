#include "audio/vst_process.h"

#include "hosting/load_failure.h"
#include "hosting/plugin_slot.h"
#include "hosting/process_defaults.h"
#include "support/stream.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace {

constexpr uint32_t secondsOfLongestTail = 60;

} // namespace

template <typename T>
vstProcess2<T>::vstProcess2(PluginSlot& plugin, int32_t bits, int32_t formatTag,
                            Vesk::streamOut* output, std::function<void()> giveSettingsFile)
    : vstProcessShared(bits, formatTag, output), slot(plugin),
      giveSettingsFile(std::move(giveSettingsFile)) {}

template <typename T> Plugin& vstProcess2<T>::plugin() const {
    // A failed reopen leaves no plug-in; anything asked of it afterwards cannot be processed.
    if (!slot)
        throw std::runtime_error("VST processing failure");
    return *slot;
}

template <typename T> void vstProcess2<T>::setStreamFormat(StreamFormat& format) {
    constexpr bool useDouble = std::is_same_v<T, double>;
    if (reopenForRate && !audioSinceOpen && plugin().wouldLearnRateByReopening(format.sampleRate))
        reopenAtRate(format.sampleRate);
    Plugin& host = plugin();
    const StreamFormat asked = format;
    // Refused here, before any audio, rather than run blocks that could not produce output.
    if (!useDouble && !host.canProcessFloat())
        throw std::runtime_error("VST has no processing function");
    if (!host.configure(useDouble, format))
        throw std::runtime_error("VST refused audio format");
    if (!converter.setup(format.inputChannels, format.outputChannels, bits(), isFloatFormat(),
                         blockFrames))
        throw std::runtime_error("Format conversion failure");
    requested = asked;
    applied = format;
    applyFrameSizes(format.inputChannels, format.outputChannels);
}

template <typename T> bool vstProcess2<T>::runBlock(uint32_t frames) {
    if (!audioSinceOpen) {
        audioSinceOpen = true;
        statesSinceOpen.clear();
    }
    const auto count = static_cast<int32_t>(frames);
    if constexpr (std::is_same_v<T, double>)
        return plugin().processDouble(converter.inputs(), converter.outputs(), count);
    else
        return plugin().processFloat(converter.inputs(), converter.outputs(), count);
}

template <typename T> void vstProcess2<T>::processBytes(const uint8_t* data, uint64_t length) {
    const uint32_t frames = framesIn(length);
    converter.reader(data, frames);
    if (!runBlock(frames))
        throw std::runtime_error("VST processing failure");
    if (output() != nullptr && !outputMuted()) {
        // Straight into the output's buffer where it lends room, saving a copy.
        const uint64_t length = uint64_t{outputFrameBytes()} * frames;
        if (uint8_t* space = output()->lendSpace(length)) {
            converter.writer(space, frames);
            output()->commitLent(length);
            return;
        }
        converter.writer(byteBuffer(), frames);
        emitOutputFrames(frames);
    }
}

template <typename T> int64_t vstProcess2<T>::tailFrames() const {
    const int64_t rate = applied.sampleRate;
    int64_t frames = plugin().tailSize();
    if (frames == 0)
        frames = rate / 10;
    if (frames == 1)
        return 0; // the plug-in says it has no tail
    if (frames <= 0 || frames >= rate * secondsOfLongestTail)
        return 0;
    return frames;
}

template <typename T> uint64_t vstProcess2<T>::tailBytesAtMost() {
    return static_cast<uint64_t>(tailFrames()) * outputFrameBytes();
}

template <typename T> void vstProcess2<T>::renderTail(const TailSink& sink) {
    int64_t remaining = tailFrames();
    while (remaining > 0) {
        converter.clearSamples();
        const auto frames = static_cast<uint32_t>(std::min<int64_t>(remaining, blockFrames));
        if (!runBlock(frames) || converter.allOutputsSilent(frames))
            break;
        converter.writer(byteBuffer(), frames);
        sink(byteBuffer(), uint64_t{outputFrameBytes()} * frames);
        remaining -= frames;
    }
}

template <typename T> uint32_t vstProcess2<T>::latencyFrames() {
    if (!slot)
        return 0;
    const int32_t delay = slot->latency();
    return delay > 0 ? static_cast<uint32_t>(delay) : 0;
}

template <typename T> void vstProcess2<T>::openFreshInstance(int32_t rate) {
    plugin(); // nothing to reopen fails as processing does
    try {
        slot.reopen(rate);
    } catch (const LoadFailure&) {
        throw std::runtime_error("Could not reopen VST");
    }
    audioSinceOpen = false;
}

// The settings given so far are given again, as they were: carried over through the plug-in's
// own settings they need not sound the same.
template <typename T> void vstProcess2<T>::reopenAtRate(uint32_t rate) {
    // As if the first instance had never been: it may have drawn random numbers.
    restoreProcessDefaults();
    openFreshInstance(static_cast<int32_t>(rate));
    if (settingsFileInForce && giveSettingsFile)
        giveSettingsFile();
    statesSinceOpen.replay([this](const uint8_t* data, uint64_t length) {
        plugin().loadState({data, static_cast<size_t>(length)});
    });
}

template <typename T> void vstProcess2<T>::reopenPlugin() {
    openFreshInstance(plugin().sampleRate());
    // A reopened plug-in starts from its own defaults.
    settingsFileInForce = false;
    statesSinceOpen.clear();
    // Audio that follows goes through the new instance set up as the old one was; untold, it
    // would use none of its pins and the previous block's output would be sent again.
    if (requested) {
        StreamFormat again = *requested;
        setStreamFormat(again);
    }
}

template <typename T> void vstProcess2<T>::applyState(const uint8_t* data, uint64_t length) {
    if (!slot)
        return;
    slot->loadState({data, static_cast<size_t>(length)});
    if (!audioSinceOpen && reopenForRate && slot->readsRateOnlyWhenOpening())
        statesSinceOpen.append(data, length);
}

template class vstProcess2<float>;
template class vstProcess2<double>;
