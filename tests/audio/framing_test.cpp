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

// A processor without a plug-in: output frames are copies of the input frames; the latency, the
// tail and an output mask to leave in the format are whatever the test sets.
class fakeProcessor : public vstProcessShared {
  public:
    using vstProcessShared::vstProcessShared;
    void setStreamFormat(StreamFormat& format) override {
        if (rewrittenMask != 0)
            format.outputChannelMask = rewrittenMask;
        applyFrameSizes(format.inputChannels, format.outputChannels);
    }
    void processBytes(const uint8_t* data, uint64_t length) override {
        const uint32_t frames = framesIn(length);
        std::memmove(byteBuffer(), data, uint64_t{frames} * inputFrameBytes());
        emitOutputFrames(frames);
        ++runs;
    }
    void renderTail(const TailSink& sink) override { sink(tail.data(), tail.size()); }
    uint32_t latencyFrames() override { return latency; }
    void reopenPlugin() override {}
    void applyState(const uint8_t*, uint64_t) override {}

    uint32_t latency = 0, rewrittenMask = 0;
    std::vector<uint8_t> tail;
    int runs = 0;
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

    // "ended" or "failed" for the two returns, else the exception text.
    std::string chunked(const bytes& input) {
        Vesk::streamInMemRef in(input.data(), input.size());
        try {
            return runChunkedFraming(processor, in, false) ? "ended" : "failed";
        } catch (const std::exception& e) {
            return e.what();
        }
    }
};

struct OutcomeCase {
    const char* name;
    bytes input;
    const char* outcome;
};

class ChunkedOutcome : public testing::TestWithParam<OutcomeCase> {};

TEST_P(ChunkedOutcome, EndsOrFailsWithItsText) {
    Harness h;
    EXPECT_EQ(h.chunked(GetParam().input), GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ChunkedOutcome,
    testing::Values(OutcomeCase{"EndInsideLength", {1, 0, 0, 0, 8, 0, 0}, "ended"},
                    OutcomeCase{"EndInsidePayload", u32(3) + u32(20) + bytes(10), "failed"},
                    OutcomeCase{"FormatOf19", chunk(3, bytes(19)), "bad input"},
                    OutcomeCase{"FormatOf21", chunk(3, bytes(21)), "bad input"},
                    OutcomeCase{"CodeSix", chunk(6, bytes(4)), "unknown command"},
                    OutcomeCase{"TooManyOutputs", chunk(3, record({44100, 2, 3, 33, 0})),
                                "unsupported stream format"},
                    OutcomeCase{"AudioBeforeFormat", chunk(1, bytes(4)), "audio format not set"},
                    OutcomeCase{"PartialFrame", chunk(3, stereoRecord) + chunk(1, bytes(7)),
                                "bad data alignment"}),
    [](const testing::TestParamInfo<OutcomeCase>& info) { return std::string(info.param.name); });

TEST(ChunkedFraming, RepliesInOrderToFormatAudioAndTail) {
    Harness h;
    h.processor.latency = 0x01020304;
    h.processor.tail = {9, 8, 7, 6};
    EXPECT_EQ(h.chunked(chunk(3, stereoRecord) + chunk(1, audio) + chunk(4, bytes(5))), "ended");
    EXPECT_EQ(h.sink.data, stereoRecord + audio + u32(0x01020304) + u32(4) + h.processor.tail);
}

TEST(ChunkedFraming, EchoesTheFormatAsTheProcessorLeftIt) {
    Harness h;
    h.processor.rewrittenMask = 0x33;
    EXPECT_EQ(h.chunked(chunk(3, stereoRecord)), "ended");
    StreamFormat changed = stereo;
    changed.outputChannelMask = 0x33;
    EXPECT_EQ(h.sink.data, record(changed));
}

TEST(ChunkedFraming, MutedOutputAnswersOnlyTheTail) {
    Harness h;
    h.processor.setOutputMuted(true);
    h.processor.tail = {1, 2};
    EXPECT_EQ(h.chunked(chunk(3, stereoRecord) + chunk(1, audio) + chunk(4, {})), "ended");
    EXPECT_EQ(h.sink.data, u32(2) + h.processor.tail);
    EXPECT_EQ(h.processor.runs, 1) << "muted audio is still processed";
}

} // namespace
