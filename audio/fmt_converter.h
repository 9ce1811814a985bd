#pragma once

#include <cstdint>
#include <vector>

// Owns the plug-in's per-channel sample buffers and converts between them and interleaved stream
// bytes. T is the plug-in's sample type (float or double). Owned by one processor; one thread.
template <typename T> class FmtConverter2 {
  public:
    // Reallocates the buffers and picks the reader and writer for the encoding. False when the
    // encoding has none (the buffers stay allocated).
    bool setup(uint32_t inputChannels, uint32_t outputChannels, int bits, bool isFloat,
               uint32_t blockFrames);

    // Interleaved stream samples of `frames` frames → input buffers.
    void reader(const uint8_t* source, uint32_t frames);
    // Output buffers → interleaved stream samples.
    void writer(uint8_t* destination, uint32_t frames) const;
    // Every one of the first `frames` samples of every output channel is 0 (-0.0 included).
    bool allOutputsSilent(uint32_t frames) const;
    // Zeroes inputs and outputs alike, as the tail's silent input needs.
    void clearSamples();

    // Handed to the plug-in as they are; each has 16 spare null entries after the channels.
    T** inputs() { return inputPointers.data(); }
    T** outputs() { return outputPointers.data(); }
    uint32_t inputChannels() const { return inputCount; }
    uint32_t outputChannels() const { return outputCount; }
    uint32_t blockFrames() const { return frameCapacity; }

  private:
    using ReaderFunction = void (*)(const uint8_t*, T* const*, uint32_t, uint32_t);
    using WriterFunction = void (*)(uint8_t*, const T* const*, uint32_t, uint32_t);

    template <typename Codec> void choose();
    template <typename Stored> void setupType();
    void setup24();

    std::vector<T*> inputPointers;
    std::vector<T*> outputPointers;
    std::vector<T> samples;
    ReaderFunction readFrames = nullptr;
    WriterFunction writeFrames = nullptr;
    uint32_t inputCount = 0;
    uint32_t outputCount = 0;
    uint32_t frameCapacity = 0;
};

extern template class FmtConverter2<float>;
extern template class FmtConverter2<double>;
