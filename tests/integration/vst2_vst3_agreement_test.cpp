#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/real_plugins.h"
#include "tests/common/sample_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

// Debian's zam-plugins builds every plug-in twice from one DSP source, as VST 2 and as VST 3.
// Driven through the bridge, the VST 3 build must look and sound like the VST 2 build driven
// directly: the same pin counts, and the same samples out for the same samples in. A fault in
// the bridge's buffers, block handling, set-up or latency shows up as a difference here.
//
// Left out, because the two builds differ on their own:
// - ZamComp, ZamCompX2, ZamGate, ZamGateX2, ZamDynamicEQ: the VST 2 builds count their
//   side-chain as one more input pin; the VST 3 builds put it on an auxiliary bus, and only main
//   buses become pins.
// - ZamHeadX2: sizes its convolution once, for the block size it learns when it is created, and
//   passes the sound through untouched for blocks of any other size. The VST 2 build asks the
//   host then and hears 512; the VST 3 build is created before a VST 3 host can say anything
//   (the block size comes with the set-up, later), so our blocks never fit it.
// - ZaMultiComp, ZaMultiCompX2, ZamEQ2, ZamGEQ31: agree, but leave this signal as it is with
//   their defaults, so they could not tell a working bridge from one that copies input to
//   output.

namespace {

using testing_support::chunk;
using testing_support::formatRecord;
using testing_support::headless;
using testing_support::readU32;
using testing_support::runAdapter;

constexpr int rate = 44100;

// Both builds run the same code on the same float blocks, and every pair below agrees to the
// bit when measured. The slack allowed is for default values, which reach the VST 3 build as
// normalised doubles and are turned back into plain floats by its wrapper: an ulp off in a
// parameter moves samples by a few float steps at most. 1e-6 (-120 dBFS, about 8 float steps
// at full scale) is four orders of magnitude below the faults this looks for: a 0.1 dB gain
// error moves this signal's peaks by 0.01, a frame of delay by about 0.03, a swapped channel or
// a lost block by up to its full 0.85.
constexpr float tolerance = 1e-6f;

struct Pair {
    const char* name; // /usr/lib/vst/NAME-vst.so and /usr/lib/vst3/NAME.vst3
    int channels;     // in and out
};

void PrintTo(const Pair& pair, std::ostream* out) {
    *out << pair.name;
}

// One second of loud 32-bit float audio, different on every channel so that a swap shows: a
// 440 Hz sine plus a 97 Hz one on the first channel, each 220 Hz and 31 Hz higher per channel.
// Float keeps differences smaller than a 16-bit step visible.
std::vector<float> loudSignal(int channels) {
    std::vector<float> samples;
    for (int frame = 0; frame < rate; ++frame) {
        const double t = static_cast<double>(frame) / rate;
        for (int c = 0; c < channels; ++c)
            samples.push_back(static_cast<float>(0.45 * std::sin(2 * M_PI * (440 + 220 * c) * t) +
                                                 0.4 * std::sin(2 * M_PI * (97 + 31 * c) * t)));
    }
    return samples;
}

struct Processed {
    int exitStatus;
    std::string error;
    std::vector<float> samples; // the audio replies, then the tail
    uint32_t latency;
};

// The largest difference over the samples both have, and where it is.
struct Difference {
    float largest = 0.0f;
    size_t at = 0;
};

Difference compare(const std::vector<float>& a, const std::vector<float>& b) {
    Difference difference;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        const float d = std::abs(a[i] - b[i]);
        // NaN counts as the largest difference there is.
        if (!(d <= difference.largest)) {
            difference.largest = std::isnan(d) ? INFINITY : d;
            difference.at = i;
        }
    }
    return difference;
}

class Vst2Vst3Agreement : public testing::TestWithParam<Pair> {
  protected:
    void SetUp() override {
        for (const std::string& path : {vst2Path(), vst3Path()})
            if (!std::filesystem::exists(path))
                GTEST_SKIP() << path << " is not installed (scripts/setup installs zam-plugins)";
    }

    std::string vst2Path() const {
        return std::string("/usr/lib/vst/") + GetParam().name + "-vst.so";
    }
    std::string vst3Path() const {
        return std::string("/usr/lib/vst3/") + GetParam().name + ".vst3";
    }
    std::string pathFor(const std::string& version) const {
        return version == "2" ? vst2Path() : vst3Path();
    }

    testing_support::ChildResult info(const std::string& version) const {
        return runAdapter({"info", "--vst", pathFor(version), "--vst-version", version},
                          headless());
    }

    // A chunked run: the format, all of `input` in one message, then the tail.
    Processed process(const std::string& version, const std::vector<float>& input) const {
        const auto channels = static_cast<uint32_t>(GetParam().channels);
        const std::string audio = testing_support::bytesOf(input);
        auto options = headless();
        options.stdinBytes =
            chunk(3, formatRecord(rate, channels, 0, channels, 0)) + chunk(1, audio) + chunk(4, "");
        const auto result =
            runAdapter({"process", "--vst", pathFor(version), "--vst-version", version,
                        "--protocol", "chunked", "--bits", "32", "--formattag", "3"},
                       options);
        Processed processed{result.exitStatus, result.err, {}, 0};
        // Format echo, the audio, its latency, the tail's length and the tail.
        const size_t tailAt = 20 + audio.size() + 8;
        if (result.exitStatus != 0 || result.out.size() < tailAt ||
            result.out.size() != tailAt + readU32(result.out, tailAt - 4)) {
            processed.exitStatus = -1;
            processed.error += "replies of " + std::to_string(result.out.size()) + " bytes";
            return processed;
        }
        processed.latency = readU32(result.out, tailAt - 8);
        processed.samples = testing_support::samplesOf<float>(result.out.substr(20, audio.size()) +
                                                              result.out.substr(tailAt));
        return processed;
    }
};

// The counts only: the VST 2 builds leave pin labels and flags empty, the VST 3 builds name
// their buses, so the rest of the answer legitimately differs.
TEST_P(Vst2Vst3Agreement, InfoGivesTheSamePinCounts) {
    const std::string channels = std::to_string(GetParam().channels);
    for (const std::string version : {"2", "3"}) {
        const auto result = info(version);
        ASSERT_EQ(result.exitStatus, 0) << "VST " << version << ": " << result.err;
        EXPECT_NE(result.err.find("Number of inputs: " + channels + "\n"), std::string::npos)
            << "VST " << version << ":\n"
            << result.err;
        EXPECT_NE(result.err.find("Number of outputs: " + channels + "\n"), std::string::npos)
            << "VST " << version << ":\n"
            << result.err;
    }
}

TEST_P(Vst2Vst3Agreement, ProcessGivesTheSameSamplesAndLatency) {
    const std::vector<float> input = loudSignal(GetParam().channels);
    const Processed direct = process("2", input);
    const Processed bridged = process("3", input);
    ASSERT_EQ(direct.exitStatus, 0) << direct.error;
    ASSERT_EQ(bridged.exitStatus, 0) << bridged.error;

    // Otherwise both could agree by passing the input through, or by giving silence.
    ASSERT_GT(compare(direct.samples, input).largest, 0.01f)
        << "this plug-in leaves the signal as it is";

    EXPECT_EQ(bridged.latency, direct.latency);
    // Equal lengths: the same tail.
    EXPECT_EQ(bridged.samples.size(), direct.samples.size());
    const Difference difference = compare(bridged.samples, direct.samples);
    const auto channels = static_cast<size_t>(GetParam().channels);
    EXPECT_LE(difference.largest, tolerance)
        << "at frame " << difference.at / channels << ", channel " << difference.at % channels
        << ": VST 2 " << direct.samples[difference.at] << ", VST 3 "
        << bridged.samples[difference.at];
}

INSTANTIATE_TEST_SUITE_P(Installed, Vst2Vst3Agreement,
                         testing::Values(Pair{"ZaMaximX2", 2}, Pair{"ZamVerb", 2},
                                         Pair{"ZamTube", 1}, Pair{"ZamDelay", 1},
                                         Pair{"ZamAutoSat", 1}, Pair{"ZamPhono", 1}),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
