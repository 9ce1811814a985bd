// zam-plugins builds every plug-in as VST 2 and as VST 3 from one DSP source: through the bridge,
// the VST 3 build must give the VST 2 build's samples and latency (buffers, blocks, set-up).
#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/sample_bytes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

namespace {

using testing_support::chunk;
using testing_support::readU32;

constexpr int rate = 44100;

struct Processed {
    std::vector<float> samples; // the audio reply, then the tail
    uint32_t latency = 0;
};

// A chunked run: the format, all of `audio` in one message, then the tail.
Processed process(const std::string& path, const std::string& version, const std::string& audio) {
    auto options = testing_support::headless();
    options.stdinBytes =
        chunk(3, testing_support::formatRecord(rate, 2, 0, 2, 0)) + chunk(1, audio) + chunk(4, "");
    const auto result =
        testing_support::runAdapter({"process", "--vst", path, "--vst-version", version,
                                     "--protocol", "chunked", "--bits", "32", "--formattag", "3"},
                                    options);
    // Format echo, the audio, its latency, the tail's length and the tail.
    const size_t tailAt = 20 + audio.size() + 8;
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    if (result.out.size() < tailAt)
        return {};
    return {testing_support::samplesOf<float>(result.out.substr(20, audio.size()) +
                                              result.out.substr(tailAt)),
            readU32(result.out, tailAt - 8)};
}

float largestDifference(const std::vector<float>& a, const std::vector<float>& b) {
    float largest = a.size() == b.size() ? 0.0f : INFINITY;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        largest = std::isnan(a[i] - b[i]) ? INFINITY : std::max(largest, std::abs(a[i] - b[i]));
    return largest;
}

TEST(Vst2Vst3Agreement, LimiterGivesTheSameSamplesAndLatencyThroughTheBridge) {
    const std::string vst2 = "/usr/lib/vst/ZaMaximX2-vst.so", vst3 = "/usr/lib/vst3/ZaMaximX2.vst3";
    if (!std::filesystem::exists(vst2) || !std::filesystem::exists(vst3))
        GTEST_SKIP() << "zam-plugins is not installed";
    // One second of loud audio, different on each channel so that a swap shows.
    std::vector<float> input;
    for (int frame = 0; frame < rate; ++frame)
        for (int c = 0; c < 2; ++c)
            input.push_back(
                static_cast<float>(0.45 * std::sin(2 * M_PI * (440 + 220 * c) * frame / rate) +
                                   0.4 * std::sin(2 * M_PI * (97 + 31 * c) * frame / rate)));
    const std::string audio = testing_support::bytesOf(input);
    const Processed direct = process(vst2, "2", audio);
    const Processed bridged = process(vst3, "3", audio);
    // Otherwise both could agree by passing the input through.
    ASSERT_GE(direct.samples.size(), input.size());
    ASSERT_GT(
        largestDifference({direct.samples.begin(), direct.samples.begin() + input.size()}, input),
        0.01f);
    EXPECT_EQ(bridged.latency, direct.latency);
    // Both builds run the same code on the same float blocks; the slack is for default values,
    // which reach the VST 3 build as normalised doubles. A 0.1 dB gain error or a frame of delay
    // would move these samples by 0.01 or more.
    EXPECT_LE(largestDifference(bridged.samples, direct.samples), 1e-6f);
}

} // namespace
