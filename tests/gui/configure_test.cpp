// "configure" with the in-tree plug-in's editor: the window, resizing, and how the session ends.

#include "tests/common/background_child.h"
#include "tests/common/child_process.h"
#include "tests/gui/editor_fixture.h"
#include "tests/gui/x_windows.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using testing_support::BackgroundChild;
using testing_support::ChildOptions;
using testing_support::runAdapter;

class Configure : public EditorTest {
  protected:
    std::unique_ptr<BackgroundChild> start(const std::string& words) {
        return std::make_unique<BackgroundChild>(
            testing_support::adapterBinary(),
            std::vector<std::string>{"configure", "--vst", TEST_EFFECT_PATH, "--data", dataPath},
            effect(words));
    }
};

TEST_F(Configure, WindowHasTheEditorSizeAndIsCentred) {
    struct Case {
        const char* words;
        int width, height;
    };
    for (const Case c :
         {Case{"editor=641x300", 641, 300}, Case{"editor", 320, 200}, Case{"editor=1x1", 1, 1}}) {
        auto child = start(c.words);
        const XWindowId window = windowOf(*child);
        ASSERT_NE(window, 0u) << c.words;
        const auto geometry = x.geometry(window);
        EXPECT_EQ(geometry,
                  (XTestConnection::Geometry{static_cast<int>(x.rootWidth() * 0.5) - c.width / 2,
                                             static_cast<int>(x.rootHeight() * 0.5) - c.height / 2,
                                             c.width, c.height}))
            << c.words;
        child->signal(SIGTERM);
        EXPECT_EQ(child->wait(exitWait).exitStatus, 0) << c.words;
    }
}

TEST_F(Configure, PlugInResizesItsWindowInPlace) {
    auto child = start("editor=300x200,resize=500x420");
    const XWindowId window = windowOf(*child);
    ASSERT_NE(window, 0u);
    EXPECT_TRUE(x.waitForSize(window, 500, 420, windowWait));
    const auto geometry = x.geometry(window);
    EXPECT_EQ(geometry.x, x.rootWidth() / 2 - 150) << "the window keeps its position";
    EXPECT_EQ(geometry.y, x.rootHeight() / 2 - 100);
    child->signal(SIGTERM);
    EXPECT_EQ(child->wait(exitWait).exitStatus, 0);
}

enum class Ending { closeWindow, destroyWindow, signal };

struct EndCase {
    const char* name;
    Ending ending;
    int signal;
    bool edited;
};

void PrintTo(const EndCase& c, std::ostream* out) {
    *out << c.name;
}

class ConfigureEnds : public Configure, public testing::WithParamInterface<EndCase> {};

TEST_P(ConfigureEnds, WritesTheSettingsOnlyWhenTheyChanged) {
    const auto& c = GetParam();
    std::ofstream(dataPath, std::ios::binary) << floats({1.0f}); // the plug-in's own default
    const struct timespec old[2] = {{1000000, 0}, {1000000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, dataPath.c_str(), old, 0), 0);

    auto child = start(c.edited ? "editor,edit=50" : "editor");
    const XWindowId window = windowOf(*child);
    ASSERT_NE(window, 0u);
    if (c.edited) {
        ASSERT_TRUE(waitForLogLine("edited"));
    }
    if (c.ending == Ending::closeWindow)
        x.requestClose(window);
    else if (c.ending == Ending::destroyWindow)
        x.destroy(window);
    else
        child->signal(c.signal);
    const auto result = child->wait(exitWait);

    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, "");
    struct stat info {};
    ASSERT_EQ(::stat(dataPath.c_str(), &info), 0);
    if (c.edited) {
        EXPECT_EQ(readFile(dataPath), floats({0.5f}));
    } else {
        EXPECT_EQ(info.st_mtim.tv_sec, 1000000) << "an unchanged file must not be touched";
        EXPECT_EQ(readFile(dataPath), floats({1.0f}));
    }
}

INSTANTIATE_TEST_SUITE_P(Table, ConfigureEnds,
                         testing::Values(EndCase{"CloseUnchanged", Ending::closeWindow, 0, false},
                                         EndCase{"CloseEdited", Ending::closeWindow, 0, true},
                                         EndCase{"DestroyedEdited", Ending::destroyWindow, 0, true},
                                         EndCase{"TermEdited", Ending::signal, SIGTERM, true},
                                         EndCase{"IntUnchanged", Ending::signal, SIGINT, false}),
                         [](const auto& info) { return std::string(info.param.name); });

// Here the temporary file cannot be made (a folder holds its name), as on a full disk.
TEST_F(Configure, SettingsThatCannotBeSavedEndWith255AndKeepTheOldFile) {
    std::ofstream(dataPath, std::ios::binary) << floats({1.0f});
    auto child = start("editor,edit=50");
    const XWindowId window = windowOf(*child);
    ASSERT_NE(window, 0u);
    ASSERT_TRUE(waitForLogLine("edited"));
    fs::create_directory(dataPath + ".p" + std::to_string(child->pid()) + ".rewrite.tmp");
    x.requestClose(window);
    const auto result = child->wait(exitWait);

    EXPECT_EQ(result.exitStatus, 255);
    EXPECT_EQ(result.err, "Could not save the settings to '" + dataPath + "': file already exists\n");
    EXPECT_EQ(readFile(dataPath), floats({1.0f}));
}

TEST_F(Configure, RefusedAtOnce) {
    struct Case {
        const char* name;
        const char* words;
        bool display;
        std::string err;
    };
    const Case cases[] = {
        {"NoEditorButParameters", "params=3", true, ""},
        {"NoDisplay", "editor", false,
         "Cannot open the X display \"\": the editor needs a graphical session\n"},
        {"PlugInExitsInItsEditor", "editor,exit-at=editor", true,
         "VST called exit (stage: editor)\n"},
    };
    for (const auto& c : cases) {
        auto options = effect(c.words);
        if (!c.display)
            options.environment["DISPLAY"] = std::nullopt;
        const auto result =
            runAdapter({"configure", "--vst", TEST_EFFECT_PATH, "--data", dataPath}, options);
        EXPECT_EQ(result.exitStatus, 255) << c.name;
        EXPECT_EQ(result.err, c.err) << c.name;
        EXPECT_FALSE(fs::exists(dataPath)) << c.name << ": nothing may be written";
    }
}

} // namespace
