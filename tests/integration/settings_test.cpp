// Settings files and state messages, end to end: what reaches the plug-in, when, and that the
// sound follows the settings.

#include "audio/stream_format.h"
#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/real_plugins.h"
#include "tests/common/scratch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using testing_support::ChildOptions;
using testing_support::chunk;
using testing_support::formatRecord;
using testing_support::runAdapter;
using testing_support::runChild;

using scratch::readFile;

// A folder of its own per test, with named files in it.
class Scratch : public scratch::Folder {
  public:
    std::string file(const std::string& name, const std::string& bytes) const {
        const auto path = *this / name;
        scratch::writeFile(path, bytes);
        return path;
    }
    std::string path(const std::string& name) const { return *this / name; }
};

std::string floats(std::initializer_list<float> values) {
    return {reinterpret_cast<const char*>(std::data(values)), values.size() * sizeof(float)};
}

// The in-tree plug-in's chunk: its tag, the parameter count, the values.
std::string testChunk(std::initializer_list<float> values, const char* tag = "TEch") {
    const auto count = static_cast<uint32_t>(values.size());
    return std::string(tag, 4) + std::string(reinterpret_cast<const char*>(&count), 4) +
           floats(values);
}

// 16-bit stereo whose samples are even, so that halving them is exact.
std::string evenSamples(size_t frames) {
    std::mt19937 random(7);
    std::string bytes;
    for (size_t i = 0; i < frames * 2; ++i) {
        const auto value = static_cast<int16_t>(static_cast<int16_t>(random()) & ~1);
        bytes.append(reinterpret_cast<const char*>(&value), 2);
    }
    return bytes;
}

std::string scaled(const std::string& samples, float gain) {
    std::string out = samples;
    for (size_t at = 0; at + 2 <= out.size(); at += 2) {
        int16_t value;
        std::memcpy(&value, out.data() + at, 2);
        value = static_cast<int16_t>(std::lround(value * gain));
        std::memcpy(out.data() + at, &value, 2);
    }
    return out;
}

ChildOptions testEffect(const std::string& words, std::string input = "",
                        const std::string& log = "") {
    ChildOptions options;
    options.environment["TEST_EFFECT"] = words;
    options.environment["DISPLAY"] = std::nullopt;
    if (!log.empty())
        options.environment["TEST_EFFECT_LOG"] = log;
    options.stdinBytes = std::move(input);
    return options;
}

std::vector<std::string> processArguments(const std::string& plugin, const std::string& dataPath,
                                          int channels = 2, uint32_t rate = 44100) {
    return {"process",
            "--vst",
            plugin,
            "--rate",
            std::to_string(rate),
            "--channels",
            std::to_string(channels),
            "--bits",
            "16",
            "--data",
            dataPath};
}

struct DataFileCase {
    const char* name;
    std::string words;
    std::string content; // empty: no file at all
    float gain;          // the sound that results
};

void PrintTo(const DataFileCase& c, std::ostream* out) {
    *out << c.name;
}

std::string randomBytes(size_t count) {
    std::mt19937 random(99);
    std::string bytes(count, '\0');
    for (auto& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

class DataFile : public testing::TestWithParam<DataFileCase> {};

TEST_P(DataFile, SetsTheSoundAndIsNeverChangedByReading) {
    const auto& c = GetParam();
    Scratch scratch;
    const auto path =
        c.content.empty() ? scratch.path("absent") : scratch.file("settings", c.content);
    const std::string input = evenSamples(1500);

    const auto result =
        runAdapter(processArguments(TEST_EFFECT_PATH, path), testEffect(c.words, input));

    EXPECT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(result.out == scaled(input, c.gain)) << "output is not the input times " << c.gain;
    EXPECT_EQ(readFile(path), c.content);
    if (c.content.empty()) {
        EXPECT_FALSE(fs::exists(path)) << "reading must not create the file";
    }
}

INSTANTIATE_TEST_SUITE_P(
    TestPlugin, DataFile,
    testing::Values(
        DataFileCase{"Parameters", "params=2", floats({0.5f, 0.0f}), 0.5f},
        DataFileCase{"ShortParameterFile", "params=3", floats({0.5f}), 0.5f},
        DataFileCase{"LongParameterFile", "params=1", floats({0.5f, 3.0f, 9.0f}) + "x", 0.5f},
        DataFileCase{"Chunk", "chunks,params=2", testChunk({0.5f, 0.0f}), 0.5f},
        DataFileCase{"RefusedChunk", "chunks,params=2", testChunk({0.5f, 0.0f}, "XXXX"), 1.0f},
        DataFileCase{"TruncatedChunk", "chunks,params=2", testChunk({0.5f, 0.0f}).substr(0, 13),
                     1.0f},
        DataFileCase{"RandomBytesToAChunkPlugIn", "chunks,params=2", randomBytes(4096), 1.0f},
        DataFileCase{"NoFile", "params=1", "", 1.0f},
        DataFileCase{"NothingToConfigure", "no-params", floats({0.5f}), 1.0f}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(DataFile, EmptyFileAndEmptyPathApplyNothing) {
    Scratch scratch;
    const std::string input = evenSamples(100);
    for (const std::string& path : {scratch.file("empty", ""), std::string()}) {
        const auto result =
            runAdapter(processArguments(TEST_EFFECT_PATH, path), testEffect("params=1", input));
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        EXPECT_TRUE(result.out == input) << "path '" << path << "'";
    }
}

// A settings file that does not fit in memory is not mistaken for no settings.
TEST(DataFile, TooBigForMemoryEndsTheRunSayingSo) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers reserve far more address space than the limit";
#endif
    Scratch scratch;
    const auto path = scratch.file("settings", "x");
    fs::resize_file(path, 63 << 20);
    const auto result = runChild("/usr/bin/prlimit",
                                 {"--as=50331648", testing_support::adapterBinary(), "info", "--vst",
                                  TEST_EFFECT_PATH, "--data", path},
                                 testEffect("params=1"));
    EXPECT_EQ(result.exitStatus, 255);
    EXPECT_EQ(result.err, "out of memory\n");
}

TEST(DataFile, ReadByEveryCommandButTestAndHasEditor) {
    struct Case {
        const char* command;
        bool applied;
        int status;
    };
    for (const Case& c :
         {Case{"test", false, 0}, Case{"has-editor", false, 0}, Case{"info", true, 0},
          Case{"process", true, 0}, Case{"frobnicate", true, 255}}) {
        Scratch scratch;
        const auto data = scratch.file("settings", testChunk({0.5f}));
        const auto log = scratch.path("log");
        const auto result = runAdapter({c.command, "--vst", TEST_EFFECT_PATH, "--data", data,
                                        "--rate", "44100", "--channels", "2", "--bits", "16"},
                                       testEffect("chunks,params=1", "", log));
        EXPECT_EQ(result.exitStatus, c.status) << c.command << ": " << result.err;
        EXPECT_EQ(readFile(log).find("chunkSet 12 accepted") != std::string::npos, c.applied)
            << c.command;
    }
}

TEST(StateMessage, AppliesToTheAudioThatFollows) {
    const std::string input = evenSamples(700);
    const std::string stream = chunk(3, formatRecord(44100, 2, 0, 2, 0)) + chunk(1, input) +
                               chunk(2, testChunk({0.5f})) + chunk(1, input) + chunk(2, "") +
                               chunk(1, input);
    const auto result =
        runAdapter({"process", "--vst", TEST_EFFECT_PATH, "--protocol", "chunked", "--bits", "16"},
                   testEffect("chunks,params=1", stream));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    const std::string latency(4, '\0');
    const std::string expected = formatRecord(44100, 2, 3, 2, 3) + input + latency +
                                 scaled(input, 0.5f) + latency + scaled(input, 0.5f) + latency;
    EXPECT_TRUE(result.out == expected) << "reply of " << result.out.size() << " bytes differs";
}

// Real plug-ins: settings saved by one run give the same sound when applied again, whether from a
// file or a state message, and after other settings were applied in between. At a rate the
// plug-in cannot learn while it opens in the chunked run, so that the settings also reach an
// instance opened afresh for the rate.
struct RealPluginCase {
    const char* name;
    const char* path;
    int channels;
    const char* changed; // parameter=value that makes the saved settings differ from the defaults
    const char* other;   // a different change applied in between
};

void PrintTo(const RealPluginCase& c, std::ostream* out) {
    *out << c.name;
}

class RealPluginSettings : public testing::TestWithParam<RealPluginCase> {
  protected:
    void SetUp() override {
        if (!fs::exists(GetParam().path))
            GTEST_SKIP() << GetParam().path << " is not installed (scripts/setup installs it)";
    }

    std::string settings(const char* assignment) {
        const auto path = scratch.path(std::string("settings-") + assignment);
        const auto result = runChild(SETTINGS_PROBE_PATH, {GetParam().path, path, assignment},
                                     testing_support::headless());
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        return path;
    }

    std::string loudSignal(size_t frames) const {
        std::string bytes;
        for (size_t i = 0; i < frames; ++i)
            for (int c = 0; c < GetParam().channels; ++c) {
                const auto value = static_cast<int16_t>(
                    24000.0 * std::sin(0.03 * static_cast<double>(i) * (c + 1)));
                bytes.append(reinterpret_cast<const char*>(&value), 2);
            }
        return bytes;
    }

    Scratch scratch;
};

TEST_P(RealPluginSettings, SavedSettingsGiveTheSameSoundAgain) {
    const auto& c = GetParam();
    const std::string changed = settings(c.changed);
    const std::string other = settings(c.other);
    const std::string input = loudSignal(44100);
    auto options = testing_support::headless();
    options.stdinBytes = input;

    const uint32_t rate = 48000;
    const auto fromFile = runAdapter(processArguments(c.path, changed, c.channels, rate), options);
    ASSERT_EQ(fromFile.exitStatus, 0) << fromFile.err;
    // Plain framing adds the tail after the audio.
    ASSERT_GE(fromFile.out.size(), input.size());
    const std::string audio = fromFile.out.substr(0, input.size());
    const auto withOther = runAdapter(processArguments(c.path, other, c.channels, rate), options);
    ASSERT_EQ(withOther.exitStatus, 0) << withOther.err;
    EXPECT_NE(withOther.out.substr(0, input.size()), audio)
        << "the settings do not change the sound: the test proves nothing";

    // The same through state messages, with the other settings applied first and replaced.
    const auto channels = static_cast<uint32_t>(c.channels);
    options.stdinBytes = chunk(2, readFile(other)) + chunk(2, readFile(changed)) +
                         chunk(3, formatRecord(rate, channels, effectiveMask(channels, 0), channels,
                                               effectiveMask(channels, 0))) +
                         chunk(1, input);
    const auto fromMessages =
        runAdapter({"process", "--vst", c.path, "--protocol", "chunked", "--bits", "16"}, options);
    ASSERT_EQ(fromMessages.exitStatus, 0) << fromMessages.err;
    ASSERT_EQ(fromMessages.out.size(), 20 + input.size() + 4);
    EXPECT_TRUE(fromMessages.out.substr(20, input.size()) == audio)
        << "state messages and --data disagree";
}

INSTANTIATE_TEST_SUITE_P(
    Installed, RealPluginSettings,
    testing::Values(
        RealPluginCase{"LspCompressorChunk", "/usr/lib/vst/lsp-plugins/compressor-stereo.so", 2,
                       "2=0.9", "2=0.1"},
        RealPluginCase{"ZamEqParameters", "/usr/lib/vst/ZamEQ2-vst.so", 1, "0=0.9", "0=0.2"}),
    [](const auto& info) { return std::string(info.param.name); });

} // namespace
