#include "audio/stream_format.h"
#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/real_plugins.h"
#include "tests/common/sample_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <vector>

// "process" through installed third-party plug-ins with their default settings: the same input
// gives the same bytes, both framings give the same samples, and a loud signal comes back changed.
// The plug-ins are chosen so that their output does not depend on how the audio is cut into
// blocks (the LSP compressor's does: it is not a good subject for comparing framings).

namespace {

using testing_support::chunk;
using testing_support::formatRecord;
using testing_support::headless;
using testing_support::readU32;
using testing_support::runAdapter;

constexpr uint32_t rate = 44100;

struct ProcessCase {
    const char* name;
    const char* path;
    int channels; // both ways
};

void PrintTo(const ProcessCase& c, std::ostream* out) {
    *out << c.name;
}

// One second of a loud chord, 16-bit: 440 Hz on the first channel, 660 Hz on the second, at
// 0.9 of full scale.
std::string loudChord(int channels) {
    std::vector<int16_t> samples;
    for (uint32_t i = 0; i < rate; ++i)
        for (int c = 0; c < channels; ++c)
            samples.push_back(static_cast<int16_t>(
                std::lround(0.9 * 32767 * std::sin(2 * M_PI * (440 + 220 * c) * i / rate))));
    return std::string(reinterpret_cast<const char*>(samples.data()), samples.size() * 2);
}

// What a chunked run sent back for: a format, audio in pieces, a tail request.
struct ChunkedReplies {
    int exitStatus = -1;
    std::string error;
    std::string echo;                // the format record as applied
    std::string audio;               // the samples of every audio reply, in order
    std::vector<uint32_t> latencies; // one per audio message
    std::string tail;
    size_t unparsed = 0; // bytes after the tail
};

class RealPluginProcess : public testing::TestWithParam<ProcessCase> {
  protected:
    void SetUp() override {
        if (!std::filesystem::exists(GetParam().path))
            GTEST_SKIP() << GetParam().path << " is not installed (scripts/setup installs it)";
    }

    int channels() const { return GetParam().channels; }
    size_t frameBytes() const { return 2 * static_cast<size_t>(channels()); }

    testing_support::ChildResult plain(const std::string& input) const {
        auto options = headless();
        options.stdinBytes = input;
        const std::string count = std::to_string(channels());
        return runAdapter({"process", "--vst", GetParam().path, "--vst-version", "2", "--rate",
                           std::to_string(rate), "--channels", count, "--bits", "16"},
                          options);
    }

    // The audio goes in messages of `pieces` frames each, the rest in one more message.
    ChunkedReplies chunked(const std::string& input, const std::vector<size_t>& pieces) const {
        const auto count = static_cast<uint32_t>(channels());
        std::string stream = chunk(3, formatRecord(rate, count, 0, count, 0));
        std::vector<size_t> sizes;
        size_t offset = 0;
        for (size_t frames : pieces) {
            sizes.push_back(std::min(frames * frameBytes(), input.size() - offset));
            offset += sizes.back();
        }
        sizes.push_back(input.size() - offset);
        offset = 0;
        for (size_t size : sizes) {
            stream += chunk(1, input.substr(offset, size));
            offset += size;
        }
        stream += chunk(4, "");

        auto options = headless();
        options.stdinBytes = stream;
        const auto result = runAdapter({"process", "--vst", GetParam().path, "--vst-version", "2",
                                        "--protocol", "chunked", "--bits", "16"},
                                       options);
        ChunkedReplies replies;
        replies.exitStatus = result.exitStatus;
        replies.error = result.err;
        const std::string& out = result.out;
        size_t at = 0;
        auto take = [&](size_t length) {
            const std::string piece = out.substr(std::min(at, out.size()), length);
            at += length;
            return piece;
        };
        replies.echo = take(20);
        for (size_t size : sizes) {
            replies.audio += take(size);
            replies.latencies.push_back(at + 4 <= out.size() ? readU32(out, at) : 0xFFFFFFFF);
            at += 4;
        }
        const uint32_t tailBytes = at + 4 <= out.size() ? readU32(out, at) : 0;
        at += 4;
        replies.tail = take(tailBytes);
        replies.unparsed = out.size() > at ? out.size() - at : 0;
        if (at > out.size())
            ADD_FAILURE() << "the replies end " << at - out.size() << " bytes short";
        return replies;
    }
};

TEST_P(RealPluginProcess, TwoRunsGiveIdenticalBytes) {
    const std::string input = loudChord(channels());
    const auto first = plain(input);
    const auto second = plain(input);
    ASSERT_EQ(first.exitStatus, 0) << first.err;
    ASSERT_EQ(second.exitStatus, 0) << second.err;
    EXPECT_GE(first.out.size(), input.size()) << "the processed input, then any tail";
    EXPECT_EQ(first.out.size() % frameBytes(), 0u);
    EXPECT_TRUE(first.out == second.out)
        << first.out.size() << " and " << second.out.size() << " bytes";
}

TEST_P(RealPluginProcess, PlainAndChunkedFramingGiveTheSameSamples) {
    const std::string input = loudChord(channels());
    const auto plainRun = plain(input);
    ASSERT_EQ(plainRun.exitStatus, 0) << plainRun.err;
    // Message sizes unrelated to the 512-frame block, a tiny one among them.
    const auto replies = chunked(input, {1000, 3, 20000});
    ASSERT_EQ(replies.exitStatus, 0) << replies.error;
    EXPECT_EQ(replies.unparsed, 0u);

    const auto count = static_cast<uint32_t>(channels());
    ASSERT_EQ(replies.echo.size(), 20u);
    EXPECT_EQ(readU32(replies.echo, 0), rate);
    EXPECT_EQ(readU32(replies.echo, 4), count);
    EXPECT_EQ(readU32(replies.echo, 12), count);
    ASSERT_EQ(replies.latencies.size(), 4u);
    for (uint32_t latency : replies.latencies)
        EXPECT_EQ(latency, replies.latencies.front()) << "the latency does not change mid-stream";

    ASSERT_EQ(replies.audio.size(), input.size()) << "every audio reply is as long as its message";
    EXPECT_TRUE(replies.audio + replies.tail == plainRun.out)
        << "chunked " << replies.audio.size() << " + " << replies.tail.size() << " bytes, plain "
        << plainRun.out.size() << " bytes";
}

TEST_P(RealPluginProcess, DefaultSettingsChangeALoudSignal) {
    const std::string input = loudChord(channels());
    const auto replies = chunked(input, {});
    ASSERT_EQ(replies.exitStatus, 0) << replies.error;
    ASSERT_EQ(replies.audio.size(), input.size());
    ASSERT_EQ(replies.latencies.size(), 1u);
    // Compared where the output lines up with the input: after the reported latency.
    const std::vector<int16_t> in = testing_support::samplesOf<int16_t>(input);
    const std::vector<int16_t> out =
        testing_support::samplesOf<int16_t>(replies.audio + replies.tail);
    const size_t shift = size_t{replies.latencies.front()} * static_cast<size_t>(channels());
    ASSERT_LT(shift, in.size());
    int largest = 0;
    for (size_t i = 0; i + shift < out.size() && i < in.size(); ++i)
        largest = std::max(largest, std::abs(out[i + shift] - in[i]));
    // About -30 dBFS: far beyond rounding, well below what these plug-ins do to the chord.
    EXPECT_GT(largest, 1000) << "the output is the input, " << replies.latencies.front()
                             << " frames late";
}

TEST_P(RealPluginProcess, ReopenedInstanceStartsAfresh) {
    // Three blocks, so that a replay of the last block's output cannot pass for the real thing.
    const std::string input = loudChord(channels()).substr(0, 1536 * frameBytes());
    const auto count = static_cast<uint32_t>(channels());
    const std::string audio = chunk(1, input);
    auto options = headless();
    options.stdinBytes =
        chunk(3, formatRecord(rate, count, 0, count, 0)) + audio + chunk(5, "") + audio;
    const auto result = runAdapter({"process", "--vst", GetParam().path, "--vst-version", "2",
                                    "--protocol", "chunked", "--bits", "16"},
                                   options);
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    const size_t reply = input.size() + 4;
    ASSERT_EQ(result.out.size(), 20 + 2 * reply);
    EXPECT_TRUE(result.out.substr(20, reply) == result.out.substr(20 + reply, reply))
        << "the same audio through a fresh instance gives the same reply";
}

INSTANTIATE_TEST_SUITE_P(
    Installed, RealPluginProcess,
    testing::Values(ProcessCase{"LspLimiterStereo", "/usr/lib/vst/lsp-plugins/limiter-stereo.so",
                                2},
                    ProcessCase{"ZamTube", "/usr/lib/vst/ZamTube-vst.so", 1},
                    ProcessCase{"ZamAutoSat", "/usr/lib/vst/ZamAutoSat-vst.so", 1}),
    [](const auto& info) { return std::string(info.param.name); });

// A format message's rate and layouts reach the plug-in as the command line's do: the same
// bytes either way, whatever the plug-in does with a rate or a layout that changes while it runs.
struct FormatCase {
    const char* name;
    const char* path;
    uint32_t inputs;
    uint32_t outputs;
};

void PrintTo(const FormatCase& c, std::ostream* out) {
    *out << c.name;
}

class RealPluginFormat : public testing::TestWithParam<FormatCase> {};

TEST_P(RealPluginFormat, FormatMessageGivesThePlainRunsBytes) {
    const auto& c = GetParam();
    if (!std::filesystem::exists(c.path))
        GTEST_SKIP() << c.path << " is not installed (scripts/setup installs it)";
    const uint32_t otherRate = 48000;
    const std::string input = loudChord(static_cast<int>(c.inputs)).substr(0, 30000 * 2 * c.inputs);
    auto options = headless();
    options.stdinBytes = input;
    const auto plainRun =
        runAdapter({"process", "--vst", c.path, "--vst-version", "2", "--rate",
                    std::to_string(otherRate), "--channels", std::to_string(c.inputs),
                    "--channels-output", std::to_string(c.outputs), "--bits", "16"},
                   options);
    ASSERT_EQ(plainRun.exitStatus, 0) << plainRun.err;
    const size_t outputBytes = input.size() / c.inputs * c.outputs;
    ASSERT_GE(plainRun.out.size(), outputBytes);

    options.stdinBytes = chunk(3, formatRecord(otherRate, c.inputs, effectiveMask(c.inputs, 0),
                                               c.outputs, effectiveMask(c.outputs, 0))) +
                         chunk(1, input);
    const auto chunkedRun = runAdapter(
        {"process", "--vst", c.path, "--vst-version", "2", "--protocol", "chunked", "--bits", "16"},
        options);
    ASSERT_EQ(chunkedRun.exitStatus, 0) << chunkedRun.err;
    ASSERT_EQ(chunkedRun.out.size(), 20 + outputBytes + 4);
    EXPECT_EQ(readU32(chunkedRun.out, 0), otherRate);
    EXPECT_EQ(readU32(chunkedRun.out, 4), c.inputs);
    EXPECT_EQ(readU32(chunkedRun.out, 12), c.outputs);
    EXPECT_TRUE(chunkedRun.out.substr(20, outputBytes) == plainRun.out.substr(0, outputBytes));
}

INSTANTIATE_TEST_SUITE_P(
    Installed, RealPluginFormat,
    testing::Values(
        FormatCase{"IemFdnReverb", "/usr/lib/vst/iem.at/libFdnReverb.so", 2, 2},
        FormatCase{"IemMultiEq", "/usr/lib/vst/iem.at/libMultiEQ.so", 2, 2},
        FormatCase{"IemDualDelay", "/usr/lib/vst/iem.at/libDualDelay.so", 2, 2},
        FormatCase{"IemOmniCompressor", "/usr/lib/vst/iem.at/libOmniCompressor.so", 2, 2},
        FormatCase{"ZamHeadX2", "/usr/lib/vst/ZamHeadX2-vst.so", 2, 2},
        FormatCase{"MaPitchshift", "/usr/lib/vst/MaPitchshift-vst.so", 1, 1},
        FormatCase{"IemBinauralDecoderStereo", "/usr/lib/vst/iem.at/libBinauralDecoder.so", 2, 2},
        FormatCase{"IemBinauralDecoderFirstOrder", "/usr/lib/vst/iem.at/libBinauralDecoder.so", 4,
                   2},
        FormatCase{"IemStereoEncoder", "/usr/lib/vst/iem.at/libStereoEncoder.so", 2, 4}),
    [](const auto& info) { return std::string(info.param.name); });

// The same input gives the same bytes, run after run, and nothing wild: plug-ins whose output
// once depended on a seed or on memory past a short block. Output as 32-bit float, unclipped.
struct RepeatCase {
    const char* name;
    const char* path;
    int channels;
    std::vector<size_t> pieces; // frames per audio message; empty: plain framing
};

void PrintTo(const RepeatCase& c, std::ostream* out) {
    *out << c.name;
}

class RealPluginRepeat : public testing::TestWithParam<RepeatCase> {};

TEST_P(RealPluginRepeat, ThreeRunsGiveTheSameSaneBytes) {
    const auto& c = GetParam();
    if (!std::filesystem::exists(c.path))
        GTEST_SKIP() << c.path << " is not installed (scripts/setup installs it)";
    const auto samples = testing_support::samplesOf<int16_t>(loudChord(c.channels));
    std::vector<float> floats;
    for (size_t i = 0; i < 2000 * static_cast<size_t>(c.channels); ++i)
        floats.push_back(samples[i] / 32768.0f);
    const std::string input = testing_support::bytesOf(floats);
    const size_t frameBytes = 4 * static_cast<size_t>(c.channels);
    const std::string count = std::to_string(c.channels);
    std::vector<std::string> arguments{"process", "--vst",       c.path, "--bits",
                                       "32",      "--formattag", "3",    "--rate",
                                       "44100",   "--channels",  count};
    auto options = headless();
    options.stdinBytes = input;
    if (!c.pieces.empty()) {
        arguments.insert(arguments.end(), {"--protocol", "chunked"});
        options.stdinBytes.clear();
        size_t offset = 0;
        for (size_t frames : c.pieces) {
            options.stdinBytes += chunk(1, input.substr(offset, frames * frameBytes));
            offset += frames * frameBytes;
        }
    }
    std::string first;
    for (int run = 0; run < 3; ++run) {
        const auto result = runAdapter(arguments, options);
        ASSERT_EQ(result.exitStatus, 0) << result.err;
        if (run == 0)
            first = result.out;
        else
            EXPECT_TRUE(result.out == first) << "run " << run + 1 << " differs from the first";
    }
    // Latency replies are small whole numbers, so they pass this bound too.
    for (const float value : testing_support::samplesOf<float>(first))
        ASSERT_LE(std::fabs(value), 4.0f) << "a sample far beyond full scale";
}

INSTANTIATE_TEST_SUITE_P(
    Installed, RealPluginRepeat,
    testing::Values(RepeatCase{"DragonflyRoom", "/usr/lib/lxvst/DragonflyRoomReverb-vst.so", 2, {}},
                    RepeatCase{"ZynChorusMonoShortBlocks",
                               "/usr/lib/vst/ZynChorus.so",
                               1,
                               {1, 100, 511, 1, 1387}},
                    RepeatCase{"ZynDistortionMonoShortBlocks",
                               "/usr/lib/vst/ZynDistortion.so",
                               1,
                               {1, 100, 511, 1, 1387}}),
    [](const auto& info) { return std::string(info.param.name); });

} // namespace
