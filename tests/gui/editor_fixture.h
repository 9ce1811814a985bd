#pragma once

#include "tests/common/background_child.h"
#include "tests/common/child_process.h"
#include "tests/common/scratch.h"
#include "tests/gui/x_windows.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

// Editor sessions with the in-tree plug-in: a folder, a settings path and a call log per test,
// and the test's own X connection.
constexpr double windowWait = 10.0; // a guard against hanging, not a speed requirement
constexpr double exitWait = 10.0;

inline std::string floats(std::initializer_list<float> values) {
    return {reinterpret_cast<const char*>(std::data(values)), values.size() * sizeof(float)};
}

using scratch::readFile;

class EditorTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!x.connected())
            GTEST_SKIP() << "no X display (scripts/test runs the tests under xvfb-run)";
        char pattern[] = "/tmp/editor-test-XXXXXX";
        folder = ::mkdtemp(pattern);
        dataPath = (folder / "settings.bin").string();
    }
    void TearDown() override {
        if (!folder.empty())
            std::filesystem::remove_all(folder);
    }

    testing_support::ChildOptions effect(const std::string& words) const {
        testing_support::ChildOptions options;
        options.environment["TEST_EFFECT"] = words;
        options.environment["TEST_EFFECT_LOG"] = logPath();
        options.environment["HOME"] = folder.string();
        return options;
    }

    XWindowId windowOf(testing_support::BackgroundChild& child) {
        const auto window = x.waitForWindowOf(child.pid(), windowWait);
        EXPECT_TRUE(window.has_value()) << "no window appeared";
        return window.value_or(0);
    }

    std::string logPath() const { return (folder / "calls.log").string(); }

    // Waits for a whole line in the plug-in's call log.
    bool waitForLogLine(const std::string& line) const {
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::duration<double>(windowWait);
        while (readFile(logPath()).find(line + "\n") == std::string::npos) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return true;
    }

    XTestConnection x;
    std::filesystem::path folder;
    std::string dataPath;
};
