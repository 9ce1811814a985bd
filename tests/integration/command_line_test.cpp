#include "tests/common/child_process.h"
#include "tests/common/scratch.h"

#include <gtest/gtest.h>

namespace {

using testing_support::runAdapter;

struct CommandCase {
    const char* name;
    std::vector<std::string> arguments;
    int status;
    std::string err;
    std::string outStart = ""; // descriptor 1 must begin with this; empty: must stay empty
};

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
const std::string notLoaded = "Could not load VST bundle: " + missing + "\nCould not open VST.";
// A folder that holds no module (a shared /tmp may hold anyone's): the build's tests folder.
const std::string testsFolder = testing_support::builtFile("tests");
const std::string pipes = "pipes not yet implemented\n";
std::vector<std::string> version(const std::string& plugin, const char* number,
                                 const char* command = "test") {
    return {command, "--vst", plugin, "--vst-version", number};
}

INSTANTIATE_TEST_SUITE_P(
    Table, CommandLine,
    testing::Values(
        CommandCase{"NoCommand", {}, 255, "Incorrect argument count.\n"},
        CommandCase{"LoneKey", {"info", "--vst"}, 255, "Incorrect argument count.\n"},
        CommandCase{"OnlyCommand", {"info"}, 255, "No VST specified.\n"},
        CommandCase{"Pipe", {"test", "--vst", missing, "--pipe", "x"}, 255, pipes},
        CommandCase{"PipeBeforeMissingVst", {"info", "--pipe", "1"}, 255, pipes},
        CommandCase{"MissingVst", {"test", "--rate", "44100"}, 255, "No VST specified.\n"},
        CommandCase{"BadPathBothLoaders", {"test", "--vst", missing}, 255, notLoaded},
        CommandCase{"Version3Only", version(missing, "3"), 255, "Could not open VST."},
        CommandCase{"VersionReadLikeAtoi", version(missing, "2x"), 255, notLoaded},
        CommandCase{"TextFileIsNoModule", version("/etc/hostname", "2"), 255,
                    "/etc/hostname: file too short\nCould not load VST bundle: /etc/hostname\n"
                    "Could not open VST."},
        CommandCase{"DirectoryIsNoModule", version(testsFolder, "2", "has-editor"), 255,
                    "Could not load VST bundle: " + testsFolder + "\nCould not open VST."},
        CommandCase{"PathWithALineBreak", version("/nonexistent/a\nb.so", "2"), 255,
                    "Could not load VST bundle: /nonexistent/a\\nb.so\nCould not open VST."},
        CommandCase{
            "UnknownCommandStillLoadsFirst", {"frobnicate", "--vst", missing}, 255, notLoaded},
        CommandCase{"ScanWithoutVst", {"scan", "--timeout", "5"}, 255, "No VST specified.\n"},
        CommandCase{"ScanMissingPath",
                    {"scan", "--vst", testsFolder, "--vst", missing},
                    255,
                    "--vst names no file or folder: '" + missing + "'\n"},
        CommandCase{"ScanBadTimeout",
                    {"scan", "--vst", testsFolder, "--timeout", "0"},
                    255,
                    "--timeout must be 1 to 86400 seconds\n"},
        CommandCase{"Help", {"--help"}, 0, "", "Usage: vst-adapter COMMAND [--KEY VALUE]...\n"},
        CommandCase{"HelpLoadsNothing", {"--help", "--vst", missing}, 0, "", "Usage: "},
        CommandCase{"Version", {"--version"}, 0, "", "vst-adapter " VST_ADAPTER_VERSION "\n"}),

    [](const testing::TestParamInfo<CommandCase>& info) { return info.param.name; });

// Usage text that cannot be written (a full device, a reader gone) fails with one line.
TEST(CommandLineOutput, UnwritableUsageFails) {
    const char* script =
        "import os,subprocess,sys\nr,w=os.pipe()\nos.close(r)\nsys.exit(subprocess.call("
        "sys.argv[2:],stdout=w if sys.argv[1]=='pipe' else open('/dev/full','w')))";
    for (const auto& [where, word, err] :
         {std::tuple{"full", "--help", "file access error: No space left on device\n"},
          {"pipe", "--version", "file access error: Broken pipe\n"}}) {
        const auto result = testing_support::runChild(
            "/usr/bin/python3", {"-c", script, where, testing_support::adapterBinary(), word});
        EXPECT_EQ(std::pair(result.exitStatus, result.err), std::pair(255, std::string(err)));
    }
}

// Each failure to open --input or --output is one line that says why, whatever the names hold,
// and leaves the files as they were.
TEST(Redirections, FailuresSayWhyInOneLine) {
    struct Case {
        const char* name;
        std::vector<std::string> redirections;
        std::string err;
    };
    scratch::Folder folder;
    const std::string audio = folder / "audio.raw",
                      same = folder.path() + "/../" + folder.path().substr(5) + "/audio.raw";
    scratch::writeFile(audio, "four");
    const auto notOpened = [](const std::string& path, const char* why) {
        return "Error opening file '" + path + "', check no other program has it open. " + why +
               "\n";
    };
    const Case cases[] = {
        {"MissingInput",
         {"--input", folder / "absent.raw"},
         notOpened(folder / "absent.raw", "No such file or directory (errno:2)")},
        {"OutputInMissingFolder",
         {"--output", folder / "no/such.raw"},
         notOpened(folder / "no/such.raw", "No such file or directory (errno:2)")},
        {"InputIsAFolder", {"--input", folder.path()}, "file access error: Is a directory\n"},
        {"DiskFull", {"--output", "/dev/full"}, "file access error: No space left on device\n"},
        {"SameFile",
         {"--input", audio, "--output", same},
         "--input and --output name the same file: '" + same + "'\n"},
        {"ControlCharacters",
         {"--input", folder / "a\nb\x01.raw"},
         notOpened(folder.path() + "/a\\nb\\x01.raw", "No such file or directory (errno:2)")},
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
        EXPECT_EQ(result.out, "") << c.name;
    }
    EXPECT_EQ(scratch::readFile(audio), "four");
}

} // namespace
