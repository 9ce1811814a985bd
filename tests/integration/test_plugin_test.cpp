// The adapter driving the in-tree VST 2 test plug-in through the binary: loading and refusing,
// plug-ins that misbehave, the tail and latency rules, settings files and state messages.

#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/sample_bytes.h"
#include "tests/common/scratch.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

namespace {

using testing_support::ChildOptions;
using testing_support::chunk;
using testing_support::formatRecord;
using testing_support::readU32;
using testing_support::runAdapter;

ChildOptions effect(const std::string& words, std::string input = "", const std::string& log = "") {
    ChildOptions options;
    options.environment["TEST_EFFECT"] = words;
    options.environment["DISPLAY"] = std::nullopt;
    // A crashing plug-in must die by its signal, also under AddressSanitizer.
    const char* asan = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] = std::string(asan ? asan : "") + ":handle_segv=0";
    if (!log.empty())
        options.environment["TEST_EFFECT_LOG"] = log;
    options.stdinBytes = std::move(input);
    return options;
}

// The plug-in's chunk: its tag, the parameter count, the values.
std::string testChunk(std::initializer_list<float> values, const char* tag = "TEch") {
    const auto count = static_cast<uint32_t>(values.size());
    return std::string(tag, 4) + std::string(reinterpret_cast<const char*>(&count), 4) +
           testing_support::bytesOf<float>(values);
}

std::string stereo(size_t frames, int scale = 1) {
    return testing_support::evenSamples16(frames * 2, scale);
}

std::vector<std::string> plain(const std::string& plugin = TEST_EFFECT_PATH) {
    return {"process", "--vst", plugin, "--rate", "44100", "--channels", "2", "--bits", "16"};
}

const std::vector<std::string> chunkedRun{
    "process", "--vst", TEST_EFFECT_PATH, "--protocol", "chunked", "--bits", "16"};

struct LoadCase {
    const char* name;
    std::vector<std::string> arguments;
    std::string words;
    int status;
    std::string err; // "%s" is replaced by the plug-in path
};

class TestPluginCommands : public testing::TestWithParam<LoadCase> {};

TEST_P(TestPluginCommands, StatusAndMessages) {
    const auto& c = GetParam();
    const auto result = runAdapter(c.arguments, effect(c.words));
    std::string err = c.err;
    for (auto at = err.find("%s"); at != std::string::npos; at = err.find("%s"))
        err.replace(at, 2, c.arguments[2]);
    EXPECT_EQ(result.exitStatus, c.status);
    EXPECT_EQ(result.err.substr(0, err.size()), err);
    EXPECT_EQ(result.out, "");
}

const std::string refused = "Could not load VST: %s\nCould not open VST.";
const std::string threw = "VST threw an exception (stage: ";
const std::vector<std::string> test{"test", "--vst", TEST_EFFECT_PATH};
const std::vector<std::string> hasEditor{"has-editor", "--vst", TEST_EFFECT_PATH};
const std::vector<std::string> infoCommand{"info", "--vst", TEST_EFFECT_PATH};
const std::vector<std::string> paramsCommand{"params", "--vst", TEST_EFFECT_PATH};

INSTANTIATE_TEST_SUITE_P(
    Table, TestPluginCommands,
    testing::Values(
        LoadCase{"MainOnly", {"test", "--vst", TEST_EFFECT_MAIN_ONLY_PATH}, "", 0, ""},
        LoadCase{"NoEntry", {"test", "--vst", TEST_EFFECT_NO_ENTRY_PATH}, "", 255, refused},
        LoadCase{"UnresolvedSymbolSaysWhy",
                 {"test", "--vst", TEST_EFFECT_UNRESOLVED_PATH},
                 "",
                 255,
                 "%s: undefined symbol: testEffectMissingFunction\n"
                 "Could not load VST bundle: %s\nCould not open VST."},
        LoadCase{"NullRecord", test, "null", 255, refused},
        LoadCase{"WrongMagic", test, "bad-magic", 255, refused},
        LoadCase{"Instrument", test, "synth", 255, refused},
        LoadCase{"ThrowsInEntry", test, "throw-at=entry", 255, refused},
        LoadCase{"ThrowsInOpen", test, "throw-at=open", 255, refused},
        LoadCase{"ThrowsInResumeStillLoads", test, "throw-resume", 0, ""},
        LoadCase{"AbsurdPinCount", test, "inputs=2000000000", 255, refused},
        LoadCase{"ExitInOpen", test, "exit-at=open", 255, "VST called exit (stage: opening)\n"},
        LoadCase{"ExitInClose", test, "exit-at=close", 255, "VST called exit (stage: closing)\n"},
        LoadCase{"ThrowInClose", test, "throw-at=close", 255, threw + "closing)\n"},
        LoadCase{"ThrowWhileListing", paramsCommand, "throw-at=params", 255, threw + "listing)\n"},
        LoadCase{"CrashInEntry", test, "crash-at=entry", -1,
                 "VST crashed with SIGSEGV (stage: loading)\n"},
        LoadCase{"ParamsListsNameValueDisplayLabel", paramsCommand, "params=2", 0,
                 "0\tGain\t1\t1.000\tx\n1\tParam1\t0\t0.000\t\n"},
        // A real plug-in's values need all the digits that read back as the same float.
        LoadCase{"ParamsWriteShortestExactValues",
                 {"params", "--vst", "/usr/lib/vst/ZaMaximX2-vst.so"},
                 "",
                 0,
                 "0\tRelease\t0.24242425\t25.000000\tms\n1\tOutput Ceiling\t1\t"},
        LoadCase{"HasEditorWithParametersOnly", hasEditor, "params=3", 0, ""},
        LoadCase{"HasEditorWithEditorOnly", hasEditor, "no-params,editor", 0, ""},
        LoadCase{"HasEditorWithNeither", hasEditor, "no-params", 255, ""},
        LoadCase{"InfoPrintsNegativeCountsAsZero", infoCommand, "inputs=-1,outputs=1", 0,
                 "Number of inputs: 0\nNumber of outputs: 1\n  Output 0:\n    .label = "}),
    [](const auto& info) { return std::string(info.param.name); });

// Plain processing: the output is the input's frames, changed as the row says, then the tail.
// The input is two blocks; a plug-in that exits at the second lets the first block out, one that
// crashes leaves no safe moment to send it.
struct ProcessCase {
    const char* name;
    std::string words;
    int status;
    int signal;
    std::string err;
    std::string out;
};

class TestPluginProcess : public testing::TestWithParam<ProcessCase> {};

TEST_P(TestPluginProcess, OutputAndStatusTellTheTruth) {
    const auto& c = GetParam();
    const auto result = runAdapter(plain(), effect(c.words, stereo(1000)));
    EXPECT_EQ(result.exitStatus, c.status);
    EXPECT_EQ(result.signal, c.signal);
    EXPECT_EQ(result.err, c.err);
    EXPECT_TRUE(result.out == c.out) << result.out.size() << " bytes";
}

INSTANTIATE_TEST_SUITE_P(
    Table, TestPluginProcess,
    testing::Values(
        ProcessCase{"ExitWhileProcessing", "exit-at=process,tail=1", 255, 0,
                    "VST called exit (stage: processing)\n", stereo(512)},
        ProcessCase{"ThrowWhileProcessing", "throw-at=process,tail=1", 255, 0,
                    threw + "processing)\n", stereo(512)},
        ProcessCase{"CrashWhileProcessing", "crash-at=process", -1, SIGSEGV,
                    "VST crashed with SIGSEGV (stage: processing)\n", ""},
        ProcessCase{"NullFunctionsAreAbsent", "null-functions,tail=1", 0, 0, "", stereo(1000)},
        ProcessCase{"PrintingLeavesTheDataIntact", "print,tail=1", 0, 0, "", stereo(1000)},
        // Unconnected pins get silence every block, though the plug-in writes into them.
        ProcessCase{"SideChainPinsAreSilent", "sidechain,tail=1", 0, 0, "", stereo(1000)},
        ProcessCase{"DelayComesBackThroughTheTail", "delay=100", 0, 0, "",
                    std::string(400, '\0') + stereo(1000)},
        ProcessCase{"TailOfOneMeansNone", "delay=100,tail=1", 0, 0, "",
                    std::string(400, '\0') + stereo(900)}),
    [](const auto& info) { return std::string(info.param.name); });

// A tail that never falls silent lasts a tenth of a second when the plug-in names none.
TEST(TestPluginTail, DefaultTailIsATenthOfASecond) {
    const auto result = runAdapter(plain(), effect("hum,no-params", stereo(1000)));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.out.size(), (1000 + 4410) * 4u);
}

// Chunked: the latency reply, the tail request, a reopened instance starting afresh.
TEST(TestPluginChunked, LatencyTailAndReopen) {
    const std::string audio = stereo(600);
    const std::string record = formatRecord(44100, 2, 3, 2, 3);
    const std::string stream = chunk(3, record) + chunk(1, audio) + chunk(4, "") + chunk(5, "") +
                               chunk(3, record) + chunk(1, audio);
    const auto result = runAdapter(chunkedRun, effect("delay=64", stream));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    const uint32_t latency = 64, tailBytes = 64 * 4;
    const std::string latencyBytes(reinterpret_cast<const char*>(&latency), 4);
    const std::string delayed =
        record + std::string(256, '\0') + audio.substr(0, audio.size() - 256) + latencyBytes;
    const std::string expected = delayed +
                                 std::string(reinterpret_cast<const char*>(&tailBytes), 4) +
                                 audio.substr(audio.size() - 256) + delayed;
    EXPECT_TRUE(result.out == expected) << result.out.size() << " vs " << expected.size();
}

TEST(TestPluginChunked, NegativeLatencyIsAnsweredAsNone) {
    const std::string audio = stereo(100);
    const auto result =
        runAdapter(chunkedRun, effect("latency=-5",
                                      chunk(3, formatRecord(44100, 2, 3, 2, 3)) + chunk(1, audio)));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    ASSERT_EQ(result.out.size(), 20 + audio.size() + 4);
    EXPECT_EQ(readU32(result.out, 20 + audio.size()), 0u);
}

// A settings file sets the sound and is never changed by reading it.
TEST(TestPluginSettings, FileSetsTheSound) {
    struct Case {
        const char* name;
        std::string words;
        std::string content; // empty: no file at all
        bool halved;
    };
    const Case cases[] = {
        {"Parameters", "params=2", testing_support::bytesOf<float>({0.5f, 0.0f}), true},
        {"Chunk", "chunks,params=2", testChunk({0.5f, 0.0f}), true},
        {"RefusedChunk", "chunks,params=2", testChunk({0.5f, 0.0f}, "XXXX"), false},
        {"TruncatedChunk", "chunks,params=2", testChunk({0.5f, 0.0f}).substr(0, 13), false},
        {"NoFile", "params=1", "", false},
        {"EmptyFile", "params=1", "\0", false},
        {"NothingToConfigure", "no-params", testing_support::bytesOf<float>({0.5f}), false},
    };
    for (const Case& c : cases) {
        scratch::Folder folder;
        const auto path = folder / "settings";
        const std::string content = c.content == std::string("\0") ? "" : c.content;
        if (!c.content.empty())
            scratch::writeFile(path, content);
        auto arguments = plain();
        arguments.insert(arguments.end(), {"--data", path});
        const auto result = runAdapter(arguments, effect(c.words + ",tail=1", stereo(1000)));
        EXPECT_EQ(result.exitStatus, 0) << c.name << ": " << result.err;
        EXPECT_TRUE(result.out == stereo(1000, c.halved ? 2 : 1)) << c.name;
        EXPECT_EQ(scratch::readFile(path), content) << c.name;
        EXPECT_EQ(scratch::exists(path), !c.content.empty()) << c.name;
    }
}

TEST(TestPluginSettings, ReadByEveryCommandButTestAndHasEditor) {
    for (const auto& [command, applied] :
         {std::pair{"test", false}, {"has-editor", false}, {"info", true}, {"process", true}}) {
        scratch::Folder folder;
        scratch::writeFile(folder / "settings", testChunk({0.5f}));
        const auto result =
            runAdapter({command, "--vst", TEST_EFFECT_PATH, "--data", folder / "settings", "--rate",
                        "44100", "--channels", "2", "--bits", "16"},
                       effect("chunks,params=1", "", folder / "log"));
        EXPECT_EQ(result.exitStatus, 0) << command << ": " << result.err;
        EXPECT_EQ(scratch::readFile(folder / "log").find("chunkSet 12 accepted") !=
                      std::string::npos,
                  applied)
            << command;
    }
}

// Settings before any audio are given again, in order, to the instance opened afresh for a rate
// the plug-in could not learn while opening; later ones apply to the audio that follows.
TEST(TestPluginSettings, StateMessageAppliesToTheAudioThatFollows) {
    const std::string input = stereo(700);
    const std::string stream = chunk(2, testChunk({0.0f})) + chunk(2, testChunk({0.5f})) +
                               chunk(3, formatRecord(48000, 2, 0, 2, 0)) + chunk(1, input) +
                               chunk(2, testChunk({1.0f})) + chunk(1, input) + chunk(2, "") +
                               chunk(1, input);
    const auto result = runAdapter(chunkedRun, effect("chunks,params=1", stream));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    const std::string none(4, '\0'), halved = stereo(700, 2);
    EXPECT_TRUE(result.out ==
                formatRecord(48000, 2, 3, 2, 3) + halved + none + input + none + input + none);
}

} // namespace
