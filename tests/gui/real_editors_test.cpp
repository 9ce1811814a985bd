// Editors of real plug-ins: they show, the user's changes reach the settings file, and the sound
// follows. Synthetic input is mouse-wheel turns over the editor, which every one of these
// editors takes as a knob or slider change wherever the pointer lands on one.

#include "tests/common/background_child.h"
#include "tests/common/child_process.h"
#include "tests/common/real_plugins.h"
#include "tests/common/scratch.h"
#include "tests/gui/x_windows.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

namespace {

namespace fs = std::filesystem;
using testing_support::BackgroundChild;
using testing_support::runAdapter;
using testing_support::runChild;

constexpr double windowWait = 15.0; // a guard against hanging, not a speed requirement

using scratch::readFile;

struct RealEditor {
    const char* name;
    const char* path;
    int channels;
};

void PrintTo(const RealEditor& editor, std::ostream* out) {
    *out << editor.name;
}

class RealEditors : public testing::TestWithParam<RealEditor> {
  protected:
    void SetUp() override {
        if (!fs::exists(GetParam().path))
            GTEST_SKIP() << GetParam().path << " is not installed (scripts/setup installs it)";
        if (!x.connected())
            GTEST_SKIP() << "no X display (scripts/test runs the tests under xvfb-run)";
        char pattern[] = "/tmp/real-editor-XXXXXX";
        folder = ::mkdtemp(pattern);
    }
    void TearDown() override {
        if (!folder.empty())
            fs::remove_all(folder);
    }

    testing_support::ChildOptions options() const {
        auto result = testing_support::headless();
        result.environment["HOME"] = folder.string();
        if (const char* display = std::getenv("DISPLAY"))
            result.environment["DISPLAY"] = display;
        return result;
    }

    // Waits until the editor has drawn something other than a blank window.
    bool waitForDrawing(XWindowId window) {
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::duration<double>(windowWait);
        while (x.distinctColours(window) < 3) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return true;
    }

    void turnKnobs(XWindowId window) {
        const auto where = x.geometry(window);
        for (int fx = 1; fx < 20; fx += 2)
            for (int fy = 1; fy < 20; fy += 2)
                runChild("/usr/bin/xdotool",
                         {"mousemove", "--window", std::to_string(window),
                          std::to_string(where.width * fx / 20),
                          std::to_string(where.height * fy / 20), "click", "--repeat", "3",
                          "--delay", "5", "4"},
                         options());
        // The wheel events reach the editor on its next idle.
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }

    // Some editors greet a new user once, in a window that takes the input; a session of its
    // own in the same home gets that out of the way, as it would be for a real user.
    void firstSession() {
        BackgroundChild editor(
            testing_support::adapterBinary(),
            {"configure", "--vst", GetParam().path, "--data", (folder / "first.bin").string()},
            options());
        if (const auto window = x.waitForWindowOf(editor.pid(), windowWait)) {
            waitForDrawing(*window);
            x.requestClose(*window);
        }
        editor.wait(windowWait);
    }

    std::string process(const std::string& dataPath) const {
        std::string input;
        for (int i = 0; i < 22050; ++i)
            for (int c = 0; c < GetParam().channels; ++c) {
                const auto value = static_cast<int16_t>(20000.0 * std::sin(0.02 * i * (c + 1)));
                input.append(reinterpret_cast<const char*>(&value), 2);
            }
        auto processOptions = options();
        processOptions.stdinBytes = input;
        const auto result =
            runAdapter({"process", "--vst", GetParam().path, "--rate", "44100", "--channels",
                        std::to_string(GetParam().channels), "--bits", "16", "--data", dataPath},
                       processOptions);
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        return result.out;
    }

    XTestConnection x;
    fs::path folder;
};

TEST_P(RealEditors, ShowsAndTheUsersChangesChangeTheSound) {
    const std::string defaults = (folder / "defaults.bin").string();
    const std::string edited = (folder / "edited.bin").string();
    ASSERT_EQ(runChild(SETTINGS_PROBE_PATH, {GetParam().path, defaults}, options()).exitStatus, 0);
    fs::copy_file(defaults, edited);
    firstSession();

    BackgroundChild editor(testing_support::adapterBinary(),
                           {"configure", "--vst", GetParam().path, "--data", edited}, options());
    const auto window = x.waitForWindowOf(editor.pid(), windowWait);
    ASSERT_TRUE(window.has_value()) << "no editor window";
    EXPECT_TRUE(waitForDrawing(*window)) << "the editor window stays blank";
    if (const char* folderForPictures = std::getenv("VST_ADAPTER_SCREENSHOTS")) {
        int width = 0, height = 0;
        const auto pixels = x.capture(*window, width, height);
        std::ofstream picture(std::string(folderForPictures) + "/" + GetParam().name + ".ppm",
                              std::ios::binary);
        picture << "P6\n" << width << " " << height << "\n255\n";
        picture.write(reinterpret_cast<const char*>(pixels.data()),
                      static_cast<std::streamsize>(pixels.size()));
    }
    turnKnobs(*window);
    x.requestClose(*window);
    const auto result = editor.wait(windowWait);

    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.out, "");
    ASSERT_NE(readFile(edited), readFile(defaults))
        << "the editor's changes did not reach the settings file";
    EXPECT_NE(process(edited), process(defaults)) << "the edited settings do not change the sound";
}

INSTANTIATE_TEST_SUITE_P(Installed, RealEditors,
                         testing::Values(RealEditor{"LspCompressorStereo",
                                                    "/usr/lib/vst/lsp-plugins/compressor-stereo.so",
                                                    2},
                                         RealEditor{"ZamEq", "/usr/lib/vst/ZamEQ2-vst.so", 1},
                                         RealEditor{"ZamEqVst3", "/usr/lib/vst3/ZamEQ2.vst3", 1}),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
