// `validate` through the built binary: each fault of the test plug-ins fails the checks that
// measure it and no other; the clean plug-ins of both kinds pass every check.
#include "tests/common/child_process.h"
#include "tests/common/scratch.h"
#include "tests/common/vst3_bundles.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

namespace {

using testing_support::runAdapter;

struct Outcome {
    testing_support::ChildResult result;
    nlohmann::json report;
    std::set<std::string> failed, warned;
};

Outcome validate(const std::string& path, const std::string& words,
                 std::vector<std::string> more = {}, const char* wordsVariable = "TEST_EFFECT") {
    testing_support::ChildOptions options;
    options.environment[wordsVariable] = words;
    options.environment["DISPLAY"] = std::nullopt;
    // A crashing plug-in must die by its signal, also under AddressSanitizer.
    const char* asan = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] = std::string(asan ? asan : "") + ":handle_segv=0";
    options.timeoutSeconds = 120;
    std::vector<std::string> arguments = {"validate", "--vst", path, "--level", "1"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    Outcome outcome{runAdapter(arguments, options), {}, {}, {}};
    outcome.report = nlohmann::json::parse(outcome.result.out, nullptr, false);
    if (outcome.report.is_object())
        for (const auto& check : outcome.report["checks"]) {
            const std::string id = check["id"], status = check["status"];
            if (status == "fail" || status == "warn")
                (status == "fail" ? outcome.failed : outcome.warned).insert(id);
        }
    return outcome;
}

struct FaultCase {
    const char* words;
    std::set<std::string> failing;
    const char* warns = ""; // a check that must warn
    const char* says = "";  // words the failing or warning check's message must hold
};

std::string messages(const nlohmann::json& report) {
    std::string all;
    for (const auto& check : report["checks"])
        all += check["message"].get<std::string>() + "\n";
    return all;
}

// The test effect's fault words, and exactly the checks each must fail.
const FaultCase faultCases[] = {
    {"", {}},
    // Pins the host leaves unconnected: its own silent channels must not be made on the audio
    // thread.
    {"sidechain", {}},
    {"leak=1024", {"load"}},
    {"latency=-5", {"info"}},
    {"denormal", {"process"}},
    {"block-dependent", {"block-size"}},
    {"delay=64,latency=0", {"latency"}},
    {"echo=2000,tail=1", {"tail"}},
    {"chunks,params=3,chunk-ignored", {"state"}},
    {"params=3,nan-at-max", {"parameters"}},
    {"slow", {"speed"}},
    {"delay=64,keep-on-resume", {}, "suspend-resume"},
    {"allocate", {"realtime-safety"}, "", "`malloc` from breakRealtimeRules"},
    {"allocate-at-start", {}, "realtime-safety", "in the first 16 process calls only"},
    {"lock", {"realtime-safety"}, "", "`pthread_mutex_lock` from"},
    {"sleep", {"realtime-safety"}, "", "`nanosleep` from"},
    {"file-io", {"realtime-safety"}, "", "`read` from breakRealtimeRules"},
    {"audio-thread-callback", {}, "threads", "(the editor's size) from another thread"},
    {"params=3,remote-set-lost", {"threads"}, "", "a value never arrived: parameter 0 (Gain)"},
    {"arrangement-breaks", {"bus-layouts"}, "", "NaN or infinity in the output with 1x1"},
    // Each instance adds its own offset: every check that compares instances says so, and a
    // later instance given silence is heard.
    {"unseeded", {"determinism", "process", "block-size", "state", "reopen"}},
    {"crash-at=process",
     {"load", "process", "block-size", "determinism", "latency", "tail", "state", "parameters",
      "speed", "reopen", "suspend-resume", "realtime-safety", "threads", "bus-layouts"}},
};

// Sanitizer builds have no real-time probe: their realtime-safety check skips.
bool haveRealtimeProbe() {
    return std::filesystem::exists(
        std::filesystem::path(testing_support::adapterBinary()).parent_path() /
        "vst-adapter-realtime-probe");
}

// One test per fault, so that the rows run side by side.
class ValidateFault : public testing::TestWithParam<FaultCase> {};

TEST_P(ValidateFault, FailsItsChecksAndNoOther) {
    FaultCase fault = GetParam();
    if (!haveRealtimeProbe() && (fault.failing.erase("realtime-safety") != 0 ||
                                 std::string(fault.warns) == "realtime-safety"))
        fault.warns = fault.says = "";
    const Outcome outcome = validate(TEST_EFFECT_PATH, fault.words);
    ASSERT_TRUE(outcome.report.is_object()) << fault.words << ": " << outcome.result.err;
    EXPECT_EQ(outcome.failed, fault.failing) << fault.words << "\n" << outcome.result.err;
    if (*fault.warns != '\0') {
        EXPECT_EQ(outcome.warned.count(fault.warns), 1u) << fault.words << " " << fault.warns;
    }
    EXPECT_NE(messages(outcome.report).find(fault.says), std::string::npos)
        << fault.words << "\n"
        << messages(outcome.report);
    // The host's own processing path is clean: only the plug-in's faults are caught.
    if (std::string(fault.warns) != "realtime-safety") {
        EXPECT_EQ(outcome.warned.count("realtime-safety"), 0u) << messages(outcome.report);
    }
    EXPECT_EQ(outcome.result.exitStatus, fault.failing.empty() ? 0 : 255) << fault.words;
    EXPECT_EQ(outcome.report["passed"], fault.failing.empty()) << fault.words;
}

INSTANTIATE_TEST_SUITE_P(Words, ValidateFault, testing::ValuesIn(faultCases),
                         [](const testing::TestParamInfo<FaultCase>& info) {
                             std::string name = *info.param.words ? info.param.words : "clean";
                             for (char& c : name)
                                 if (!std::isalnum(static_cast<unsigned char>(c)))
                                     c = '_';
                             return name;
                         });

TEST(Validate, CleanVst3PluginPassesAndCrashesAreResults) {
    testing_support::Vst3Layouts layouts;
    const Outcome clean = validate(layouts.bundle("Gain", TEST_VST3_PATH), "");
    ASSERT_TRUE(clean.report.is_object()) << clean.result.err;
    EXPECT_EQ(clean.report["kind"], "vst3");
    EXPECT_EQ(clean.report["name"], "Test VST3 Gain");
    EXPECT_TRUE(clean.failed.empty()) << clean.result.err;
    EXPECT_EQ(clean.warned.count("realtime-safety"), 0u) << messages(clean.report);
    // The bridge's own processing is clean: what is caught is the plug-in's.
    if (haveRealtimeProbe()) {
        const Outcome allocating = validate(layouts.bundle("Gain", TEST_VST3_PATH), "allocate",
                                            {"--checks", "realtime-safety"}, "TEST_VST3");
        EXPECT_EQ(allocating.failed, std::set<std::string>{"realtime-safety"});
        EXPECT_NE(messages(allocating.report)
                      .find("`malloc` from (anonymous namespace)::Component::process"),
                  std::string::npos)
            << messages(allocating.report);
    }

    // A crash names its signal; a subset runs only what it names, and JUnit says the same.
    const std::string junit = layouts / "report.xml";
    const Outcome crashed = validate(TEST_EFFECT_PATH, "crash-at=process",
                                     {"--checks", "process,info", "--junit", junit});
    ASSERT_EQ(crashed.report["checks"].size(), 2u);
    EXPECT_NE(crashed.report["checks"][0]["message"].get<std::string>().find("SIGSEGV"),
              std::string::npos);
    EXPECT_NE(scratch::readFile(junit).find("<failure message=\"crashed with SIGSEGV"),
              std::string::npos);
    for (const auto& bad : std::vector<std::vector<std::string>>{
             {"--checks", "nonsense"}, {"--level", "4"}, {"--timeout", "0"}})
        EXPECT_EQ(validate(TEST_EFFECT_PATH, "", bad).result.exitStatus, 255) << bad[0];
}

} // namespace

namespace {

// Parameters edited from a second thread while audio runs, through both kinds' host paths; the
// thread sanitizer build runs this too, where a race of ours ends the check's child.
TEST(ValidateThreads, BothKindsTakeEditsWhileAudioRuns) {
    testing_support::Vst3Layouts layouts;
    const std::pair<std::string, const char*> plugins[] = {
        {TEST_EFFECT_PATH, "TEST_EFFECT"}, {layouts.bundle("Gain", TEST_VST3_PATH), "TEST_VST3"}};
    for (const auto& [path, variable] : plugins) {
        const Outcome outcome =
            validate(path, std::string(variable) == "TEST_EFFECT" ? "params=4,host-calls" : "",
                     {"--checks", "threads"}, variable);
        ASSERT_TRUE(outcome.report.is_object()) << path << ": " << outcome.result.err;
        EXPECT_EQ(outcome.report["checks"][0]["status"], "pass")
            << path << ": " << messages(outcome.report) << outcome.result.err;
    }
}

} // namespace
