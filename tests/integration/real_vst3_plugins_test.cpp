// A real VST 3 limiter from Debian's zam-plugins through the built binary. Skipped when absent.
#include "app/plugin_opening.h"
#include "app/state_file.h"
#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/real_plugins.h"
#include "tests/common/vst3_bundles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

// Present only in sanitizer builds.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

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

class ZaMaximX2 : public testing::Test {
  protected:
    void SetUp() override {
        if (!std::filesystem::exists(path))
            GTEST_SKIP() << "zam-plugins is not installed";
    }
    const std::string path = "/usr/lib/vst3/ZaMaximX2.vst3";
};

TEST_F(ZaMaximX2, LatencyIsReportedAndDelaysTheSound) {
    const std::string input = sine16(2048);
    auto options = testing_support::headless();
    options.stdinBytes =
        testing_support::formatMessage(44100, 2, 3, 2, 3) + testing_support::chunk(1, input);
    const auto result =
        runAdapter({"process", "--vst", path, "--bits", "16", "--protocol", "chunked"}, options);
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    ASSERT_EQ(result.out.size(), 20 + input.size() + 4);
    EXPECT_EQ(testing_support::readU32(result.out, 20 + input.size()), 480u);
    // Frame 480 carries sin(0); the first sound is one frame later.
    EXPECT_EQ(peak(result.out.substr(20, 481 * 4)), 0);
    EXPECT_GT(peak(result.out.substr(20 + 481 * 4, 4)), 0);
}

TEST_F(ZaMaximX2, SettingsSavedToTheDataFileChangeTheSoundOfTheNextRun) {
    testing_support::Vst3Layouts layouts("zam-settings");
    const std::string data = layouts.file("settings");
    // Leaks inside the plug-in are its own (our code is leak-checked with the test plug-in).
    if (__lsan_disable != nullptr)
        __lsan_disable();
    {
        VSTGlobals globals;
        globals.arguments["--vst-version"] = "3";
        openPluginFromArguments(globals, path);
        globals.dataPath = data;
        AEffect* effect = globals.plugin->effect();
        // Release, output ceiling and threshold all to 0: the limiter pulls the sine right down.
        for (int32_t index = 0; index < 3; ++index)
            effect->setParameter(effect, index, 0.0f);
        saveStateToFile(globals);
    }
    if (__lsan_enable != nullptr)
        __lsan_enable();
    std::stringstream image;
    image << std::ifstream(data, std::ios::binary).rdbuf();
    EXPECT_EQ(image.str().substr(0, 4), "VST3");
    auto options = testing_support::headless();
    options.stdinBytes = sine16(8000);
    std::vector<std::string> arguments{"process",    "--vst", path,     "--rate", "44100",
                                       "--channels", "2",     "--bits", "16"};
    EXPECT_GT(peak(runAdapter(arguments, options).out), 19000);
    arguments.insert(arguments.end(), {"--data", data});
    EXPECT_LT(peak(runAdapter(arguments, options).out), 2000);
}

} // namespace
