// A real VST 3 limiter from Debian's zam-plugins through the built binary. Skipped when absent.
#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/scratch.h"
#include "tests/common/vst3_bundles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>

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
    // The plug-in's settings after setting parameters by index ("0=0": release to 0).
    std::string saved(const std::string& name, const std::vector<std::string>& values) {
        std::vector<std::string> arguments{path, layouts.file(name)};
        arguments.insert(arguments.end(), values.begin(), values.end());
        EXPECT_EQ(testing_support::runChild(SETTINGS_PROBE_PATH, arguments, options).exitStatus, 0);
        return scratch::readFile(layouts.file(name));
    }
    const std::string path = "/usr/lib/vst3/ZaMaximX2.vst3";
    testing_support::Vst3Layouts layouts;
    testing_support::ChildOptions options = testing_support::headless();
};

TEST_F(ZaMaximX2, SettingsSavedToTheDataFileChangeTheSoundOfTheNextRun) {
    // Release, output ceiling and threshold all to 0: the limiter pulls the sine right down.
    EXPECT_EQ(saved("settings", {"0=0", "1=0", "2=0"}).substr(0, 4), "VST3");
    options.stdinBytes = sine16(8000);
    std::vector<std::string> arguments{"process",    "--vst", path,     "--rate", "44100",
                                       "--channels", "2",     "--bits", "16"};
    EXPECT_GT(peak(runAdapter(arguments, options).out), 19000);
    arguments.insert(arguments.end(), {"--data", layouts.file("settings")});
    EXPECT_LT(peak(runAdapter(arguments, options).out), 2000);
}

// Settings add up: id/value records given in pieces sound as one message holding them all;
// a preset replaces what came before it, and records after it apply on top.
TEST_F(ZaMaximX2, SettingsGivenInPiecesSoundAsOne) {
    using testing_support::chunk;
    const std::string threshold = saved("threshold", {"2=0"}),
                      all = saved("all", {"0=0", "1=0", "2=0"});
    // Release and ceiling (ids 4 and 5), then threshold (id 6).
    const auto a = testing_support::idValueRecords({{4, 0.0}, {5, 0.0}});
    const auto b = testing_support::idValueRecords({{6, 0.0}});
    scratch::writeFile(layouts.file("records"), a);
    const std::string audio = chunk(1, sine16(4000)), reopen = chunk(5, "");
    struct Case {
        const char* name;
        std::string pieces;
        bool recordsFile; // `a` as the settings file
        std::string whole;
    };
    const Case cases[] = {
        {"TwoMessages", chunk(2, a) + chunk(2, b), false, chunk(2, a + b)},
        {"FileThenMessage", chunk(2, b), true, chunk(2, a + b)},
        {"AfterAudio", audio + chunk(2, a) + chunk(2, b), false, audio + chunk(2, a + b)},
        {"AfterReopen", audio + reopen + chunk(2, a) + chunk(2, b), false,
         audio + reopen + chunk(2, a + b)},
        {"PresetReplacesRecords", chunk(2, a) + chunk(2, threshold), false, chunk(2, threshold)},
        {"RecordsOnAPreset", chunk(2, threshold) + chunk(2, a + b), false, chunk(2, all)},
    };
    const std::vector<std::string> chunked{"process", "--vst",  path, "--protocol",
                                           "chunked", "--bits", "16"};
    for (const Case& c : cases) {
        auto arguments = chunked;
        if (c.recordsFile)
            arguments.insert(arguments.end(), {"--data", layouts.file("records")});
        const std::string format = testing_support::formatMessage(44100, 2, 3, 2, 3);
        options.stdinBytes = format + c.pieces + audio;
        const auto pieces = runAdapter(arguments, options);
        options.stdinBytes = format + c.whole + audio;
        const auto whole = runAdapter(chunked, options);
        EXPECT_EQ(pieces.exitStatus + whole.exitStatus, 0) << c.name << pieces.err << whole.err;
        EXPECT_TRUE(pieces.out == whole.out) << c.name;
    }
}

} // namespace
