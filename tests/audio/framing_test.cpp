#include "audio/framing.h"
#include "fake_processor.h"
#include "tests/common/test_pipe.h"

#include "support/buffered_streams.h"
#include "support/stream_memory.h"
#include "support/stream_unix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using bytes = std::vector<uint8_t>;

void appendU32(bytes& out, uint32_t value) {
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

bytes u32(uint32_t value) {
    bytes out;
    appendU32(out, value);
    return out;
}

bytes chunk(uint32_t command, const bytes& payload) {
    bytes out;
    appendU32(out, command);
    appendU32(out, static_cast<uint32_t>(payload.size()));
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

bytes operator+(bytes a, const bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

bytes first(const bytes& data, size_t count) {
    return bytes(data.begin(), data.begin() + count);
}

const StreamFormat stereo{44100, 2, 3, 2, 3};
bytes record(const StreamFormat& format) {
    const auto encoded = encodeStreamFormat(format);
    return bytes(encoded.begin(), encoded.end());
}
const bytes stereoRecord = record(stereo);

bytes counting(size_t length) {
    bytes out(length);
    for (size_t i = 0; i < length; ++i)
        out[i] = static_cast<uint8_t>(i * 7 + 1);
    return out;
}

// 16-bit samples on a sink that collects what the framing writes.
struct Harness {
    vectorSink sink;
    fakeProcessor processor{16, 1, &sink};

    // The chunked outcome: "ended" or "failed" for the two returns, else the exception text.
    std::string chunked(const bytes& input, bool formatSet = false) {
        Vesk::streamInMemRef in(input.data(), input.size());
        try {
            return runChunkedFraming(processor, in, formatSet) ? "ended" : "failed";
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
    testing::Values(
        OutcomeCase{"EmptyInput", {}, "ended"}, OutcomeCase{"EndInsideCommand", {1, 0}, "ended"},
        OutcomeCase{"EndInsideLength", {1, 0, 0, 0, 8, 0, 0}, "ended"},
        OutcomeCase{"EndInsidePayload", first(chunk(3, stereoRecord), 18), "failed"},
        OutcomeCase{"FormatOf19", chunk(3, bytes(19)), "bad input"},
        OutcomeCase{"FormatOf21", chunk(3, bytes(21)), "bad input"},
        OutcomeCase{"CodeZero", chunk(0, {}), "unknown command"},
        OutcomeCase{"CodeSix", chunk(6, bytes(4)), "unknown command"},
        OutcomeCase{"UnknownCodeWithShortPayload", u32(9) + u32(100) + bytes(3), "unknown command"},
        OutcomeCase{"RateBeyondLimits", chunk(3, record({0x80000000, 2, 3, 2, 3})),
                    "unsupported stream format"},
        OutcomeCase{"NoChannels", chunk(3, record({44100, 0, 0, 2, 3})),
                    "unsupported stream format"},
        OutcomeCase{"TooManyOutputs", chunk(3, record({44100, 2, 3, 33, 0})),
                    "unsupported stream format"},
        OutcomeCase{"AudioBeforeFormat", chunk(1, bytes(4)), "audio format not set"},
        OutcomeCase{"TailBeforeFormat", chunk(4, {}), "audio format not set"},
        OutcomeCase{"PartialFrame", chunk(3, stereoRecord) + chunk(1, bytes(7)),
                    "bad data alignment"},
        OutcomeCase{"HugeLengthFewBytes", u32(2) + u32(0xFFFFFFFF) + bytes{1, 2, 3}, "failed"},
        OutcomeCase{"AudioBeforeFormatJudgedByItsHeader", u32(1) + u32(100) + bytes(3),
                    "audio format not set"}),
    [](const testing::TestParamInfo<OutcomeCase>& info) { return std::string(info.param.name); });

TEST(ChunkedFraming, RepliesInOrderToFormatAudioAndTail) {
    Harness h;
    h.processor.latency = 0x01020304;
    h.processor.tail = {9, 8, 7, 6};
    const bytes audio = counting(8);
    EXPECT_EQ(h.chunked(chunk(3, stereoRecord) + chunk(1, audio) + chunk(4, bytes(5))), "ended");
    EXPECT_EQ(h.sink.data, stereoRecord + audio + u32(0x01020304) + u32(4) + h.processor.tail);
}

TEST(ChunkedFraming, EmptyAudioStillReportsLatencyAndEmptyTailItsLength) {
    Harness h;
    h.processor.latency = 5;
    EXPECT_EQ(h.chunked(chunk(1, {}) + chunk(4, {}), true), "ended");
    EXPECT_EQ(h.sink.data, u32(5) + u32(0));
    EXPECT_TRUE(h.processor.runs.empty());
}

TEST(ChunkedFraming, SplitsAudioIntoBlocksOfWholeFrames) {
    Harness h;
    const bytes audio = counting(2 * 2048 + 12);
    EXPECT_EQ(h.chunked(chunk(3, stereoRecord) + chunk(1, audio)), "ended");
    EXPECT_EQ(h.processor.runs, (std::vector<uint64_t>{2048, 2048, 12}));
    EXPECT_EQ(h.sink.data, stereoRecord + audio + u32(0));
}

TEST(ChunkedFraming, EchoesTheFormatAsTheProcessorLeftIt) {
    Harness h;
    h.processor.rewriteMask = true;
    h.processor.rewrittenMask = 0x33;
    EXPECT_EQ(h.chunked(chunk(3, stereoRecord)), "ended");
    StreamFormat changed = stereo;
    changed.outputChannelMask = 0x33;
    const auto echo = encodeStreamFormat(changed);
    EXPECT_EQ(h.sink.data, bytes(echo.begin(), echo.end()));
}

TEST(ChunkedFraming, MutedOutputAnswersOnlyTheTail) {
    Harness h;
    h.processor.setOutputMuted(true);
    h.processor.tail = {1, 2};
    EXPECT_EQ(h.chunked(chunk(3, stereoRecord) + chunk(1, counting(8)) + chunk(4, {})), "ended");
    EXPECT_EQ(h.sink.data, u32(2) + h.processor.tail);
    EXPECT_EQ(h.processor.runs.size(), 1u) << "muted audio is still processed";
}

TEST(ChunkedFraming, StateAndReopenReachTheProcessorAndKeepTheFormat) {
    Harness h;
    const bytes input = chunk(3, stereoRecord) + chunk(2, {}) + chunk(2, {5, 6, 7}) +
                        chunk(5, bytes(3)) + chunk(1, counting(4));
    EXPECT_EQ(h.chunked(input), "ended");
    EXPECT_EQ(h.processor.states, (std::vector<bytes>{{5, 6, 7}}));
    EXPECT_EQ(h.processor.reopens, 1);
    EXPECT_EQ(h.processor.runs, (std::vector<uint64_t>{4}));
}

// A length is a claim only, and a payload nobody keeps is never held whole: every read asks
// for at most one block of audio or one fixed piece.
class recordingSource : public Vesk::streamInMemRef {
  public:
    using streamInMemRef::streamInMemRef;
    uint64_t read(void* buffer, uint64_t length) override {
        largestRequest = std::max(largestRequest, length);
        return streamInMemRef::read(buffer, length);
    }
    uint64_t largestRequest = 0;
};

TEST(ChunkedFraming, ReadsNoMoreThanABlockOrAPieceAtATime) {
    const bytes big = counting(1 << 20);
    const std::pair<bytes, uint64_t> cases[] = {
        {u32(1) + u32(0xFFFFFFFF) + bytes{1, 2, 3}, 2048},
        {chunk(1, big), 2048},
        {chunk(4, big), 1 << 16},
        {chunk(5, big), 1 << 16},
    };
    for (const auto& [input, limit] : cases) {
        Harness h;
        StreamFormat format = stereo;
        h.processor.setStreamFormat(format);
        recordingSource in(input.data(), input.size());
        runChunkedFraming(h.processor, in, true);
        EXPECT_LE(in.largestRequest, limit) << "command " << int{input[0]};
    }
}

TEST(PlainFraming, CopiesFramesThenAppendsTheTail) {
    Harness h;
    StreamFormat format = stereo;
    h.processor.setStreamFormat(format);
    h.processor.tail = {0xEE, 0xEE, 0xEE, 0xEE};
    const bytes audio = counting(3 * 2048 + 40);
    Vesk::streamInMemRef in(audio.data(), audio.size());
    runPlainFraming(h.processor, in, true);
    EXPECT_EQ(h.sink.data, audio + h.processor.tail);
}

TEST(PlainFraming, Failures) {
    Harness h;
    const bytes audio = counting(10);
    Vesk::streamInMemRef unset(audio.data(), audio.size());
    try {
        runPlainFraming(h.processor, unset, false);
        ADD_FAILURE() << "ran without a format";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "audio format not set");
    }
    StreamFormat format = stereo;
    h.processor.setStreamFormat(format);
    Vesk::streamInMemRef partial(audio.data(), audio.size());
    try {
        runPlainFraming(h.processor, partial, true);
        ADD_FAILURE() << "accepted a partial frame";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "bad data alignment");
    }
}

TEST(PlainFraming, MutedWritesNothingNotEvenTheTail) {
    Harness h;
    StreamFormat format = stereo;
    h.processor.setStreamFormat(format);
    h.processor.setOutputMuted(true);
    h.processor.tail = {1, 2, 3, 4};
    const bytes audio = counting(16);
    Vesk::streamInMemRef in(audio.data(), audio.size());
    runPlainFraming(h.processor, in, true);
    EXPECT_TRUE(h.sink.data.empty());
    EXPECT_EQ(h.processor.runs.size(), 1u);
}

using Pipe = testing_support::TestPipe;

void writeAll(int fd, const bytes& data) {
    Vesk::streamOutUnix(fd, -1.0).write(data.data(), data.size());
}

TEST(PlainFraming, OddSizedPipeWritesStillGiveWholeFrames) {
    Pipe input;
    Harness h;
    StreamFormat format = stereo;
    h.processor.setStreamFormat(format);
    const bytes audio = counting(4 * 3000);
    std::thread writer([&] {
        const size_t pieces[] = {7, 13, 1, 1001, 3, 2050, 5};
        size_t offset = 0;
        for (size_t n = 0; offset < audio.size(); ++n) {
            const size_t piece = std::min(pieces[n % std::size(pieces)], audio.size() - offset);
            writeAll(input.writeEnd, bytes(audio.begin() + offset, audio.begin() + offset + piece));
            offset += piece;
            std::this_thread::yield();
        }
        input.closeWrite();
    });
    Vesk::streamInUnix in(input.readEnd, -1.0);
    runPlainFraming(h.processor, in, true);
    writer.join();
    EXPECT_EQ(h.sink.data, audio);
    for (uint64_t run : h.processor.runs)
        EXPECT_EQ(run % 4, 0u) << "a run split a frame";
}

// A parent that sends one request and waits for its answer before sending the next. Every wait
// of the parent has a generous limit, so a deadlock fails the test instead of hanging it.
class ParentOverPipes : public testing::Test {
  protected:
    Pipe toChild, fromChild;
    std::optional<Vesk::streamInUnix> replies;
    std::shared_ptr<Vesk::bufferedStreamOut> childOut;
    std::shared_ptr<Vesk::bufferedStreamIn> childIn;
    std::optional<fakeProcessor> processor;

    void SetUp() override {
        replies.emplace(fromChild.readEnd, 20.0);
        childOut = std::make_shared<Vesk::bufferedStreamOut>(
            std::make_shared<Vesk::streamOutUnix>(fromChild.writeEnd, -1.0));
        childIn = std::make_shared<Vesk::bufferedStreamIn>(
            std::make_shared<Vesk::streamInUnix>(toChild.readEnd, -1.0), childOut);
        processor.emplace(16, 1, childOut.get());
    }

    bytes awaitReply(size_t length) {
        bytes reply(length);
        replies->readExact(reply.data(), length);
        return reply;
    }

    // Ends the child's input and collects its outcome; on a failed wait this also frees the child.
    template <typename Outcome> Outcome finish(std::future<Outcome>& child) {
        toChild.closeWrite();
        return child.get();
    }
};

TEST_F(ParentOverPipes, ChunkedRepliesArriveBeforeTheNextRequest) {
    processor->latency = 3;
    processor->tail = {4, 4, 4, 4};
    auto child = std::async(std::launch::async,
                            [&] { return runChunkedFraming(*processor, *childIn, false); });
    try {
        writeAll(toChild.writeEnd, chunk(3, stereoRecord));
        EXPECT_EQ(awaitReply(20), stereoRecord);
        for (int round = 0; round < 3; ++round) {
            const bytes audio = counting(4 * (100 + round));
            writeAll(toChild.writeEnd, chunk(1, audio));
            EXPECT_EQ(awaitReply(audio.size() + 4), audio + u32(3));
        }
        writeAll(toChild.writeEnd, chunk(4, {}));
        EXPECT_EQ(awaitReply(8), u32(4) + processor->tail);
    } catch (const std::exception& e) {
        ADD_FAILURE() << "parent waited in vain: " << e.what();
    }
    EXPECT_TRUE(finish(child));
}

TEST_F(ParentOverPipes, PlainOutputFollowsEachPieceOfInput) {
    StreamFormat format = stereo;
    processor->setStreamFormat(format);
    auto child = std::async(std::launch::async, [&] {
        runPlainFraming(*processor, *childIn, true);
        return true;
    });
    try {
        for (int round = 0; round < 3; ++round) {
            const bytes audio = counting(4 * (37 + round));
            writeAll(toChild.writeEnd, audio);
            EXPECT_EQ(awaitReply(audio.size()), audio);
        }
    } catch (const std::exception& e) {
        ADD_FAILURE() << "parent waited in vain: " << e.what();
    }
    EXPECT_TRUE(finish(child));
}

} // namespace
