#include "audio/framing.h"
#include "audio/vst_process_shared.h"
#include "support/stream_memory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using bytes = std::vector<uint8_t>;

class vectorSink : public Vesk::streamOut {
  public:
    void write(const void* buffer, uint64_t length) override {
        const auto* start = static_cast<const uint8_t*>(buffer);
        data.insert(data.end(), start, start + length);
    }
    bytes data;
};

// A processor without a plug-in: output frames are copies of the input frames; no latency; the
// tail is whatever the test sets.
class fakeProcessor : public vstProcessShared {
  public:
    using vstProcessShared::vstProcessShared;
    void setStreamFormat(StreamFormat& format) override {
        applyFrameSizes(format.inputChannels, format.outputChannels);
    }
    void processBytes(const uint8_t* data, uint64_t length) override {
        const uint32_t frames = framesIn(length);
        std::memmove(byteBuffer(), data, uint64_t{frames} * inputFrameBytes());
        emitOutputFrames(frames);
        ++runs;
    }
    void renderTail(const TailSink& sink) override {
        ++tailsRendered;
        sink(tail.data(), tail.size() + extra);
    }
    uint64_t tailBytesAtMost() override { return tail.size() + extra; }
    uint32_t latencyFrames() override { return 0; }
    void reopenPlugin() override {}
    void applyState(const uint8_t*, uint64_t) override {}

    std::vector<uint8_t> tail;
    uint64_t extra = 0; // told to the sink beyond the tail's bytes, which it must then not read
    int runs = 0;
    int tailsRendered = 0;
};

bytes u32(uint32_t value) {
    return {uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16), uint8_t(value >> 24)};
}

bytes operator+(bytes a, const bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

bytes chunk(uint32_t command, const bytes& payload) {
    return u32(command) + u32(static_cast<uint32_t>(payload.size())) + payload;
}

bytes record(const StreamFormat& format) {
    const auto encoded = encodeStreamFormat(format);
    return bytes(encoded.begin(), encoded.end());
}

const StreamFormat stereo{44100, 2, 3, 2, 3};
const bytes stereoRecord = record(stereo);
const bytes audio{1, 2, 3, 4, 5, 6, 7, 8};

// 16-bit samples on a sink that collects what the framing writes.
struct Harness {
    vectorSink sink;
    fakeProcessor processor{16, 1, &sink};

    // "ended", else the exception text.
    std::string chunked(const bytes& input) {
        Vesk::streamInMemRef in(input.data(), input.size());
        try {
            runChunkedFraming(processor, in, false);
            return "ended";
        } catch (const std::exception& e) {
            return e.what();
        }
    }
};

TEST(ChunkedFraming, FormatRecordOfAnotherLengthIsBadInput) {
    for (size_t length : {19, 21}) {
        Harness h;
        EXPECT_EQ(h.chunked(chunk(3, bytes(length))), "bad input") << length;
    }
}

TEST(ChunkedFraming, MutedOutputAnswersOnlyTheTail) {
    Harness h;
    h.processor.setOutputMuted(true);
    h.processor.tail = {1, 2};
    EXPECT_EQ(h.chunked(chunk(3, stereoRecord) + chunk(1, audio) + chunk(4, {})), "ended");
    EXPECT_EQ(h.sink.data, u32(2) + h.processor.tail);
    EXPECT_EQ(h.processor.runs, 1) << "muted audio is still processed";
}

// The reply says the tail's length in 32 bits: a tail that could be longer stops before any of
// it is rendered.
TEST(ChunkedFraming, TailBeyondWhatAReplyCanSayStops) {
    Harness h;
    h.processor.extra = uint64_t{1} << 32;
    EXPECT_EQ(h.chunked(chunk(3, stereoRecord) + chunk(4, {})), "tail too long for one reply");
    EXPECT_EQ(h.processor.tailsRendered, 0);
}

} // namespace
