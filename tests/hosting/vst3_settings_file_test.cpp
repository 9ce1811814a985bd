// VST 3 settings through the settings file: written by the write-back function in this process,
// read back by this process and by the built binary, whose audio shows what the plug-in got.
#include "app/plugin_opening.h"
#include "app/state_file.h"
#include "hosting/plugin_host.h"
#include "tests/common/child_process.h"
#include "tests/common/vst3_bundles.h"
#include "tests/hosting/vst3_test_environment.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

// Present only in sanitizer builds.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

namespace {

using testing_support::ChildOptions;
using testing_support::runAdapter;
using testing_support::Vst3Layouts;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

std::string message(uint32_t code, const std::string& payload) {
    std::string bytes(8, '\0');
    const auto length = static_cast<uint32_t>(payload.size());
    std::memcpy(bytes.data(), &code, 4);
    std::memcpy(bytes.data() + 4, &length, 4);
    return bytes + payload;
}

std::string formatMessage(uint32_t channels) {
    const uint32_t mask = channels == 2 ? 3 : 4;
    const uint32_t fields[5] = {44100, channels, mask, channels, mask};
    return message(3, std::string(reinterpret_cast<const char*>(fields), sizeof fields));
}

std::string records(const std::vector<std::pair<uint32_t, double>>& values) {
    std::string bytes;
    for (const auto& [id, value] : values) {
        bytes.append(reinterpret_cast<const char*>(&id), 4);
        bytes.append(reinterpret_cast<const char*>(&value), 8);
    }
    return bytes;
}

std::string sine16(size_t frames, int channels) {
    std::string bytes;
    for (size_t frame = 0; frame < frames; ++frame) {
        const auto value = static_cast<int16_t>(
            std::lround(20000.0 * std::sin(0.05 * static_cast<double>(frame))));
        for (int channel = 0; channel < channels; ++channel)
            bytes.append(reinterpret_cast<const char*>(&value), 2);
    }
    return bytes;
}

ChildOptions childWith(const std::map<std::string, std::string>& environment, std::string input) {
    ChildOptions options;
    options.environment["DISPLAY"] = std::nullopt;
    options.environment["HOME"] = std::filesystem::temp_directory_path().string();
    const char* asan = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] = std::string(asan ? asan : "") + ":detect_leaks=0";
    for (const auto& [key, value] : environment)
        options.environment[key] = value;
    options.stdinBytes = std::move(input);
    options.timeoutSeconds = 120.0;
    return options;
}

// The samples of the first audio reply of a chunked run whose messages start with `settings`.
std::string audioAfter(const std::string& plugin, const std::string& settings,
                       const std::string& input, uint32_t channels,
                       const std::map<std::string, std::string>& environment = {}) {
    const auto result =
        runAdapter({"process", "--vst", plugin, "--bits", "16", "--protocol", "chunked"},
                   childWith(environment, settings + formatMessage(channels) + message(1, input)));
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    if (result.out.size() < 20 + input.size())
        return {};
    return result.out.substr(20, input.size());
}

// Leaks inside third-party plug-ins are theirs (some keep references to the host's objects for
// ever): what is allocated while this lives is not reported. Our own code is leak-checked with
// the in-tree plug-in.
class ThirdPartyLeaksIgnored {
  public:
    ThirdPartyLeaksIgnored() {
        if (__lsan_disable != nullptr)
            __lsan_disable();
    }
    ~ThirdPartyLeaksIgnored() {
        if (__lsan_enable != nullptr)
            __lsan_enable();
    }
    ThirdPartyLeaksIgnored(const ThirdPartyLeaksIgnored&) = delete;
    ThirdPartyLeaksIgnored& operator=(const ThirdPartyLeaksIgnored&) = delete;
};

std::unique_ptr<VSTGlobals> loaded(const std::string& path, const std::string& dataPath) {
    auto globals = std::make_unique<VSTGlobals>();
    globals->arguments["--vst-version"] = "3";
    openPluginFromArguments(*globals, path);
    globals->dataPath = dataPath;
    return globals;
}

TEST(Vst3SettingsFile, PresetImageRoundTripsAndWinsOverValuesQueuedBeforeIt) {
    Vst3Layouts layouts("settings-file");
    const std::string bundle = layouts.bundle("Gain", TEST_VST3_PATH);
    const std::string data = layouts.file("settings");
    const std::string log = layouts.file("log");
    {
        const Vst3TestEnvironment environment("mono", log);
        auto globals = loaded(bundle, data);
        ASSERT_TRUE(globals->plugin);
        AEffect* effect = globals->plugin->effect();
        effect->setParameter(effect, 0, 0.25f); // gain x 0.5
        effect->setParameter(effect, 1, 1.0f);  // polarity inverted
        saveStateToFile(*globals);
        const std::string image = readFile(data);
        ASSERT_GT(image.size(), 4u);
        EXPECT_EQ(image.substr(0, 4), "VST3");
        EXPECT_EQ(globals->stateData, std::vector<uint8_t>(image.begin(), image.end()));
        // Unchanged settings leave the file alone: not even recreated.
        std::filesystem::remove(data);
        saveStateToFile(*globals);
        EXPECT_FALSE(std::filesystem::exists(data));
        std::ofstream(data, std::ios::binary) << image;
    }
    {
        const Vst3TestEnvironment environment("mono", log);
        auto globals = loaded(bundle, data);
        ASSERT_TRUE(globals->plugin);
        loadStateFile(*globals);
        AEffect* effect = globals->plugin->effect();
        EXPECT_FLOAT_EQ(effect->getParameter(effect, 0), 0.25f);
        EXPECT_FLOAT_EQ(effect->getParameter(effect, 1), 1.0f);
    }

    const std::string input = sine16(1024, 1);
    const std::map<std::string, std::string> mono{{"TEST_VST3", "mono"}};
    const std::string image = readFile(data);
    const std::string withImage = audioAfter(bundle, message(2, image), input, 1, mono);
    for (size_t at = 0; at < input.size(); at += 2) {
        int16_t in = 0, out = 0;
        std::memcpy(&in, input.data() + at, 2);
        std::memcpy(&out, withImage.data() + at, 2);
        ASSERT_NEAR(out, -in / 2.0, 1.0) << "frame " << at / 2;
    }
    // Values queued by records and then replaced by the image must not come back.
    const std::string changedThenReloaded = audioAfter(
        bundle, message(2, records({{100, 0.9}, {7, 0.0}})) + message(2, image), input, 1, mono);
    EXPECT_TRUE(changedThenReloaded == withImage) << "values queued before the image came back";
}

TEST(Vst3SettingsFile, RealLimiterSettingsSurviveTheRoundTrip) {
    const std::string plugin = "/usr/lib/vst3/ZaMaximX2.vst3";
    if (!std::filesystem::exists(plugin))
        GTEST_SKIP() << "zam-plugins is not installed";
    Vst3Layouts layouts("settings-zam");
    const std::string data = layouts.file("settings");
    {
        const ThirdPartyLeaksIgnored theirs;
        auto globals = loaded(plugin, data);
        ASSERT_TRUE(globals->plugin);
        AEffect* effect = globals->plugin->effect();
        ASSERT_EQ(effect->numParams, 3); // release, output ceiling, threshold
        for (int32_t index = 0; index < 3; ++index)
            effect->setParameter(effect, index, 0.0f);
        saveStateToFile(*globals);
    }
    const std::string image = readFile(data);
    ASSERT_GT(image.size(), 4u);
    EXPECT_EQ(image.substr(0, 4), "VST3");

    const std::string input = sine16(4096, 2);
    const std::string plain = audioAfter(plugin, "", input, 2);
    const std::string limited = audioAfter(plugin, message(2, image), input, 2);
    EXPECT_TRUE(limited != plain) << "the saved settings did not change the sound";
    const std::string changedThenReloaded = audioAfter(
        plugin, message(2, records({{4, 1.0}, {5, 1.0}, {6, 1.0}})) + message(2, image), input, 2);
    EXPECT_TRUE(changedThenReloaded == limited) << "values queued before the image came back";
}

} // namespace
