#pragma once

#include "audio/vst_process_shared.h"
#include "support/stream.h"

#include <cstring>
#include <stdexcept>
#include <vector>

// A processor without a plug-in: output frames are copies of the input frames (the counts must
// match), latency and tail are whatever the test sets, and every call is recorded.
class fakeProcessor : public vstProcessShared {
  public:
    using vstProcessShared::vstProcessShared;

    void setStreamFormat(StreamFormat& format) override {
        if (rewriteMask)
            format.outputChannelMask = rewrittenMask;
        applyFrameSizes(format.inputChannels, format.outputChannels);
        formats.push_back(format);
    }
    void processBytes(const uint8_t* data, uint64_t length) override {
        const uint32_t frames = framesIn(length);
        runs.push_back(length);
        // Frames of 0 bytes (a format without channels) carry nothing, whatever the length.
        const uint64_t carried = uint64_t{frames} * inputFrameBytes();
        if (carried != 0)
            std::memmove(byteBuffer(), data, carried);
        emitOutputFrames(frames);
    }
    void renderTail(const TailSink& sink) override {
        if (!tail.empty())
            sink(tail.data(), tail.size());
    }
    uint32_t latencyFrames() override { return latency; }
    void reopenPlugin() override { ++reopens; }
    void applyState(const uint8_t* data, uint64_t length) override {
        states.emplace_back(data, data + length);
    }

    uint32_t latency = 0;
    std::vector<uint8_t> tail;
    bool rewriteMask = false;
    uint32_t rewrittenMask = 0;
    std::vector<StreamFormat> formats;
    std::vector<uint64_t> runs;
    std::vector<std::vector<uint8_t>> states;
    int reopens = 0;
};

// Collects everything written.
class vectorSink : public Vesk::streamOut {
  public:
    void write(const void* buffer, uint64_t length) override {
        const auto* bytes = static_cast<const uint8_t*>(buffer);
        data.insert(data.end(), bytes, bytes + length);
    }
    void flush() override { ++flushes; }
    std::vector<uint8_t> data;
    int flushes = 0;
};
