// A real plug-in's editor: it shows, the user's changes reach the settings file, and the sound
// follows. Synthetic input is mouse-wheel turns over the editor, which it takes as knob changes
// wherever the pointer lands on one.

#include "tests/common/child_process.h"
#include "tests/common/scratch.h"
#include "tests/gui/x_windows.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <thread>

namespace {

using testing_support::runChild;

TEST(RealEditors, ZamEqShowsAndTheUsersChangesChangeTheSound) {
    const char* plugin = "/usr/lib/vst/ZamEQ2-vst.so";
    XTestConnection x;
    if (!std::filesystem::exists(plugin) || !x.connected())
        GTEST_SKIP() << "needs " << plugin << " and an X display (scripts/test has both)";
    scratch::Folder folder;
    auto options = testing_support::headless();
    options.environment["HOME"] = folder.path();
    options.environment["DISPLAY"] = std::getenv("DISPLAY");
    const std::string defaults = folder / "defaults.bin", edited = folder / "edited.bin";
    ASSERT_EQ(runChild(SETTINGS_PROBE_PATH, {plugin, defaults}, options).exitStatus, 0);
    std::filesystem::copy_file(defaults, edited);

    testing_support::BackgroundChild editor(testing_support::adapterBinary(),
                                            {"configure", "--vst", plugin, "--data", edited},
                                            options);
    const auto window = x.waitForWindowOf(editor.pid(), 15.0);
    ASSERT_TRUE(window.has_value()) << "no editor window";
    for (int tries = 0; x.distinctColours(*window) < 3 && tries < 300; ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_GE(x.distinctColours(*window), 3u) << "the editor window stays blank";
    const auto where = x.geometry(*window);
    for (int fx = 1; fx < 20; fx += 2)
        for (int fy = 1; fy < 20; fy += 2)
            runChild("/usr/bin/xdotool",
                     {"mousemove", "--window", std::to_string(*window),
                      std::to_string(where.width * fx / 20), std::to_string(where.height * fy / 20),
                      "click", "--repeat", "3", "--delay", "5", "4"},
                     options);
    // The wheel events reach the editor on its next idle.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    x.requestClose(*window);
    const auto result = editor.wait(15.0);
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.out, "");
    ASSERT_NE(scratch::readFile(edited), scratch::readFile(defaults))
        << "the editor's changes did not reach the settings file";

    std::string input;
    for (int i = 0; i < 22050; ++i) {
        const auto value = static_cast<int16_t>(20000.0 * std::sin(0.02 * i));
        input.append(reinterpret_cast<const char*>(&value), 2);
    }
    options.stdinBytes = input;
    const auto process = [&](const std::string& data) {
        return testing_support::runAdapter({"process", "--vst", plugin, "--rate", "44100",
                                            "--channels", "1", "--bits", "16", "--data", data},
                                           options)
            .out;
    };
    EXPECT_NE(process(edited), process(defaults)) << "the edited settings do not change the sound";
}

} // namespace
