#include "tests/common/child_process.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

using testing_support::runAdapter;

struct CommandCase {
    const char* name;
    std::vector<std::string> arguments;
    int status;
    std::string err;
    std::string outStart = ""; // descriptor 1 must begin with this; empty: must stay empty
};

void PrintTo(const CommandCase& c, std::ostream* out) {
    *out << c.name;
}

class CommandLine : public testing::TestWithParam<CommandCase> {};

TEST_P(CommandLine, StatusAndMessagesAreExact) {
    const auto result = runAdapter(GetParam().arguments);
    EXPECT_EQ(result.exitStatus, GetParam().status);
    EXPECT_EQ(result.err, GetParam().err);
    if (GetParam().outStart.empty())
        EXPECT_EQ(result.out, "") << "nothing but data may reach descriptor 1";
    else
        EXPECT_TRUE(result.out.starts_with(GetParam().outStart)) << result.out;
}

const std::string missing = "/nonexistent/plugin.so";
// A folder that holds no module (a shared /tmp may hold anyone's): the build's tests folder.
const std::string testsFolder = testing_support::builtFile("tests");

INSTANTIATE_TEST_SUITE_P(
    Table, CommandLine,
    testing::Values(
        CommandCase{"NoCommand", {}, 255, "Incorrect argument count.\n"},
        CommandCase{"LoneKey", {"info", "--vst"}, 255, "Incorrect argument count.\n"},
        CommandCase{"OnlyCommand", {"info"}, 255, "No VST specified.\n"},
        CommandCase{
            "Pipe", {"test", "--vst", missing, "--pipe", "x"}, 255, "pipes not yet implemented\n"},
        CommandCase{"InPipeEmpty", {"test", "--inpipe", ""}, 255, "pipes not yet implemented\n"},
        CommandCase{
            "PipeBeforeMissingVst", {"info", "--pipe", "1"}, 255, "pipes not yet implemented\n"},
        CommandCase{"MissingVst", {"test", "--rate", "44100"}, 255, "No VST specified.\n"},
        CommandCase{"BadPathBothLoaders",
                    {"test", "--vst", missing},
                    255,
                    "Could not load VST bundle: " + missing + "\nCould not open VST."},
        CommandCase{"BadPathVersion2",
                    {"info", "--vst", missing, "--vst-version", "2"},
                    255,
                    "Could not load VST bundle: " + missing + "\nCould not open VST."},
        CommandCase{"Version3Only",
                    {"test", "--vst", missing, "--vst-version", "3"},
                    255,
                    "Could not open VST."},
        CommandCase{"UnknownVersion",
                    {"test", "--vst", missing, "--vst-version", "1"},
                    255,
                    "Could not open VST."},
        CommandCase{"VersionReadLikeAtoi",
                    {"test", "--vst", missing, "--vst-version", "2x"},
                    255,
                    "Could not load VST bundle: " + missing + "\nCould not open VST."},
        CommandCase{"TextFileIsNoModule",
                    {"test", "--vst", "/etc/hostname", "--vst-version", "2"},
                    255,
                    "/etc/hostname: file too short\nCould not load VST bundle: /etc/hostname\n"
                    "Could not open VST."},
        CommandCase{"DirectoryIsNoModule",
                    {"has-editor", "--vst", testsFolder, "--vst-version", "2"},
                    255,
                    "Could not load VST bundle: " + testsFolder + "\nCould not open VST."},
        CommandCase{"PathWithALineBreak",
                    {"test", "--vst", "/nonexistent/a\nb.so", "--vst-version", "2"},
                    255,
                    "Could not load VST bundle: /nonexistent/a\\nb.so\nCould not open VST."},
        CommandCase{"UnknownCommandStillLoadsFirst",
                    {"frobnicate", "--vst", missing},
                    255,
                    "Could not load VST bundle: " + missing + "\nCould not open VST."},
        CommandCase{"Help", {"--help"}, 0, "", "Usage: vst-adapter COMMAND [--KEY VALUE]...\n"},
        CommandCase{"HelpLoadsNothing", {"--help", "--vst", missing}, 0, "", "Usage: "},
        CommandCase{"Version", {"--version"}, 0, "", "vst-adapter " VST_ADAPTER_VERSION "\n"}),
    [](const testing::TestParamInfo<CommandCase>& info) { return info.param.name; });

class Redirections : public testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/adapter-cli-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        folder = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(folder); }
    std::string folder;
};

TEST_F(Redirections, MissingInputFileIsOneClearLine) {
    const auto result =
        runAdapter({"process", "--input", folder + "/absent.raw", "--vst", missing});
    EXPECT_EQ(result.exitStatus, 255);
    EXPECT_EQ(result.err.rfind("Error opening file '" + folder + "/absent.raw'", 0), 0u)
        << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
    EXPECT_EQ(result.out, "");
}

TEST_F(Redirections, UnwritableOutputIsOneClearLine) {
    const auto result =
        runAdapter({"process", "--output", folder + "/no/such/dir.raw", "--vst", missing});
    EXPECT_EQ(result.exitStatus, 255);
    EXPECT_EQ(result.err.rfind("Error opening file '" + folder + "/no/such/dir.raw'", 0), 0u)
        << result.err;
    EXPECT_EQ(result.out, "");
}

TEST_F(Redirections, OutputFileIsUntouchedWhenNothingLoads) {
    const std::string target = folder + "/out.raw";
    std::ofstream(target) << "stale bytes";
    const auto result = runAdapter({"process", "--output", target, "--vst", missing});
    EXPECT_EQ(result.exitStatus, 255);
    std::ifstream in(target);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "stale bytes");
}

// Each failure is one line that says why, whatever the names hold.
TEST_F(Redirections, FailuresSayWhyInOneLine) {
    struct Case {
        const char* name;
        std::vector<std::string> redirections;
        std::string err;
    };
    const std::string audio = folder + "/audio.raw";
    std::ofstream(audio) << "four";
    const std::string odd = folder + "/a\nb\x01.raw";
    const Case cases[] = {
        {"InputIsAFolder", {"--input", folder}, "file access error: Is a directory\n"},
        {"DiskFull", {"--output", "/dev/full"}, "file access error: No space left on device\n"},
        {"SameFile",
         {"--input", audio, "--output", folder + "/../" + folder.substr(5) + "/audio.raw"},
         "--input and --output name the same file: '" + folder + "/../" + folder.substr(5) +
             "/audio.raw'\n"},
        {"ControlCharacters",
         {"--input", odd},
         "Error opening file '" + folder +
             "/a\\nb\\x01.raw', check no other program has it open. No such file or "
             "directory (errno:2)\n"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> arguments{"process", "--vst",  TEST_EFFECT_PATH,
                                           "--rate",  "44100",  "--channels",
                                           "2",       "--bits", "16"};
        arguments.insert(arguments.end(), c.redirections.begin(), c.redirections.end());
        testing_support::ChildOptions options;
        options.stdinBytes = std::string(4000, '\x11');
        const auto result = runAdapter(arguments, options);
        EXPECT_EQ(result.exitStatus, 255) << c.name;
        EXPECT_EQ(result.err, c.err) << c.name;
    }
    std::ifstream in(audio);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "four");
}

TEST_F(Redirections, NetworkInputIsRecognisedNotOpenedAsPath) {
    const auto result =
        runAdapter({"process", "--input", "HTTP://127.0.0.1:9/x", "--vst", missing});
    EXPECT_EQ(result.exitStatus, 255);
    EXPECT_EQ(result.err.find("Error opening file"), std::string::npos) << result.err;
}

} // namespace
