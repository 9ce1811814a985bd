// A real VST 3 limiter from Debian's zam-plugins through the built binary. Skipped when absent.
#include "tests/common/child_process.h"
#include "tests/common/sample_bytes.h"
#include "tests/common/vst3_bundles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using testing_support::runAdapter;

// A loud 16-bit sine, the same on both channels.
std::string sine16(size_t frames) {
    std::string bytes;
    for (size_t frame = 0; frame < frames; ++frame) {
        const auto value = static_cast<int16_t>(
            std::lround(0.6 * 32767.0 * std::sin(0.0456 * static_cast<double>(frame))));
        for (int channel = 0; channel < 2; ++channel)
            bytes.append(reinterpret_cast<const char*>(&value), 2);
    }
    return bytes;
}

int peak(const std::string& samples) {
    int largest = 0;
    for (size_t at = 0; at + 1 < samples.size(); at += 2) {
        int16_t value = 0;
        std::memcpy(&value, samples.data() + at, 2);
        largest = std::max(largest, std::abs(static_cast<int>(value)));
    }
    return largest;
}

TEST(ZaMaximX2, SettingsSavedToTheDataFileChangeTheSoundOfTheNextRun) {
    const std::string path = "/usr/lib/vst3/ZaMaximX2.vst3";
    if (!std::filesystem::exists(path))
        GTEST_SKIP() << "zam-plugins is not installed";
    testing_support::Vst3Layouts layouts;
    const std::string data = layouts / "settings";
    // Release, output ceiling and threshold all to 0: the limiter pulls the sine right down.
    auto options = testing_support::headless();
    ASSERT_EQ(
        testing_support::runChild(SETTINGS_PROBE_PATH, {path, data, "0=0", "1=0", "2=0"}, options)
            .exitStatus,
        0);
    std::stringstream image;
    image << std::ifstream(data, std::ios::binary).rdbuf();
    EXPECT_EQ(image.str().substr(0, 4), "VST3");
    options.stdinBytes = sine16(8000);
    std::vector<std::string> arguments{"process",    "--vst", path,     "--rate", "44100",
                                       "--channels", "2",     "--bits", "16"};
    EXPECT_GT(peak(runAdapter(arguments, options).out), 19000);
    arguments.insert(arguments.end(), {"--data", data});
    EXPECT_LT(peak(runAdapter(arguments, options).out), 2000);
}

// zam-plugins builds every plug-in as VST 2 and as VST 3 from one DSP source: through the bridge
// the VST 3 build gives the VST 2 build's samples and latency (buffers, blocks, set-up). The
// slack is for default values, which reach the VST 3 build as normalised doubles.
TEST(ZaMaximX2, BridgedBuildGivesTheVst2BuildsSamples) {
    const std::string vst2 = "/usr/lib/vst/ZaMaximX2-vst.so", vst3 = "/usr/lib/vst3/ZaMaximX2.vst3";
    if (!std::filesystem::exists(vst2) || !std::filesystem::exists(vst3))
        GTEST_SKIP() << "zam-plugins is not installed";
    std::vector<float> input;
    for (int i = 0; i < 88200; ++i)
        input.push_back(
            static_cast<float>(0.45 * std::sin(0.06 * i + i % 2) + 0.4 * std::sin(0.013 * i)));
    auto options = testing_support::headless();
    options.stdinBytes = testing_support::bytesOf(input);
    std::vector<std::vector<float>> out;
    for (const auto& path : {vst2, vst3})
        out.push_back(testing_support::samplesOf<float>(
            runAdapter({"process", "--vst", path, "--rate", "44100", "--channels", "2", "--bits",
                        "32", "--formattag", "3"},
                       options)
                .out));
    ASSERT_EQ(out[0].size(), out[1].size());
    ASSERT_GE(out[0].size(), input.size());
    EXPECT_NE(std::vector<float>(out[0].begin(), out[0].begin() + 88200), input) << "limited";
    for (size_t i = 0; i < out[0].size(); ++i)
        ASSERT_NEAR(out[0][i], out[1][i], 1e-6f) << "sample " << i;
}

} // namespace
