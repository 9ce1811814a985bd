// The least a host can do to run 16-bit audio through a plug-in: load and open it, then read
// standard input, convert to float, call processReplacing on blocks of 512 frames, convert back
// and write standard output. No tail, no options, no checks beyond what keeps it running. The
// light-plug-in benchmark compares "vst-adapter process" with this on the same bytes.
#include "hosting/vst2/vst2_abi.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int32_t blockFrames = 512;
float sampleRate = 44100;

intptr_t minimalCallback(AEffect*, int32_t opcode, int32_t, intptr_t, void*, float) {
    if (opcode == audioMasterVersion)
        return kVstVersion;
    if (opcode == audioMasterGetSampleRate)
        return static_cast<intptr_t>(sampleRate);
    if (opcode == audioMasterGetBlockSize)
        return blockFrames;
    return 0;
}

// Reads until `length` bytes or the end of the input.
size_t readFully(unsigned char* buffer, size_t length) {
    size_t done = 0;
    while (done < length) {
        const ssize_t got = ::read(0, buffer + done, length - done);
        if (got <= 0)
            break;
        done += static_cast<size_t>(got);
    }
    return done;
}

bool writeFully(const unsigned char* buffer, size_t length) {
    while (length > 0) {
        const ssize_t put = ::write(1, buffer, length);
        if (put <= 0)
            return false;
        buffer += put;
        length -= static_cast<size_t>(put);
    }
    return true;
}

// The plain way: clamp, then add a signed half and truncate (a library round call per sample
// would make this reference slower than it need be).
int16_t quantise(float value) {
    float scaled = value * 32768.0f;
    scaled = scaled < -32768.0f ? -32768.0f : scaled > 32767.0f ? 32767.0f : scaled;
    scaled = scaled == scaled ? scaled : 0.0f;
    return static_cast<int16_t>(scaled + (scaled < 0 ? -0.5f : 0.5f));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: minimal_host PLUGIN.so RATE < 16-bit input > 16-bit output\n", stderr);
        return 2;
    }
    sampleRate = static_cast<float>(std::atof(argv[2]));
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr)
        return 1;
    auto entry = reinterpret_cast<VstPluginMainProc>(dlsym(library, "VSTPluginMain"));
    if (entry == nullptr)
        entry = reinterpret_cast<VstPluginMainProc>(dlsym(library, "main"));
    AEffect* effect = entry ? entry(minimalCallback) : nullptr;
    if (effect == nullptr || effect->magic != kEffectMagic)
        return 1;
    effect->dispatcher(effect, effOpen, 0, 0, nullptr, 0);
    effect->dispatcher(effect, effSetSampleRate, 0, 0, nullptr, sampleRate);
    effect->dispatcher(effect, effSetBlockSize, 0, blockFrames, nullptr, 0);
    effect->dispatcher(effect, effMainsChanged, 0, 1, nullptr, 0);

    const auto inputs = static_cast<size_t>(effect->numInputs);
    const auto outputs = static_cast<size_t>(effect->numOutputs);
    std::vector<float> samples((inputs + outputs) * blockFrames);
    std::vector<float*> in(inputs + 1), out(outputs + 1);
    for (size_t c = 0; c < inputs; ++c)
        in[c] = samples.data() + c * blockFrames;
    for (size_t c = 0; c < outputs; ++c)
        out[c] = samples.data() + (inputs + c) * blockFrames;

    // A mebibyte of whole blocks at a time each way.
    const size_t blocksPerRead = std::max<size_t>(1, (1 << 20) / (inputs * 2 * blockFrames));
    std::vector<unsigned char> source(blocksPerRead * inputs * 2 * blockFrames);
    std::vector<unsigned char> sink(blocksPerRead * outputs * 2 * blockFrames);
    const size_t frameBytes = inputs * 2;
    for (;;) {
        const size_t got = readFully(source.data(), source.size());
        const size_t frames = frameBytes != 0 ? got / frameBytes : 0;
        if (frames == 0)
            break;
        for (size_t start = 0; start < frames; start += blockFrames) {
            const size_t count = std::min<size_t>(blockFrames, frames - start);
            for (size_t i = 0; i < count; ++i)
                for (size_t c = 0; c < inputs; ++c) {
                    int16_t sample;
                    std::memcpy(&sample, &source[((start + i) * inputs + c) * 2], 2);
                    in[c][i] = sample * (1.0f / 32768);
                }
            effect->processReplacing(effect, in.data(), out.data(), static_cast<int32_t>(count));
            for (size_t i = 0; i < count; ++i)
                for (size_t c = 0; c < outputs; ++c) {
                    const int16_t sample = quantise(out[c][i]);
                    std::memcpy(&sink[((start + i) * outputs + c) * 2], &sample, 2);
                }
        }
        if (!writeFully(sink.data(), frames * outputs * 2))
            return 1;
        if (got < source.size())
            break;
    }
    effect->dispatcher(effect, effMainsChanged, 0, 0, nullptr, 0);
    effect->dispatcher(effect, effClose, 0, 0, nullptr, 0);
    dlclose(library);
    return 0;
}
