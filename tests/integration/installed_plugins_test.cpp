// "process" through installed third-party plug-ins with their default settings.

#include "audio/stream_format_codec.h"
#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/sample_bytes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

namespace {

using testing_support::chunk;
using testing_support::formatRecord;
using testing_support::readU32;

// A loud chord, 16-bit: 440 Hz on the first channel, 660 Hz on the second and so on.
std::string loudChord(uint32_t channels, size_t frames) {
    std::vector<int16_t> samples;
    for (size_t i = 0; i < frames; ++i)
        for (uint32_t c = 0; c < channels; ++c)
            samples.push_back(static_cast<int16_t>(
                std::lround(0.9 * 32767 * std::sin(2 * M_PI * (440 + 220 * c) * i / 44100.0))));
    return testing_support::bytesOf(samples);
}

testing_support::ChildResult run(const std::string& path, std::vector<std::string> arguments,
                                 std::string input) {
    auto options = testing_support::headless();
    options.stdinBytes = std::move(input);
    arguments.insert(arguments.begin(), {"process", "--vst", path, "--vst-version", "2"});
    return testing_support::runAdapter(arguments, options);
}

struct Installed {
    const char* name;
    const char* file; // under /usr/lib/vst
    uint32_t inputs, outputs;
    std::vector<size_t> pieces; // frames per audio message before the last; empty: one message
    bool latent;                // reports a latency
    std::string path() const { return std::string("/usr/lib/vst/") + file; }
};

class InstalledPlugin : public testing::TestWithParam<Installed> {
  protected:
    void SetUp() override {
        if (!std::filesystem::exists(GetParam().path()))
            GTEST_SKIP() << GetParam().path() << " is not installed (scripts/setup installs it)";
    }
};

// A format message's rate and layouts reach the plug-in as the command line's do, however the
// audio is cut into messages: the chunked replies (audio, then the tail on request) are the plain
// run's bytes, and every audio reply carries the same latency.
TEST_P(InstalledPlugin, ChunkedRepliesGiveThePlainRunsBytes) {
    const auto& c = GetParam();
    const uint32_t rate = 48000;
    const std::string input = loudChord(c.inputs, 30000);
    const auto plainRun =
        run(c.path(),
            {"--rate", std::to_string(rate), "--channels", std::to_string(c.inputs),
             "--channels-output", std::to_string(c.outputs), "--bits", "16"},
            input);
    ASSERT_EQ(plainRun.exitStatus, 0) << plainRun.err;

    std::string stream = chunk(3, formatRecord(rate, c.inputs, effectiveMask(c.inputs, 0),
                                               c.outputs, effectiveMask(c.outputs, 0)));
    std::vector<size_t> sizes;
    size_t offset = 0;
    for (size_t frames : c.pieces) {
        sizes.push_back(frames * 2 * c.inputs);
        stream += chunk(1, input.substr(offset, sizes.back()));
        offset += sizes.back();
    }
    sizes.push_back(input.size() - offset);
    stream += chunk(1, input.substr(offset)) + chunk(4, "");
    const auto chunked = run(c.path(), {"--protocol", "chunked", "--bits", "16"}, stream);
    ASSERT_EQ(chunked.exitStatus, 0) << chunked.err;

    const std::string& out = chunked.out;
    ASSERT_GE(out.size(), 20u);
    EXPECT_EQ(readU32(out, 0), rate);
    EXPECT_EQ(readU32(out, 4), c.inputs);
    EXPECT_EQ(readU32(out, 12), c.outputs);
    std::string samples;
    std::vector<uint32_t> latencies;
    size_t at = 20;
    for (size_t size : sizes) {
        const size_t replyBytes = size / c.inputs * c.outputs;
        ASSERT_LE(at + replyBytes + 4, out.size());
        samples += out.substr(at, replyBytes);
        at += replyBytes;
        latencies.push_back(readU32(out, at));
        at += 4;
    }
    for (const uint32_t latency : latencies)
        EXPECT_EQ(latency, latencies.front()) << "the latency does not change mid-stream";
    EXPECT_EQ(latencies.front() > 0, c.latent) << "latency " << latencies.front();
    ASSERT_LE(at + 4, out.size());
    const uint32_t tailBytes = readU32(out, at);
    EXPECT_EQ(out.size(), at + 4 + tailBytes) << "the tail reply's length";
    EXPECT_TRUE(samples + out.substr(at + 4) == plainRun.out)
        << "chunked " << out.size() << " bytes, plain " << plainRun.out.size() << " bytes";
}

TEST_P(InstalledPlugin, ReopenedInstanceStartsAfresh) {
    const auto& c = GetParam();
    // Three blocks, so that a replay of the last block's output cannot pass for the real thing.
    const std::string audio = chunk(1, loudChord(c.inputs, 1536));
    const auto result = run(c.path(), {"--protocol", "chunked", "--bits", "16"},
                            chunk(3, formatRecord(44100, c.inputs, 0, c.outputs, 0)) + audio +
                                chunk(5, "") + audio);
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    const size_t reply = 1536 * 2 * c.outputs + 4;
    ASSERT_EQ(result.out.size(), 20 + 2 * reply);
    EXPECT_TRUE(result.out.substr(20, reply) == result.out.substr(20 + reply, reply));
}

INSTANTIATE_TEST_SUITE_P(
    Installed, InstalledPlugin,
    testing::Values(
        Installed{"ZamTube", "ZamTube-vst.so", 1, 1, {1000, 3, 20000}, false},
        Installed{"ZaMaximX2", "ZaMaximX2-vst.so", 2, 2, {1000, 3}, true},
        Installed{
            "LspLimiterStereo", "lsp-plugins/limiter-stereo.so", 2, 2, {1000, 3, 20000}, true},
        // These read the rate only when they open, and IEM's only when resumed.
        Installed{"ZamHeadX2", "ZamHeadX2-vst.so", 2, 2, {}, false},
        Installed{"MaPitchshift", "MaPitchshift-vst.so", 1, 1, {}, false},
        Installed{"IemFdnReverb", "iem.at/libFdnReverb.so", 2, 2, {}, false},
        Installed{"IemBinauralDecoderFirstOrder", "iem.at/libBinauralDecoder.so", 4, 2, {}, false},
        Installed{"IemStereoEncoder", "iem.at/libStereoEncoder.so", 2, 4, {}, false}),
    [](const auto& info) { return std::string(info.param.name); });

} // namespace
