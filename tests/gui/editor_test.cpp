// "configure" and "configure-live" with the in-tree plug-in's editor: the window, how the session
// ends and what it writes, and the live worker feeding the plug-in while the editor stays.

#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/common/sample_bytes.h"
#include "tests/common/scratch.h"
#include "tests/gui/x_windows.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <regex>
#include <set>
#include <sys/stat.h>
#include <thread>

namespace {

using testing_support::BackgroundChild;
using testing_support::chunk;
using testing_support::formatRecord;

constexpr double wait = 10.0; // a guard against hanging, not a speed requirement

const std::string stereoFormat = chunk(3, formatRecord(44100, 2, 0, 2, 0));
std::string silence(size_t frames, int channels = 2) {
    return chunk(1, std::string(frames * static_cast<size_t>(channels) * 2, '\0'));
}

// A folder, a settings path and a call log per test, and the test's own X connection.
class Editor : public testing::Test {
  protected:
    void SetUp() override {
        if (!x.connected())
            GTEST_SKIP() << "no X display (scripts/test runs the tests under xvfb-run)";
    }

    std::unique_ptr<BackgroundChild> start(const char* command, const std::string& words,
                                           std::string input = "", bool keepInputOpen = false) {
        testing_support::ChildOptions options;
        options.environment["TEST_EFFECT"] = words;
        options.environment["TEST_EFFECT_LOG"] = folder / "log";
        options.environment["HOME"] = folder.path();
        options.stdinBytes = std::move(input);
        options.closeStdin = !keepInputOpen;
        return std::make_unique<BackgroundChild>(
            testing_support::adapterBinary(),
            std::vector<std::string>{command, "--vst", TEST_EFFECT_PATH, "--bits", "16", "--data",
                                     dataPath},
            options);
    }

    XWindowId windowOf(BackgroundChild& child) {
        const auto window = x.waitForWindowOf(child.pid(), wait);
        EXPECT_TRUE(window.has_value()) << "no window appeared";
        return window.value_or(0);
    }

    // Waits until the plug-in's call log satisfies `done`.
    bool waitForLog(const std::function<bool(const std::string&)>& done) const {
        for (int tries = static_cast<int>(wait * 100); tries >= 0; --tries) {
            if (done(scratch::readFile(folder / "log")))
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    bool waitForEdit() const {
        return waitForLog([](const std::string& log) { return log.find("edited\n") != log.npos; });
    }

    // Frames the plug-in was given, from its call log.
    size_t framesProcessed() const {
        const std::string log = scratch::readFile(folder / "log");
        static const std::regex call("\nprocess (\\d+)");
        size_t frames = 0;
        for (auto it = std::sregex_iterator(log.begin(), log.end(), call);
             it != std::sregex_iterator(); ++it)
            frames += std::stoul((*it)[1]);
        return frames;
    }

    XTestConnection x;
    scratch::Folder folder;
    std::string dataPath = folder / "settings.bin";
};

enum class Ending { closeWindow, destroyWindow, term, interrupt };
// What --data names: a file (mode 0604), a relative link to one, a dangling link, a file of
// another owner.
enum class Settings { file, link, danglingLink, otherOwner };

struct EndCase {
    const char* name;
    const char* command;
    Ending ending;
    bool edited;
    Settings settings = Settings::file;
};

class EditorEnds : public Editor, public testing::WithParamInterface<EndCase> {};

// The window has the editor's size, centred; however the session ends, the settings are written
// when they changed, and only then, keeping the file's owner and mode, and links.
TEST_P(EditorEnds, WritesTheSettingsOnlyWhenTheyChanged) {
    const auto& c = GetParam();
    const bool other = c.settings == Settings::otherOwner;
    const uid_t owner = other ? 65534 : ::geteuid();
    const gid_t group = other ? 65534 : ::getegid();
    if (owner != ::geteuid() && ::geteuid() != 0)
        GTEST_SKIP() << "only root can give a file to another owner";
    const std::string file = c.settings == Settings::file ? dataPath : folder / "real.bin";
    const char* linked = c.settings == Settings::link ? "real.bin" : file.c_str();
    ASSERT_EQ(file == dataPath ? 0 : ::symlink(linked, dataPath.c_str()), 0);
    if (c.settings != Settings::danglingLink) {
        scratch::writeFile(file,
                           testing_support::bytesOf<float>({1.0f})); // the plug-in's own default
        const struct timespec old[2] = {{1000000, 0}, {1000000, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), old, 0), 0);
        ASSERT_EQ(::chmod(file.c_str(), 0604) | ::chown(file.c_str(), owner, group), 0);
    }

    auto child = start(c.command, c.edited ? "editor=641x300,edit=50" : "editor=641x300",
                       stereoFormat + silence(100));
    const XWindowId window = windowOf(*child);
    ASSERT_NE(window, 0u);
    EXPECT_EQ(x.geometry(window), (XTestConnection::Geometry{x.rootWidth() / 2 - 320,
                                                             x.rootHeight() / 2 - 150, 641, 300}));
    if (c.edited) {
        ASSERT_TRUE(waitForEdit());
    }
    if (c.ending == Ending::closeWindow)
        x.requestClose(window);
    else if (c.ending == Ending::destroyWindow)
        x.destroy(window);
    else
        child->signal(c.ending == Ending::term ? SIGTERM : SIGINT);
    const auto result = child->wait(wait);

    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
    struct stat info {};
    ASSERT_EQ(::lstat(file.c_str(), &info), 0);
    EXPECT_EQ(scratch::readFile(dataPath),
              testing_support::bytesOf<float>({c.edited ? 0.5f : 1.0f}));
    EXPECT_EQ(info.st_mtim.tv_sec == 1000000, !c.edited) << "only a changed file is written";
    if (c.settings != Settings::danglingLink) {
        EXPECT_EQ(std::tuple(info.st_mode & 07777, info.st_uid, info.st_gid),
                  std::tuple(0604u, owner, group));
    }
    EXPECT_EQ(::lstat(dataPath.c_str(), &info) == 0 && S_ISLNK(info.st_mode), file != dataPath);
}

INSTANTIATE_TEST_SUITE_P(
    Table, EditorEnds,
    testing::Values(
        EndCase{"CloseUnchanged", "configure", Ending::closeWindow, false},
        EndCase{"CloseEdited", "configure", Ending::closeWindow, true},
        EndCase{"DestroyedEdited", "configure", Ending::destroyWindow, true},
        EndCase{"TermEdited", "configure", Ending::term, true},
        EndCase{"IntUnchanged", "configure", Ending::interrupt, false},
        EndCase{"LiveTermEdited", "configure-live", Ending::term, true},
        EndCase{"LinkEdited", "configure", Ending::closeWindow, true, Settings::link},
        EndCase{"DanglingLinkEdited", "configure", Ending::term, true, Settings::danglingLink},
        EndCase{"OtherOwnerEdited", "configure", Ending::closeWindow, true, Settings::otherOwner}),
    [](const auto& info) { return std::string(info.param.name); });

// Here the temporary file cannot be made (a folder holds its name), as on a full disk.
TEST_F(Editor, SettingsThatCannotBeSavedEndWith255AndKeepTheOldFile) {
    scratch::writeFile(dataPath, testing_support::bytesOf<float>({1.0f}));
    auto child = start("configure", "editor,edit=50");
    const XWindowId window = windowOf(*child);
    ASSERT_NE(window, 0u);
    ASSERT_TRUE(waitForEdit());
    std::filesystem::create_directory(dataPath + ".p" + std::to_string(child->pid()) +
                                      ".rewrite.tmp");
    x.requestClose(window);
    const auto result = child->wait(wait);
    EXPECT_EQ(result.exitStatus, 255);
    EXPECT_EQ(result.err,
              "Could not save the settings to '" + dataPath + "': file already exists\n");
    EXPECT_EQ(scratch::readFile(dataPath), testing_support::bytesOf<float>({1.0f}));
}

TEST_F(Editor, RefusedAtOnce) {
    struct Case {
        const char* words;
        bool display;
        std::string err;
    };
    for (const auto& c :
         {Case{"params=3", true, ""},
          Case{"editor", false,
               "Cannot open the X display \"\": the editor needs a graphical "
               "session\n"},
          Case{"editor,exit-at=editor", true, "VST called exit (stage: editor)\n"},
          Case{"editor,throw-at=editor", true, "VST threw an exception (stage: editor)\n"}}) {
        testing_support::ChildOptions options;
        options.environment["TEST_EFFECT"] = c.words;
        if (!c.display)
            options.environment["DISPLAY"] = std::nullopt;
        const auto result = testing_support::runAdapter(
            {"configure", "--vst", TEST_EFFECT_PATH, "--data", dataPath}, options);
        EXPECT_EQ(result.exitStatus, 255) << c.words;
        EXPECT_EQ(result.err, c.err) << c.words;
        EXPECT_FALSE(scratch::exists(dataPath)) << c.words << ": nothing may be written";
    }
}

struct LiveCase {
    const char* name;
    std::string messages;
    size_t frames;   // what the plug-in processes
    std::string err; // what the worker reports
    const char* words = "editor";
};

class LiveMessages : public Editor, public testing::WithParamInterface<LiveCase> {};

// The worker feeds the plug-in from the parent's messages while the editor stays; nothing ever
// goes back on the data channel.
TEST_P(LiveMessages, WorkerFeedsThePlugInWhileTheEditorStays) {
    const auto& c = GetParam();
    auto child = start("configure-live", c.words, c.messages);
    const XWindowId window = windowOf(*child);
    ASSERT_NE(window, 0u);
    waitForLog([&](const std::string&) { return framesProcessed() >= c.frames; });
    ASSERT_TRUE(child->running()) << "the session ended before the window was closed";
    x.requestClose(window);
    const auto result = child->wait(wait);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, "") << "nothing may reach the data channel";
    EXPECT_EQ(result.err, c.err);
    EXPECT_EQ(framesProcessed(), c.frames);
}

INSTANTIATE_TEST_SUITE_P(
    Table, LiveMessages,
    testing::Values(
        LiveCase{"FormatThenAudio", stereoFormat + silence(1300) + silence(7), 1307, ""},
        LiveCase{"AudioBeforeFormatIsDropped", silence(600) + stereoFormat + silence(100), 100, ""},
        // Under ThreadSanitizer: the host's state shared by the two threads is safe.
        LiveCase{"PlugInCallsTheHostFromBothThreads", stereoFormat + silence(1300), 1300, "",
                 "editor,host-calls"}),
    [](const auto& info) { return std::string(info.param.name); });

class ConfigureLive : public Editor {};

TEST_F(ConfigureLive, WithoutEditorTheWorkerIsStoppedInsideItsRead) {
    // The input stays open and idle: only the stop request can end the worker's read.
    const auto result = start("configure-live", "params=1", stereoFormat, true)->wait(wait);
    EXPECT_FALSE(result.timedOut) << "the worker was not stopped";
    EXPECT_EQ(result.exitStatus, 255);
    EXPECT_EQ(result.err, "Live data processing error: user abort");
    EXPECT_EQ(result.out, "");
}

} // namespace

namespace {

// `validate`'s editor check on a display: a sound editor passes, one that crashes when opened
// while audio runs fails that check and no other; without a display the check skips.
TEST_F(Editor, ValidateOpensTheEditorAlsoWhileAudioRuns) {
    struct Case {
        const char* words;
        bool display;
        const char* editorStatus;
        std::set<std::string> failing;
    };
    const Case cases[] = {
        {"editor", true, "pass", {}},
        {"editor,editor-races-audio", true, "fail", {"editor"}},
        {"editor", false, "skip", {}},
    };
    for (const Case& c : cases) {
        testing_support::ChildOptions options;
        options.environment["TEST_EFFECT"] = c.words;
        options.environment["HOME"] = folder.path();
        if (!c.display)
            options.environment["DISPLAY"] = std::nullopt;
        options.timeoutSeconds = 120;
        const auto result = testing_support::runAdapter(
            {"validate", "--vst", TEST_EFFECT_PATH, "--level", "1"}, options);
        const auto report = nlohmann::json::parse(result.out, nullptr, false);
        ASSERT_TRUE(report.is_object()) << c.words << ": " << result.err;
        std::set<std::string> failing;
        std::string editorStatus;
        for (const auto& check : report["checks"]) {
            if (check["status"] == "fail")
                failing.insert(check["id"].get<std::string>());
            if (check["id"] == "editor")
                editorStatus = check["status"];
        }
        EXPECT_EQ(editorStatus, c.editorStatus) << c.words << " display " << c.display;
        EXPECT_EQ(failing, c.failing) << c.words << "\n" << result.err;
    }
}

} // namespace
