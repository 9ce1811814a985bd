#include "audio/fmt_converter.h"

#include "audio/decode_run.h"
#include "audio/quantise_run.h"
#include "audio/sample_codecs.h"
#include "support/errors.h"

#include <algorithm>
#include <cstddef>
#include <type_traits>

namespace {

constexpr uint32_t spareChannelPointers = 16;

template <typename Codec>
concept quantisedCodec = requires(int32_t v, uint8_t* p) {
    Codec::pack(v, p);
};

// Quantised samples wait here between the two steps of an integer write.
constexpr uint32_t quantisePiece = 256;

// One channel at a time, striding through the interleaved bytes. `Fixed` is the channel count
// when it is known at compile time (1, 2, 4 and 8, whose strides the compiler vectorises with
// shuffles; other fixed counts came out slower than the run-time stride); 0 means the count
// comes at run time.
template <typename T, typename Codec, uint32_t Fixed, bool Wide>
void readChannels(const uint8_t* source, T* const* buffers, uint32_t channels, uint32_t frames) {
    const uint32_t stride = Fixed != 0 ? Fixed : channels;
    const size_t frameBytes = size_t{stride} * Codec::size;
    uint32_t done = 0;
    if constexpr (std::is_same_v<Codec, sampleCodecs::Int16> && (Fixed == 1 || Fixed == 2)) {
        if constexpr (Wide)
            done = sampleCodecs::decodeInt16Wide<T, Fixed>(source, buffers, frames);
        done = sampleCodecs::decodeInt16Vectors<T, Fixed>(source, buffers, done, frames);
    }
    for (uint32_t c = 0; c < stride; ++c) {
        T* __restrict out = buffers[c];
        const uint8_t* __restrict in = source + size_t{c} * Codec::size;
        for (uint32_t i = done; i < frames; ++i)
            out[i] = Codec::template decode<T>(in + i * frameBytes);
    }
}

// Fixed counts pack all channels of a frame together, which the compiler turns into vector
// interleaving; other counts pack channel by channel. `Wide`: the processor has AVX2.
template <typename T, typename Codec, uint32_t Fixed, bool Wide>
void writeQuantised(uint8_t* destination, const T* const* buffers, uint32_t channels,
                    uint32_t frames) {
    const uint32_t stride = Fixed != 0 ? Fixed : channels;
    const size_t frameBytes = size_t{stride} * Codec::size;
    int32_t quantised[Fixed != 0 ? Fixed : 1][quantisePiece];
    for (uint32_t start = 0; start < frames; start += quantisePiece) {
        const uint32_t count = std::min(quantisePiece, frames - start);
        uint8_t* __restrict out = destination + start * frameBytes;
        if constexpr (Fixed != 0) {
            const int32_t* runs[Fixed];
            for (uint32_t c = 0; c < Fixed; ++c) {
                sampleCodecs::quantiseRun<Codec, Wide>(buffers[c] + start, quantised[c], count);
                runs[c] = quantised[c];
            }
            uint32_t i = sampleCodecs::packVectors<Codec, Fixed>(runs, out, count);
            if constexpr (std::is_same_v<Codec, sampleCodecs::UInt8> && Fixed >= 3)
                i = sampleCodecs::packByteFrames<Fixed>(runs, out, count);
            for (; i < count; ++i)
                for (uint32_t c = 0; c < Fixed; ++c)
                    Codec::pack(quantised[c][i], out + i * frameBytes + c * Codec::size);
        } else {
            for (uint32_t c = 0; c < stride; ++c) {
                sampleCodecs::quantiseRun<Codec, Wide>(buffers[c] + start, quantised[0], count);
                uint8_t* channelOut = out + size_t{c} * Codec::size;
                for (uint32_t i = 0; i < count; ++i)
                    Codec::pack(quantised[0][i], channelOut + i * frameBytes);
            }
        }
    }
}

template <typename T, typename Codec, uint32_t Fixed, bool Wide>
void writeChannels(uint8_t* destination, const T* const* buffers, uint32_t channels,
                   uint32_t frames) {
    if constexpr (Wide && std::is_same_v<Codec, sampleCodecs::Int16> && Fixed == 2) {
        // The commonest layout in one pass; the last few frames go the two-step way.
        const uint32_t done =
            sampleCodecs::writeInt16StereoWide(buffers[0], buffers[1], destination, frames);
        const T* const rest[2] = {buffers[0] + done, buffers[1] + done};
        writeQuantised<T, Codec, Fixed, Wide>(destination + size_t{done} * 4, rest, channels,
                                              frames - done);
    } else if constexpr (quantisedCodec<Codec>) {
        // Rounding and packing in one loop defeats the vectoriser; split, both run fast.
        writeQuantised<T, Codec, Fixed, Wide>(destination, buffers, channels, frames);
    } else {
        const uint32_t stride = Fixed != 0 ? Fixed : channels;
        const size_t frameBytes = size_t{stride} * Codec::size;
        for (uint32_t c = 0; c < stride; ++c) {
            const T* __restrict in = buffers[c];
            uint8_t* __restrict out = destination + size_t{c} * Codec::size;
            for (uint32_t i = 0; i < frames; ++i)
                Codec::template encode<T>(in[i], out + i * frameBytes);
        }
    }
}

template <typename T, typename Codec, bool Wide>
auto readerFor(uint32_t channels) -> void (*)(const uint8_t*, T* const*, uint32_t, uint32_t) {
    switch (channels) {
    case 1:
        return readChannels<T, Codec, 1, Wide>;
    case 2:
        return readChannels<T, Codec, 2, Wide>;
    case 4:
        return readChannels<T, Codec, 4, Wide>;
    case 8:
        return readChannels<T, Codec, 8, Wide>;
    default:
        return readChannels<T, Codec, 0, Wide>;
    }
}

template <typename T, typename Codec, bool Wide>
auto writerFor(uint32_t channels) -> void (*)(uint8_t*, const T* const*, uint32_t, uint32_t) {
    // 8-bit frames of up to 8 channels are interleaved as whole frames (packByteFrames).
    if constexpr (std::is_same_v<Codec, sampleCodecs::UInt8>) {
        switch (channels) {
        case 3:
            return writeChannels<T, Codec, 3, Wide>;
        case 5:
            return writeChannels<T, Codec, 5, Wide>;
        case 6:
            return writeChannels<T, Codec, 6, Wide>;
        case 7:
            return writeChannels<T, Codec, 7, Wide>;
        default:
            break;
        }
    }
    switch (channels) {
    case 1:
        return writeChannels<T, Codec, 1, Wide>;
    case 2:
        return writeChannels<T, Codec, 2, Wide>;
    case 4:
        return writeChannels<T, Codec, 4, Wide>;
    case 8:
        return writeChannels<T, Codec, 8, Wide>;
    default:
        return writeChannels<T, Codec, 0, Wide>;
    }
}

template <typename Stored> struct CodecOf;
template <> struct CodecOf<float> { using type = sampleCodecs::Float32; };
template <> struct CodecOf<double> { using type = sampleCodecs::Float64; };
template <> struct CodecOf<unsigned char> { using type = sampleCodecs::UInt8; };
template <> struct CodecOf<short> { using type = sampleCodecs::Int16; };
template <> struct CodecOf<int> { using type = sampleCodecs::Int32; };

} // namespace

template <typename T>
bool FmtConverter2<T>::setup(uint32_t inputChannels, uint32_t outputChannels, int bits,
                             bool isFloat, uint32_t blockFrames) {
    inputCount = inputChannels;
    outputCount = outputChannels;
    frameCapacity = blockFrames;
    inputPointers.assign(size_t{inputChannels} + spareChannelPointers, nullptr);
    outputPointers.assign(size_t{outputChannels} + spareChannelPointers, nullptr);
    samples.assign((size_t{inputChannels} + outputChannels) * blockFrames, T(0));
    for (uint32_t c = 0; c < inputChannels; ++c)
        inputPointers[c] = samples.data() + size_t{c} * blockFrames;
    for (uint32_t c = 0; c < outputChannels; ++c)
        outputPointers[c] = samples.data() + (size_t{inputChannels} + c) * blockFrames;

    readFrames = nullptr;
    writeFrames = nullptr;
    if (isFloat) {
        if (bits == 32)
            setupType<float>();
        else if (bits == 64)
            setupType<double>();
    } else {
        switch (bits) {
        case 8:
            setupType<unsigned char>();
            break;
        case 16:
            setupType<short>();
            break;
        case 24:
            setup24();
            break;
        case 32:
            setupType<int>();
            break;
        default:
            break;
        }
    }
    return readFrames != nullptr;
}

template <typename T> template <typename Codec> void FmtConverter2<T>::choose() {
    // AVX2 forms: 16-bit reads, and the rounding of integer writes.
    const bool wide = sampleCodecs::wideVectorsAvailable();
    readFrames = readerFor<T, Codec, false>(inputCount);
    if constexpr (std::is_same_v<Codec, sampleCodecs::Int16>)
        if (wide)
            readFrames = readerFor<T, Codec, true>(inputCount);
    writeFrames = writerFor<T, Codec, false>(outputCount);
    if constexpr (quantisedCodec<Codec>)
        if (wide)
            writeFrames = writerFor<T, Codec, true>(outputCount);
}

template <typename T> template <typename Stored> void FmtConverter2<T>::setupType() {
    choose<typename CodecOf<Stored>::type>();
}

template <typename T> void FmtConverter2<T>::setup24() {
    choose<sampleCodecs::Int24>();
}

template <typename T> void FmtConverter2<T>::reader(const uint8_t* source, uint32_t frames) {
    // A larger run would write past the channel buffers; the processor never asks for one.
    if (frames > frameCapacity || readFrames == nullptr)
        throw Vesk::bug_check();
    readFrames(source, inputPointers.data(), inputCount, frames);
}

template <typename T> void FmtConverter2<T>::writer(uint8_t* destination, uint32_t frames) const {
    if (frames > frameCapacity || writeFrames == nullptr)
        throw Vesk::bug_check();
    writeFrames(destination, outputPointers.data(), outputCount, frames);
}

template <typename T> bool FmtConverter2<T>::allOutputsSilent(uint32_t frames) const {
    const uint32_t count = std::min(frames, frameCapacity);
    for (uint32_t c = 0; c < outputCount; ++c) {
        const T* channel = outputPointers[c];
        // A NaN compares unequal to 0 and so counts as sound.
        bool sound = false;
        for (uint32_t i = 0; i < count; ++i)
            sound |= channel[i] != T(0);
        if (sound)
            return false;
    }
    return true;
}

template <typename T> void FmtConverter2<T>::clearSamples() {
    std::fill(samples.begin(), samples.end(), T(0));
}

template class FmtConverter2<float>;
template class FmtConverter2<double>;
