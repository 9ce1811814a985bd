#include "tests/common/child_process.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

using testing_support::ChildOptions;
using testing_support::runAdapter;

ChildOptions withEffect(const std::string& words, const std::string& log = "") {
    ChildOptions options;
    options.environment["TEST_EFFECT"] = words;
    options.environment["DISPLAY"] = std::nullopt;
    // A crashing plug-in must die by its signal, also under AddressSanitizer.
    const char* asan = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] = std::string(asan ? asan : "") + ":handle_segv=0";
    if (!log.empty())
        options.environment["TEST_EFFECT_LOG"] = log;
    return options;
}

struct LoadCase {
    const char* name;
    std::string plugin;
    std::string words;
    std::vector<std::string> extra;
    int status;
    std::string err; // "%s" is replaced by the plug-in path
    std::string command = "test";
};

std::string expand(std::string text, const std::string& path) {
    for (auto at = text.find("%s"); at != std::string::npos; at = text.find("%s", at + path.size()))
        text.replace(at, 2, path);
    return text;
}

class TestPluginLoading : public testing::TestWithParam<LoadCase> {};

TEST_P(TestPluginLoading, StatusAndMessages) {
    const auto& c = GetParam();
    std::vector<std::string> arguments{c.command, "--vst", c.plugin};
    arguments.insert(arguments.end(), c.extra.begin(), c.extra.end());
    const auto result = runAdapter(arguments, withEffect(c.words));
    EXPECT_EQ(result.exitStatus, c.status);
    EXPECT_EQ(result.err, expand(c.err, c.plugin));
    EXPECT_EQ(result.out, "");
}

const std::string refused = "Could not load VST: %s\nCould not open VST.";

INSTANTIATE_TEST_SUITE_P(
    Table, TestPluginLoading,
    testing::Values(
        LoadCase{"Default", TEST_EFFECT_PATH, "", {}, 0, ""},
        LoadCase{"MainOnly", TEST_EFFECT_MAIN_ONLY_PATH, "", {}, 0, ""},
        LoadCase{"NoEntry", TEST_EFFECT_NO_ENTRY_PATH, "", {}, 255, refused},
        LoadCase{"UnresolvedSymbolSaysWhy",
                 TEST_EFFECT_UNRESOLVED_PATH,
                 "",
                 {},
                 255,
                 "%s: undefined symbol: testEffectMissingFunction\n"
                 "Could not load VST bundle: %s\nCould not open VST."},
        LoadCase{"NullRecord", TEST_EFFECT_PATH, "null", {}, 255, refused},
        LoadCase{"WrongMagic", TEST_EFFECT_PATH, "bad-magic", {}, 255, refused},
        LoadCase{"Instrument", TEST_EFFECT_PATH, "synth", {}, 255, refused},
        LoadCase{"ThrowsInEntry", TEST_EFFECT_PATH, "throw-entry", {}, 255, refused},
        LoadCase{"ThrowsInOpen", TEST_EFFECT_PATH, "throw-open", {}, 255, refused},
        LoadCase{"ThrowsInResumeStillLoads", TEST_EFFECT_PATH, "throw-resume", {}, 0, ""},
        LoadCase{"PrintsToStandardOutput", TEST_EFFECT_PATH, "print", {}, 0, ""},
        LoadCase{"AbsurdPinCount", TEST_EFFECT_PATH, "inputs=2000000000", {}, 255, refused},
        LoadCase{"ExitInOpen",
                 TEST_EFFECT_PATH,
                 "exit-at=open",
                 {},
                 255,
                 "VST called exit (stage: opening)\n"},
        LoadCase{"ExitInClose",
                 TEST_EFFECT_PATH,
                 "exit-at=close",
                 {},
                 255,
                 "VST called exit (stage: closing)\n"},
        LoadCase{"CrashInEntry",
                 TEST_EFFECT_PATH,
                 "crash-at=entry",
                 {},
                 -1,
                 "VST crashed with SIGSEGV (stage: loading)\n"},
        LoadCase{"Version3DoesNotTryVst2",
                 TEST_EFFECT_PATH,
                 "",
                 {"--vst-version", "3"},
                 255,
                 "Could not open VST."},
        LoadCase{"ParamsListsNameValueDisplayLabel",
                 TEST_EFFECT_PATH,
                 "params=2",
                 {},
                 0,
                 "0\tGain\t1\t1.000\tx\n1\tParam1\t0\t0.000\t\n",
                 "params"},
        LoadCase{"ParamsWithoutParameters", TEST_EFFECT_PATH, "no-params", {}, 0, "", "params"}),
    [](const auto& info) { return std::string(info.param.name); });

struct EditorCase {
    const char* name;
    std::string words;
    int status;
};

class HasEditor : public testing::TestWithParam<EditorCase> {};

TEST_P(HasEditor, EditorOrParametersCount) {
    const auto result =
        runAdapter({"has-editor", "--vst", TEST_EFFECT_PATH}, withEffect(GetParam().words));
    EXPECT_EQ(result.exitStatus, GetParam().status) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
}

INSTANTIATE_TEST_SUITE_P(Table, HasEditor,
                         testing::Values(EditorCase{"ParametersOnly", "params=3", 0},
                                         EditorCase{"EditorOnly", "no-params,editor", 0},
                                         EditorCase{"Neither", "no-params", 255}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Info, NegativeCountsPrintZeroAndNoPins) {
    const auto result =
        runAdapter({"info", "--vst", TEST_EFFECT_PATH}, withEffect("inputs=-1,outputs=1"));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.err.rfind(
                  "Number of inputs: 0\nNumber of outputs: 1\n  Output 0:\n    .label = ", 0),
              0u)
        << result.err;
    EXPECT_EQ(result.out, "");
}

TEST(Info, ReportGoesToStandardErrorEvenWithAnOutputFile) {
    const std::string target =
        std::filesystem::temp_directory_path() / ("info-" + std::to_string(::getpid()));
    const auto result = runAdapter({"info", "--vst", TEST_EFFECT_PATH, "--output", target},
                                   withEffect("sidechain"));
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_NE(result.err.find("Number of inputs: 4\n"), std::string::npos);
    EXPECT_NE(result.err.find("  Input 3:\n"), std::string::npos);
    EXPECT_EQ(std::filesystem::file_size(target), 0u);
    std::filesystem::remove(target);
}

// What the plug-in heard from the host while loading, one "key value" line each.
std::string loadLog(const std::vector<std::string>& extra) {
    const std::string log =
        std::filesystem::temp_directory_path() / ("effect-log-" + std::to_string(::getpid()));
    std::filesystem::remove(log);
    std::vector<std::string> arguments{"test", "--vst", TEST_EFFECT_PATH};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    const auto result = runAdapter(arguments, withEffect("", log));
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    std::ifstream in(log);
    std::stringstream text;
    text << in.rdbuf();
    std::filesystem::remove(log);
    return text.str();
}

bool hasLine(const std::string& log, const std::string& line) {
    return ("\n" + log).find("\n" + line + "\n") != std::string::npos;
}

TEST(HostAnswers, WhatThePlugInHearsWhileLoading) {
    const std::string log = loadLog({});
    for (const char* line :
         {"entry VSTPluginMain", "hostVersion 2400", "hostSampleRate 44100", "hostBlockSize 512",
          "hostProcessLevel 4", "hostVendor Marrowvale", "hostProduct Marrowvale VST Adapter",
          "hostVendorVersion 1", "hostCanDo sendVstTimeInfo 1", "hostCanDo sizeWindow 1",
          "hostCanDo supplyIdle 1", "hostCanDo receiveVstMidiEvent 0"})
        EXPECT_TRUE(hasLine(log, line)) << line << "\n" << log;
}

TEST(HostAnswers, RateFromTheCommandLineReachesTheVst2Path) {
    const std::string log = loadLog({"--rate", "48000", "--process", "realtime"});
    // Inside its entry function the plug-in has no host object yet, so it hears the defaults.
    EXPECT_TRUE(hasLine(log, "hostProcessLevel 4")) << log;
    EXPECT_TRUE(hasLine(log, "hostSampleRate 44100")) << log;
    // The rate is sent right after effOpen, so the plug-in sees it from then on.
    EXPECT_NE(log.find("dispatch 10 0 0 48000"), std::string::npos) << log;
}

} // namespace
