#include "tests/common/case_name.h"
#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/scratch.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <random>

namespace {

using testing_support::ChildOptions;
using testing_support::chunk;
using testing_support::formatRecord;
using testing_support::runAdapter;

ChildOptions effect(const std::string& words, std::string input) {
    ChildOptions options;
    options.environment["TEST_EFFECT"] = words;
    options.stdinBytes = std::move(input);
    return options;
}

// Samples that survive a float round trip exactly at every width: the converter maps them to
// floats and back without loss as long as they fit the float mantissa.
std::string exactSamples(int bits, int tag, size_t frames, int channels) {
    std::mt19937 random(1234u + static_cast<unsigned>(bits));
    std::string bytes;
    for (size_t i = 0; i < frames * static_cast<size_t>(channels); ++i) {
        if (tag == 3 && bits == 32) {
            const float value =
                static_cast<float>(static_cast<int>(random() % 2001) - 1000) / 1024.0f;
            bytes.append(reinterpret_cast<const char*>(&value), 4);
        } else if (tag == 3) {
            const double value =
                static_cast<double>(static_cast<int>(random() % 2001) - 1000) / 1024.0;
            bytes.append(reinterpret_cast<const char*>(&value), 8);
        } else if (bits == 32) {
            // float has 24 bits of mantissa: keep the low byte clear.
            const int32_t value = static_cast<int32_t>(random() & 0xFFFFFF00u);
            bytes.append(reinterpret_cast<const char*>(&value), 4);
        } else {
            for (int b = 0; b < bits / 8; ++b)
                bytes.push_back(static_cast<char>(random()));
        }
    }
    return bytes;
}

struct EncodingCase {
    int bits;
    int tag;
    int channels;
    size_t frames;
};

class IdentityRoundTrip : public testing::TestWithParam<EncodingCase> {};

TEST_P(IdentityRoundTrip, PlainFramingReturnsTheSameBytes) {
    const auto& c = GetParam();
    const std::string input = exactSamples(c.bits, c.tag, c.frames, c.channels);
    const std::string pins =
        "inputs=" + std::to_string(c.channels) + ",outputs=" + std::to_string(c.channels);
    const auto result = runAdapter({"process", "--vst", TEST_EFFECT_PATH, "--rate", "44100",
                                    "--channels", std::to_string(c.channels), "--bits",
                                    std::to_string(c.bits), "--formattag", std::to_string(c.tag)},
                                   effect(pins + ",tail=1", input));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(result.out == input)
        << "output differs from input (" << result.out.size() << " bytes)";
}

TEST_P(IdentityRoundTrip, ChunkedFramingReturnsTheSameSamples) {
    const auto& c = GetParam();
    const std::string input = exactSamples(c.bits, c.tag, c.frames, c.channels);
    const std::string pins =
        "inputs=" + std::to_string(c.channels) + ",outputs=" + std::to_string(c.channels);
    const auto channels = static_cast<uint32_t>(c.channels);
    const std::string record = formatRecord(48000, channels, 0, channels, 0);
    const auto result =
        runAdapter({"process", "--vst", TEST_EFFECT_PATH, "--protocol", "chunked", "--bits",
                    std::to_string(c.bits), "--formattag", std::to_string(c.tag)},
                   effect(pins, chunk(3, record) + chunk(1, input)));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    ASSERT_EQ(result.out.size(), 20 + input.size() + 4);
    EXPECT_EQ(result.out.substr(0, 4), record.substr(0, 4));
    EXPECT_TRUE(result.out.substr(20, input.size()) == input);
    EXPECT_EQ(result.out.substr(20 + input.size()), std::string(4, '\0')) << "latency reply";
}

INSTANTIATE_TEST_SUITE_P(
    Encodings, IdentityRoundTrip,
    testing::Values(EncodingCase{8, 1, 2, 1000}, EncodingCase{16, 1, 1, 513},
                    EncodingCase{16, 1, 2, 0}, EncodingCase{24, 1, 2, 1500},
                    EncodingCase{32, 1, 6, 700}, EncodingCase{32, 3, 2, 2048},
                    EncodingCase{64, 3, 32, 100}, EncodingCase{24, 1, 32, 511}),
    [](const auto& info) {
        const auto& c = info.param;
        return std::string((c.tag == 3 ? "Float" : "Int") + std::to_string(c.bits) + "_Channels" +
                           std::to_string(c.channels) + "_Frames" + std::to_string(c.frames));
    });

TEST(Process, DelayComesBackThroughTheTail) {
    const std::string input = exactSamples(16, 1, 1000, 2);
    const auto result = runAdapter({"process", "--vst", TEST_EFFECT_PATH, "--rate", "44100",
                                    "--channels", "2", "--bits", "16"},
                                   effect("delay=100", input));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    ASSERT_EQ(result.out.size(), input.size() + 400);
    EXPECT_EQ(result.out.substr(0, 400), std::string(400, '\0'));
    EXPECT_TRUE(result.out.substr(400) == input);
}

TEST(Process, PrintingPlugInLeavesTheDataIntact) {
    const std::string input = exactSamples(16, 1, 3000, 2);
    const auto result = runAdapter({"process", "--vst", TEST_EFFECT_PATH, "--rate", "44100",
                                    "--channels", "2", "--bits", "16"},
                                   effect("print,tail=1", input));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_TRUE(result.out == input);
}

TEST(Process, ChunkedLatencyTailAndReopen) {
    const std::string audio = exactSamples(16, 1, 600, 2);
    const std::string record = formatRecord(44100, 2, 3, 2, 3);
    const std::string stream = chunk(3, record) + chunk(1, audio) + chunk(4, "") + chunk(5, "") +
                               chunk(3, record) + chunk(1, audio);
    const auto result =
        runAdapter({"process", "--vst", TEST_EFFECT_PATH, "--protocol", "chunked", "--bits", "16"},
                   effect("delay=64", stream));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    const uint32_t latency = 64;
    const std::string latencyBytes(reinterpret_cast<const char*>(&latency), 4);
    const uint32_t tailBytes = 64 * 4;
    std::string expected =
        record + std::string(256, '\0') + audio.substr(0, audio.size() - 256) + latencyBytes;
    expected += std::string(reinterpret_cast<const char*>(&tailBytes), 4) +
                audio.substr(audio.size() - 256);
    expected +=
        record + std::string(256, '\0') + audio.substr(0, audio.size() - 256) + latencyBytes;
    EXPECT_TRUE(result.out == expected) << result.out.size() << " vs " << expected.size();
}

struct ProtocolError {
    const char* name;
    std::string stream;
    int status;
    std::string err;
};

class ChunkedErrors : public testing::TestWithParam<ProtocolError> {};

TEST_P(ChunkedErrors, EndWithTheirStatusAndText) {
    const auto result =
        runAdapter({"process", "--vst", TEST_EFFECT_PATH, "--protocol", "chunked", "--bits", "16"},
                   effect("", GetParam().stream));
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
        ProtocolError{"TruncatedPayload", chunk(2, "abcdef").substr(0, 10), 255, ""},
        ProtocolError{"HugeLengthFewBytes",
                      std::string("\x02\x00\x00\x00\xff\xff\xff\xff"
                                  "abc",
                                  11),
                      255, ""}),
    [](const auto& info) { return std::string(info.param.name); });

// Plug-ins that break the rules: processing still ends with the right bytes and an honest
// status. The input is two blocks; the plug-in leaves at the second. exit() lets us flush the
// first block's output; a signal leaves no safe moment to, so that output stays unsent.
struct MisbehaviourCase {
    const char* name;
    std::string words;
    int status;
    int signal;
    std::string err;
    size_t frames; // of output, equal to the input's first frames
};

class Misbehaving : public testing::TestWithParam<MisbehaviourCase> {};

TEST_P(Misbehaving, OutputAndStatusTellTheTruth) {
    const auto& c = GetParam();
    const std::string input = exactSamples(16, 1, 1000, 2);
    // Settings too: one parameter, the gain, at 1.0.
    scratch::Folder folder;
    const float unity = 1.0f;
    scratch::writeFile(folder / "gain", std::string(reinterpret_cast<const char*>(&unity), 4));
    auto options = effect(c.words + ",tail=1", input);
    const char* asan = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] = std::string(asan ? asan : "") + ":handle_segv=0";
    const auto result = runAdapter({"process", "--vst", TEST_EFFECT_PATH, "--rate", "44100",
                                    "--channels", "2", "--bits", "16", "--data", folder / "gain"},
                                   options);
    EXPECT_EQ(result.exitStatus, c.status);
    EXPECT_EQ(result.signal, c.signal);
    EXPECT_EQ(result.err, c.err);
    EXPECT_TRUE(result.out == input.substr(0, c.frames * 4)) << result.out.size() << " bytes";
}

INSTANTIATE_TEST_SUITE_P(
    Table, Misbehaving,
    testing::Values(MisbehaviourCase{"ExitWhileProcessing", "exit-at=process", 255, 0,
                                     "VST called exit (stage: processing)\n", 512},
                    MisbehaviourCase{"CrashWhileProcessing", "crash-at=process", -1, SIGSEGV,
                                     "VST crashed with SIGSEGV (stage: processing)\n", 0},
                    MisbehaviourCase{"NullFunctionsAreAbsent", "null-functions", 0, 0, "", 1000}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Process, PlainFormatOutOfRangeIsNotSet) {
    const auto result = runAdapter(
        {"process", "--vst", TEST_EFFECT_PATH, "--rate", "99", "--channels", "2", "--bits", "16"},
        effect("", ""));
    EXPECT_EQ(result.exitStatus, 255);
    EXPECT_EQ(result.err, "audio format not set\n");
}

} // namespace
