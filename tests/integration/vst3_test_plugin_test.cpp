// The in-tree VST 3 test plug-in through the built binary: loading, reports, audio and settings.
#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/vst3_bundles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>

namespace {

using testing_support::ChildOptions;
using testing_support::linesStartingWith;
using testing_support::readLines;
using testing_support::runAdapter;
using testing_support::Vst3Layouts;

ChildOptions plugin(const std::string& words, const std::string& log, std::string input = "") {
    ChildOptions options;
    options.environment["TEST_VST3"] = words;
    options.environment["TEST_VST3_LOG"] = log;
    options.environment["DISPLAY"] = std::nullopt;
    options.stdinBytes = std::move(input);
    return options;
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

struct LoadCase {
    const char* name;
    std::string words;
    std::function<std::string(Vst3Layouts&)> path;
    std::vector<std::string> extra;
    int status;
    std::string err; // "%s" stands for the path
};

void PrintTo(const LoadCase& c, std::ostream* out) {
    *out << c.name;
}

std::string expand(std::string text, const std::string& path) {
    for (auto at = text.find("%s"); at != std::string::npos; at = text.find("%s", at + path.size()))
        text.replace(at, 2, path);
    return text;
}

class Vst3Loading : public testing::TestWithParam<LoadCase> {};

TEST_P(Vst3Loading, StatusAndMessages) {
    const auto& c = GetParam();
    Vst3Layouts layouts(std::string("load-") + c.name);
    const std::string path = c.path(layouts);
    std::vector<std::string> arguments{"test", "--vst", path};
    arguments.insert(arguments.end(), c.extra.begin(), c.extra.end());
    const auto result = runAdapter(arguments, plugin(c.words, layouts.file("log")));
    EXPECT_EQ(result.exitStatus, c.status);
    EXPECT_EQ(result.err, expand(c.err, path));
    EXPECT_EQ(result.out, "");
}

const std::vector<std::string> onlyVst3{"--vst-version", "3"};
const std::string notOpened = "Could not open VST.";

auto bundle(const char* module = TEST_VST3_PATH) {
    return [module](Vst3Layouts& layouts) { return layouts.bundle("Gain", module); };
}

INSTANTIATE_TEST_SUITE_P(
    Table, Vst3Loading,
    testing::Values(
        LoadCase{"Bundle", "", bundle(), onlyVst3, 0, ""},
        LoadCase{"BundleWithoutVersionOption", "", bundle(), {}, 0, ""},
        LoadCase{"BundleTrailingSlash", "",
                 [](auto& l) { return l.bundle("Gain", TEST_VST3_PATH) + "/"; }, onlyVst3, 0, ""},
        LoadCase{"SingleFile", "", [](auto& l) { return l.singleFile("Gain", TEST_VST3_PATH); },
                 onlyVst3, 0, ""},
        LoadCase{"ControllerClassFirst", "controller-first", bundle(), onlyVst3, 0, ""},
        LoadCase{"SingleComponent", "single", bundle(), onlyVst3, 0, ""},
        LoadCase{"NoAudioModuleClass", "no-audio-class", bundle(), onlyVst3, 255, notOpened},
        LoadCase{"EntryRefuses", "entry-false", bundle(), onlyVst3, 255, notOpened},
        LoadCase{"NullFactory", "null-factory", bundle(), onlyVst3, 255, notOpened},
        LoadCase{"InitializeRefuses", "refuse-initialize", bundle(), onlyVst3, 255, notOpened},
        LoadCase{"InitializeThrows", "throw-initialize", bundle(), onlyVst3, 255, notOpened},
        LoadCase{"InstrumentRefused", "instrument", bundle(), onlyVst3, 255, notOpened},
        LoadCase{"AbsurdClassCount", "classes=2000000000", bundle(), onlyVst3, 255, notOpened},
        LoadCase{"NoFactoryExport", "", bundle(TEST_VST3_NO_FACTORY_PATH), onlyVst3, 255,
                 notOpened},
        // Without the option the VST 2 loader has its go, and says what it found.
        LoadCase{"NoFactoryExportThenVst2",
                 "",
                 bundle(TEST_VST3_NO_FACTORY_PATH),
                 {},
                 255,
                 "Could not load VST: %s\n" + notOpened},
        LoadCase{"NoBinaryForThisMachine", "",
                 [](auto& l) { return l.bundle("Gain", TEST_VST3_PATH, "other-linux"); }, onlyVst3,
                 255, notOpened},
        LoadCase{"NoBinaryForThisMachineThenVst2",
                 "",
                 [](auto& l) { return l.bundle("Gain", TEST_VST3_PATH, "other-linux"); },
                 {},
                 255,
                 "Could not load VST bundle: %s\n" + notOpened},
        LoadCase{"FolderThatIsNoBundle", "",
                 [](auto& l) { return l.folder("Gain.vst3", {"notes.txt"}); }, onlyVst3, 255,
                 notOpened},
        LoadCase{"Vst2PluginAsVst3", "", [](auto&) { return std::string(TEST_EFFECT_PATH); },
                 onlyVst3, 255, notOpened}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Vst3Loading, RefusedInstrumentIsClosedAndItsModuleLeftCleanly) {
    Vst3Layouts layouts("load-instrument-teardown");
    const std::string log = layouts.file("log");
    runAdapter({"test", "--vst", layouts.bundle("Gain", TEST_VST3_PATH), "--vst-version", "3"},
               plugin("instrument", log));
    const auto lines = readLines(log);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(
        std::vector<std::string>(lines.end() - 3, lines.end()),
        (std::vector<std::string>{"terminate controller", "terminate component", "moduleExit"}));
}

TEST(Vst3Loading, ControllerClassListedFirstIsPassedOver) {
    Vst3Layouts layouts("load-controller-first");
    const std::string log = layouts.file("log");
    const auto result = runAdapter({"test", "--vst", layouts.bundle("Gain", TEST_VST3_PATH)},
                                   plugin("controller-first", log));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(linesStartingWith(readLines(log), "create"),
              (std::vector<std::string>{"create component", "create controller"}));
}

struct ReportCase {
    const char* name;
    std::string words;
    std::vector<std::string> command;
    int status;
    std::string err;
};

void PrintTo(const ReportCase& c, std::ostream* out) {
    *out << c.name;
}

class Vst3Reports : public testing::TestWithParam<ReportCase> {};

TEST_P(Vst3Reports, StatusAndText) {
    const auto& c = GetParam();
    Vst3Layouts layouts(std::string("report-") + c.name);
    std::vector<std::string> arguments = c.command;
    arguments.insert(arguments.end(), {"--vst", layouts.bundle("Gain", TEST_VST3_PATH)});
    const auto result = runAdapter(arguments, plugin(c.words, layouts.file("log")));
    EXPECT_EQ(result.exitStatus, c.status);
    EXPECT_EQ(result.err, c.err);
    EXPECT_EQ(result.out, "");
}

std::string pins(const char* heading, const char* pin, int count, const char* label, int flags,
                 int type) {
    std::string text = std::string("Number of ") + heading + ": " + std::to_string(count) + "\n";
    for (int at = 0; at < count; ++at)
        text += std::string("  ") + pin + " " + std::to_string(at) + ":\n    .label = " + label +
                "\n    .flags = " + std::to_string(flags) +
                "\n    .arrangementType = " + std::to_string(type) + "\n";
    return text;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Vst3Reports,
    testing::Values(ReportCase{"HasEditorByParameters", "", {"has-editor"}, 0, ""},
                    ReportCase{"HasEditorWithView", "editor", {"has-editor"}, 0, ""},
                    ReportCase{"HasEditorNeither", "no-controller", {"has-editor"}, 255, ""},
                    ReportCase{"InfoStereo",
                               "",
                               {"info"},
                               0,
                               pins("inputs", "Input", 2, "Main In", 7, 1) +
                                   pins("outputs", "Output", 2, "Main Out", 7, 1)},
                    ReportCase{"InfoMono",
                               "mono",
                               {"info"},
                               0,
                               pins("inputs", "Input", 1, "Main In", 5, 0) +
                                   pins("outputs", "Output", 1, "Main Out", 5, 0)},
                    ReportCase{"InfoSidechainIsNoPin",
                               "sidechain",
                               {"info"},
                               0,
                               pins("inputs", "Input", 2, "Main In", 7, 1) +
                                   pins("outputs", "Output", 2, "Main Out", 7, 1)}),
    [](const auto& info) { return std::string(info.param.name); });

// Whole 16-bit sample values that stay exact through the float path and the gain of 1.
std::string samples16(size_t frames, int channels) {
    std::string bytes;
    for (size_t i = 0; i < frames * static_cast<size_t>(channels); ++i) {
        const auto value = static_cast<int16_t>(static_cast<int>((i * 7919) % 20001) - 10000);
        bytes.append(reinterpret_cast<const char*>(&value), 2);
    }
    return bytes;
}

std::string samples64(size_t frames, int channels) {
    std::string bytes;
    for (size_t i = 0; i < frames * static_cast<size_t>(channels); ++i) {
        const double value = std::sin(0.001 * static_cast<double>(i)) * 0.7;
        bytes.append(reinterpret_cast<const char*>(&value), 8);
    }
    return bytes;
}

TEST(Vst3Process, UnityGainPassesSamplesUnchangedInSingleAndDoublePrecision) {
    struct Case {
        std::string words;
        std::vector<std::string> format;
        std::string input;
        std::string setupLine;
    };
    const std::vector<Case> cases{
        {"", {"--bits", "16"}, samples16(1500, 2), "setupProcessing 2 0 512 44100"},
        {"double",
         {"--bits", "64", "--formattag", "3"},
         samples64(1500, 2),
         "setupProcessing 2 1 512 44100"},
        // Asked for 64-bit from a plug-in without it: processed in 32-bit, still exact.
        {"",
         {"--bits", "16", "--float64", "1"},
         samples16(700, 2),
         "setupProcessing 2 0 512 44100"},
    };
    for (const auto& c : cases) {
        Vst3Layouts layouts("process-unity");
        const std::string log = layouts.file("log");
        std::vector<std::string> arguments{
            "process",    "--vst", layouts.bundle("Gain", TEST_VST3_PATH), "--rate", "44100",
            "--channels", "2"};
        arguments.insert(arguments.end(), c.format.begin(), c.format.end());
        const auto result = runAdapter(arguments, plugin(c.words, log, c.input));
        ASSERT_EQ(result.exitStatus, 0) << result.err;
        // The plug-in's tail is silent, so nothing follows the processed samples.
        EXPECT_EQ(result.out, c.input) << c.words;
        const auto lines = readLines(log);
        EXPECT_GT(testing_support::countLines(lines, c.setupLine), 0) << c.words;
        EXPECT_TRUE(linesStartingWith(lines, "violation").empty()) << c.words;
    }
}

TEST(Vst3Process, ChunkedRepliesCarryTheLatencyAndReopenStartsAFreshInstance) {
    Vst3Layouts layouts("process-chunked");
    const std::string log = layouts.file("log");
    const std::string audio = samples16(600, 2);
    const std::string input = testing_support::formatMessage(48000, 2, 3, 2, 3) +
                              testing_support::chunk(1, audio) + testing_support::chunk(5, "") +
                              testing_support::formatMessage(48000, 2, 3, 2, 3) +
                              testing_support::chunk(1, audio);
    const auto result = runAdapter({"process", "--vst", layouts.bundle("Gain", TEST_VST3_PATH),
                                    "--bits", "16", "--protocol", "chunked"},
                                   plugin("latency=480", log, input));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    // format echo, samples, latency; again after the reopen
    const size_t reply = 20 + audio.size() + 4;
    ASSERT_EQ(result.out.size(), 2 * reply);
    for (size_t first : {size_t{0}, reply}) {
        EXPECT_EQ(result.out.substr(first + 20, audio.size()), audio);
        EXPECT_EQ(testing_support::readU32(result.out, first + 20 + audio.size()), 480u);
    }
    const auto lines = readLines(log);
    EXPECT_EQ(testing_support::countLines(lines, "moduleEntry"), 1);
    EXPECT_EQ(testing_support::countLines(lines, "create component"), 2);
    EXPECT_TRUE(linesStartingWith(lines, "violation").empty());
}

struct SettingsCase {
    const char* name;
    std::string words;
    std::string data;
    std::vector<std::string> present; // log lines that must be there
    std::vector<std::string> absent;  // log line prefixes that must not
    std::string err = {};
};

void PrintTo(const SettingsCase& c, std::ostream* out) {
    *out << c.name;
}

class Vst3Settings : public testing::TestWithParam<SettingsCase> {};

TEST_P(Vst3Settings, DataFileReachesThePlugIn) {
    const auto& c = GetParam();
    Vst3Layouts layouts(std::string("settings-") + c.name);
    const std::string log = layouts.file("log");
    const std::string data = layouts.file("settings");
    writeFile(data, c.data);
    const auto result =
        runAdapter({"info", "--vst", layouts.bundle("Gain", TEST_VST3_PATH), "--data", data},
                   plugin(c.words, log));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    // Any line of ours comes before the report.
    EXPECT_EQ(result.err.rfind(c.err + "Number of inputs", 0), 0u) << result.err;
    const auto lines = readLines(log);
    for (const auto& line : c.present)
        EXPECT_GT(testing_support::countLines(lines, line), 0) << line;
    for (const auto& prefix : c.absent)
        EXPECT_TRUE(linesStartingWith(lines, prefix).empty()) << prefix;
    // Reading never writes the file back.
    EXPECT_EQ(readFile(data), c.data);
}

std::string withoutLastByte(std::string text) {
    text.pop_back();
    return text;
}

const std::string twoRecords = testing_support::idValueRecords({{100, 0.25}, {7, 1.0}});

std::string int64Bytes(int64_t value) {
    return std::string(reinterpret_cast<const char*>(&value), 8);
}

// A preset header (magic, version 1, a class id, the chunk list's offset), then `rest`.
std::string presetImage(int64_t listOffset, const std::string& rest = "") {
    const int32_t version = 1;
    return "VST3" + std::string(reinterpret_cast<const char*>(&version), 4) + std::string(32, 'A') +
           int64Bytes(listOffset) + rest;
}

// A chunk list of one component-state entry.
std::string oneEntryList(int64_t offset, int64_t size) {
    const int32_t count = 1;
    return "List" + std::string(reinterpret_cast<const char*>(&count), 4) + "Comp" +
           int64Bytes(offset) + int64Bytes(size);
}

const std::string damagedPreset = "Settings not applied: the VST 3 preset is damaged\n";

INSTANTIATE_TEST_SUITE_P(
    Table, Vst3Settings,
    testing::Values(
        SettingsCase{"RecordsSetParameters",
                     "",
                     twoRecords,
                     {"controllerSetState notImplemented", "setParamNormalized 100 0.25",
                      "setParamNormalized 7 1"},
                     {}},
        SettingsCase{"RecordsNeedWholeRecords",
                     "",
                     twoRecords + "x",
                     {"controllerSetState notImplemented"},
                     {"setParamNormalized"}},
        SettingsCase{"RecordsShortOfOneByte",
                     "",
                     withoutLastByte(twoRecords),
                     {"controllerSetState notImplemented"},
                     {"setParamNormalized"}},
        // A controller that knows its own state is given the bytes, and records are not tried.
        SettingsCase{"ControllerStateFirst",
                     "controller-state",
                     twoRecords,
                     {"controllerSetState refused"},
                     {"setParamNormalized"}},
        SettingsCase{"OtherMagicGoesToSetState",
                     "controller-state",
                     "VST4" + std::string(40, '\0'),
                     {"controllerSetState refused"},
                     {"setParamNormalized"}},
        // The preset magic is a preset, even a broken one: the controller is not asked.
        SettingsCase{"BrokenPresetIsNotControllerState",
                     "controller-state",
                     "VST3" + std::string(40, '\0'),
                     {},
                     {"controllerSetState", "setState"},
                     damagedPreset},
        // Offsets and sizes from the file never take a read outside it.
        SettingsCase{"PresetListNear2To62",
                     "",
                     presetImage((int64_t{1} << 62) + 8),
                     {},
                     {"controllerSetState", "setState"},
                     damagedPreset},
        SettingsCase{"PresetListNear2To32",
                     "",
                     presetImage((int64_t{1} << 32) + 4),
                     {},
                     {"controllerSetState", "setState"},
                     damagedPreset},
        SettingsCase{"PresetEntryPastTheEnd",
                     "",
                     presetImage(48, oneEntryList(20, int64_t{1} << 62)),
                     {},
                     {"controllerSetState", "setState"},
                     damagedPreset},
        SettingsCase{"PresetOfAnotherPlugIn",
                     "",
                     presetImage(48, oneEntryList(0, 48)),
                     {},
                     {"controllerSetState", "setState"},
                     "Settings not applied: the VST 3 preset is for another plug-in\n"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Vst3Settings, RecordsChangeTheSoundFromTheFirstBlock) {
    Vst3Layouts layouts("settings-sound");
    const std::string log = layouts.file("log");
    const std::string data = layouts.file("settings");
    // Gain 0.25 is x 0.5, polarity on inverts.
    writeFile(data, twoRecords);
    const std::string input = samples16(1024, 1);
    const auto result =
        runAdapter({"process", "--vst", layouts.bundle("Gain", TEST_VST3_PATH), "--rate", "44100",
                    "--channels", "1", "--bits", "16", "--data", data},
                   plugin("mono", log, input));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    ASSERT_GE(result.out.size(), input.size());
    for (size_t at = 0; at < input.size(); at += 2) {
        int16_t in = 0, out = 0;
        std::memcpy(&in, input.data() + at, 2);
        std::memcpy(&out, result.out.data() + at, 2);
        ASSERT_NEAR(out, -in / 2.0, 1.0) << "frame " << at / 2;
    }
}

} // namespace
