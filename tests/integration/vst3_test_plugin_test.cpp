// The in-tree VST 3 test plug-in through the built binary: audio, latency and settings.
#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/sample_bytes.h"
#include "tests/common/vst3_bundles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

using testing_support::evenSamples16;
using testing_support::readLines;
using testing_support::runAdapter;
using testing_support::Vst3Layouts;

struct Run {
    testing_support::ChildResult result;
    std::vector<std::string> log;
};

// `arguments` after "--vst BUNDLE", with TEST_VST3 `words` and `input` on standard input.
Run run(const std::string& command, std::vector<std::string> arguments, const std::string& words,
        std::string input, const std::string& data = "") {
    Vst3Layouts layouts;
    const std::string log = layouts / "log";
    arguments.insert(arguments.begin(), {command, "--vst", layouts.bundle("Gain", TEST_VST3_PATH)});
    if (!data.empty()) {
        std::ofstream(layouts / "settings", std::ios::binary) << data;
        arguments.insert(arguments.end(), {"--data", layouts / "settings"});
    }
    testing_support::ChildOptions options;
    options.environment["TEST_VST3"] = words;
    options.environment["TEST_VST3_LOG"] = log;
    options.environment["DISPLAY"] = std::nullopt;
    options.stdinBytes = std::move(input);
    auto result = runAdapter(arguments, options);
    return {std::move(result), readLines(log)};
}

std::string samples64(size_t count) {
    std::string bytes;
    for (size_t i = 0; i < count; ++i) {
        const double value = std::sin(0.001 * static_cast<double>(i)) * 0.7;
        bytes.append(reinterpret_cast<const char*>(&value), 8);
    }
    return bytes;
}

// The binary is the one named after the bundle, whatever else its folder holds, or a single
// ".vst3" file; a VST 2 module is never tried as VST 3.
TEST(Vst3Layouts, BinaryNamedAfterTheBundleOrASingleFile) {
    Vst3Layouts layouts;
    layouts.bundle("Two", TEST_VST3_PATH, "Other");
    std::filesystem::copy_file(TEST_VST3_PATH, layouts / "Single.vst3");
    for (const auto& [path, status] : std::vector<std::pair<std::string, int>>{
             {layouts.bundle("Two", TEST_VST3_PATH), 0},
             {layouts.bundle("Slash", TEST_VST3_PATH) + "/", 0},
             {layouts / "Single.vst3", 0},
             {layouts.bundle("Renamed", TEST_VST3_PATH, "Other"), 255},
             {TEST_VST3_PATH, 255}})
        EXPECT_EQ(runAdapter({"test", "--vst", path, "--vst-version", "3"}).exitStatus, status)
            << path;
}

TEST(Vst3Process, UnityGainPassesSamplesUnchangedInSingleAndDoublePrecision) {
    struct Case {
        std::string words;
        std::vector<std::string> format;
        std::string input;
        std::string setupLine;
    };
    // The side-chain bus stays inactive and silent.
    for (const auto& c : std::vector<Case>{
             {"", {"--bits", "16"}, evenSamples16(3000), "setupProcessing 2 0 512 44100"},
             {"sidechain", {"--bits", "16"}, evenSamples16(3000), "setupProcessing 2 0 512 44100"},
             {"double",
              {"--bits", "64", "--formattag", "3"},
              samples64(3000),
              "setupProcessing 2 1 512 44100"}}) {
        std::vector<std::string> arguments{"--rate", "44100", "--channels", "2"};
        arguments.insert(arguments.end(), c.format.begin(), c.format.end());
        const auto [result, log] = run("process", arguments, c.words, c.input);
        ASSERT_EQ(result.exitStatus, 0) << result.err;
        // The plug-in's tail is silent, so nothing follows the processed samples.
        EXPECT_EQ(result.out, c.input) << c.words;
        EXPECT_GT(std::ranges::count(log, c.setupLine), 0) << c.words;
        for (const auto& line : log)
            EXPECT_FALSE(line.starts_with("violation")) << line;
    }
}

TEST(Vst3Process, LatencyKnownOnlyOnceActiveReachesTheAudioReply) {
    const std::string audio = evenSamples16(1200);
    const auto [result, log] =
        run("process", {"--bits", "16", "--protocol", "chunked"}, "latency=480",
            testing_support::chunk(3, testing_support::formatRecord(48000, 2, 3, 2, 3)) +
                testing_support::chunk(1, audio));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    // Format echo, samples, latency.
    ASSERT_EQ(result.out.size(), 20 + audio.size() + 4);
    EXPECT_EQ(testing_support::readU32(result.out, 20 + audio.size()), 480u);
}

TEST(Vst3Settings, RecordsChangeTheSoundFromTheFirstBlock) {
    // Gain 0.25 is x 0.5, polarity on inverts; the polarity record is the file's last.
    const std::string input = evenSamples16(1024);
    const auto [result, log] =
        run("process", {"--rate", "44100", "--channels", "1", "--bits", "16"}, "mono", input,
            testing_support::idValueRecords({{100, 0.25}, {7, 1.0}}));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    ASSERT_GE(result.out.size(), input.size());
    for (size_t at = 0; at < input.size(); at += 2) {
        int16_t in = 0, out = 0;
        std::memcpy(&in, input.data() + at, 2);
        std::memcpy(&out, result.out.data() + at, 2);
        ASSERT_NEAR(out, -in / 2.0, 1.0) << "frame " << at / 2;
    }
}

template <typename Number> std::string bytes(Number value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

TEST(Vst3Settings, UnusablePresetsAreReportedBeforeTheReport) {
    // Magic, version 1, a class id and where the chunk list starts; then a list of one entry.
    const std::string header = "VST3" + bytes(int32_t{1}) + std::string(32, 'A');
    const std::string listOfOne = "List" + bytes(int32_t{1}) + "Comp" + bytes(int64_t{0});
    for (const auto& [data, message] : std::vector<std::pair<std::string, std::string>>{
             {"VST3" + std::string(40, '\0'), "the VST 3 preset is damaged"},
             {header + bytes(int64_t{1} << 62), "the VST 3 preset is damaged"},
             {header + bytes(int64_t{48}) + listOfOne + bytes(int64_t{48}),
              "the VST 3 preset is for another plug-in"}}) {
        const auto [result, log] = run("info", {}, "", "", data);
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.err.rfind("Settings not applied: " + message + "\nNumber of inputs", 0),
                  0u)
            << result.err;
    }
}

} // namespace
