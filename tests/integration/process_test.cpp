#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using testing_support::chunk;
using testing_support::formatRecord;
using testing_support::runAdapter;

// Samples that survive the float round trip exactly at every width: they fit the float mantissa.
std::string exactSamples(int bits, int tag, size_t count) {
    std::mt19937 random(1234u + static_cast<unsigned>(bits));
    std::string bytes;
    for (size_t i = 0; i < count; ++i) {
        const auto step = static_cast<int>(random() % 2001) - 1000;
        const float single = static_cast<float>(step) / 1024.0f;
        const double wide = static_cast<double>(step) / 1024.0;
        // 32-bit integers: float has 24 bits of mantissa, so the low byte stays clear.
        const auto whole = static_cast<int32_t>(random() & 0xFFFFFF00u);
        if (tag == 3 || bits == 32)
            bytes.append(tag == 3 && bits == 64 ? reinterpret_cast<const char*>(&wide)
                         : tag == 3             ? reinterpret_cast<const char*>(&single)
                                                : reinterpret_cast<const char*>(&whole),
                         static_cast<size_t>(bits / 8));
        else
            for (int b = 0; b < bits / 8; ++b)
                bytes.push_back(static_cast<char>(random()));
    }
    return bytes;
}

struct EncodingCase {
    int bits, tag, channels;
    size_t frames, piece = 0; // piece: the input arrives in pieces of this many bytes
};

class IdentityRoundTrip : public testing::TestWithParam<EncodingCase> {};

// Every 8- and 16-bit value comes back as it went in: the rounding and the unsigned bias of
// 8-bit samples are exact only at the right scale. Frames cut across writes are completed.
TEST_P(IdentityRoundTrip, PlainFramingReturnsTheSameBytes) {
    const auto& c = GetParam();
    testing_support::ChildOptions options;
    options.stdinBytes = exactSamples(c.bits, c.tag, c.frames * static_cast<size_t>(c.channels));
    options.stdinPiece = c.piece;
    const std::string channels = std::to_string(c.channels);
    options.environment["TEST_EFFECT"] = "inputs=" + channels + ",outputs=" + channels + ",tail=1";
    const auto result =
        runAdapter({"process", "--vst", TEST_EFFECT_PATH, "--rate", "44100", "--channels", channels,
                    "--bits", std::to_string(c.bits), "--formattag", std::to_string(c.tag)},
                   options);
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(result.out == options.stdinBytes) << "output differs from input";
}

INSTANTIATE_TEST_SUITE_P(Encodings, IdentityRoundTrip,
                         testing::Values(EncodingCase{8, 1, 3, 999}, EncodingCase{16, 1, 1, 513},
                                         EncodingCase{16, 1, 2, 0}, EncodingCase{24, 1, 32, 511},
                                         EncodingCase{24, 1, 3, 14, 7}, EncodingCase{32, 1, 6, 700},
                                         EncodingCase{32, 3, 2, 2048}, EncodingCase{64, 3, 3, 100}),
                         [](const auto& info) {
                             const auto& c = info.param;
                             return std::string(
                                 (c.tag == 3 ? "Float" : "Int") + std::to_string(c.bits) +
                                 "_Channels" + std::to_string(c.channels) + "_Frames" +
                                 std::to_string(c.frames) + (c.piece ? "_CutInsideFrames" : ""));
                         });

struct ProtocolError {
    const char* name;
    std::string stream;
    int status;
    std::string err;
};

class ChunkedErrors : public testing::TestWithParam<ProtocolError> {};
const std::string truncated = "truncated message: input ended inside a payload\n";

TEST_P(ChunkedErrors, EndWithTheirStatusAndText) {
    testing_support::ChildOptions options;
    options.stdinBytes = GetParam().stream;
    const auto result = runAdapter(
        {"process", "--vst", TEST_EFFECT_PATH, "--protocol", "chunked", "--bits", "16"}, options);
    EXPECT_EQ(result.exitStatus, GetParam().status);
    EXPECT_EQ(result.err, GetParam().err);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ChunkedErrors,
    testing::Values(
        ProtocolError{"ShortFormat", chunk(3, std::string(19, '\0')), 255, "bad input\n"},
        ProtocolError{"UnknownCode", chunk(6, ""), 255, "unknown command\n"},
        ProtocolError{"AudioBeforeFormat", chunk(1, std::string(4, '\0')), 255,
                      "audio format not set\n"},
        ProtocolError{"RateBeyondLimits", chunk(3, formatRecord(0x80000000u, 2, 3, 2, 3)), 255,
                      "unsupported stream format\n"},
        ProtocolError{"TruncatedHeader", std::string("\x01\x00", 2), 0, ""},
        ProtocolError{"HugeLengthFewBytes", chunk(2, "abc").replace(4, 4, "\xff\xff\xff\xff"), 255,
                      truncated}),
    [](const auto& info) { return std::string(info.param.name); });

} // namespace
