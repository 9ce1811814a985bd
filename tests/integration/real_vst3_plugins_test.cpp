// A real VST 3 limiter from Debian's zam-plugins through the built binary. Skipped when absent.
#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/sample_bytes.h"
#include "tests/common/scratch.h"
#include "tests/common/vst3_bundles.h"

#include <gtest/gtest.h>

#include <cmath>
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

// Settings change the sound and add up: id/value records given in pieces (a settings file, then
// messages; before and after audio; after a reopen) sound as one message holding them all; a
// preset replaces what came before it, and records after it apply on top.
TEST(ZaMaximX2, SettingsGivenInPiecesSoundAsOne) {
    const std::string path = "/usr/lib/vst3/ZaMaximX2.vst3";
    if (!std::filesystem::exists(path))
        GTEST_SKIP() << "zam-plugins is not installed";
    testing_support::Vst3Layouts layouts;
    auto options = testing_support::headless();
    // Release, output ceiling and threshold (by index) all to 0, saved as the plug-in's preset.
    const std::string presetFile = layouts / "preset", dataFile = layouts / "data";
    ASSERT_EQ(testing_support::runChild(SETTINGS_PROBE_PATH,
                                        {path, presetFile, "0=0", "1=0", "2=0"}, options)
                  .exitStatus,
              0);
    const std::string all = scratch::readFile(presetFile);
    EXPECT_EQ(all.substr(0, 4), "VST3");
    // The same by id: release and ceiling (4 and 5), threshold (6); and release back up.
    using testing_support::idValueRecords;
    const auto a = idValueRecords({{4, 0.0}, {5, 0.0}}), b = idValueRecords({{6, 0.0}});
    const auto up = idValueRecords({{4, 1.0}});
    using testing_support::chunk;
    const std::string audio = chunk(1, sine16(4000)), reopen = chunk(5, "");
    struct Case {
        const char* name;
        std::string file, pieces, whole; // file: the settings file of the run in pieces
    };
    const Case cases[] = {
        {"TwoMessages", "", chunk(2, a) + chunk(2, b), chunk(2, a + b)},
        {"FileThenMessage", a, chunk(2, b), chunk(2, a + b)},
        {"AfterAudio", "", audio + chunk(2, a) + chunk(2, b), audio + chunk(2, a + b)},
        {"AfterReopen", "", audio + reopen + chunk(2, a) + chunk(2, b),
         audio + reopen + chunk(2, a + b)},
        {"PresetReplacesRecords", "", chunk(2, up) + chunk(2, all), chunk(2, all)},
        {"RecordsOnAPresetFile", all, chunk(2, up), chunk(2, a + b + up)},
    };
    const std::vector<std::string> chunked{"process", "--vst",  path, "--protocol",
                                           "chunked", "--bits", "16"};
    auto withFile = chunked;
    withFile.insert(withFile.end(), {"--data", dataFile});
    const std::string format = chunk(3, testing_support::formatRecord(44100, 2, 3, 2, 3));
    options.stdinBytes = format + audio;
    const std::string untouched = runAdapter(chunked, options).out;
    for (const Case& c : cases) {
        scratch::writeFile(dataFile, c.file); // empty: no settings
        options.stdinBytes = format + c.pieces + audio;
        const auto pieces = runAdapter(withFile, options);
        options.stdinBytes = format + c.whole + audio;
        const auto whole = runAdapter(chunked, options);
        EXPECT_EQ(pieces.exitStatus + whole.exitStatus, 0) << c.name << pieces.err << whole.err;
        EXPECT_TRUE(pieces.out == whole.out && whole.out != untouched) << c.name;
    }
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
