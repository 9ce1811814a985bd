// "configure-live": the editor on the main thread while a worker feeds the plug-in from the
// parent's messages; nothing ever goes back on the data channel.

#include "tests/common/background_child.h"
#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"
#include "tests/gui/editor_fixture.h"

#include <gtest/gtest.h>

#include <csignal>
#include <regex>
#include <string>

namespace {

using testing_support::BackgroundChild;
using testing_support::chunk;
using testing_support::formatRecord;

std::string silence(size_t frames, int channels) {
    return std::string(frames * channels * 2, '\0');
}

class ConfigureLive : public EditorTest {
  protected:
    std::unique_ptr<BackgroundChild> start(const std::string& words, const std::string& messages,
                                           bool keepInputOpen = false) {
        auto options = effect(words);
        options.stdinBytes = messages;
        options.closeStdin = !keepInputOpen;
        return std::make_unique<BackgroundChild>(
            testing_support::adapterBinary(),
            std::vector<std::string>{"configure-live", "--vst", TEST_EFFECT_PATH, "--bits", "16"},
            options);
    }

    // Frames the plug-in was given, from its call log.
    size_t framesProcessed() const {
        const std::string log = readFile(logPath());
        static const std::regex call("process (\\d+)\n");
        size_t frames = 0;
        for (auto it = std::sregex_iterator(log.begin(), log.end(), call);
             it != std::sregex_iterator(); ++it)
            frames += std::stoul((*it)[1]);
        return frames;
    }
};

struct LiveCase {
    const char* name;
    std::string messages;
    size_t frames;   // what the plug-in processes
    std::string err; // what the worker reports
    const char* words = "editor";
};

void PrintTo(const LiveCase& c, std::ostream* out) {
    *out << c.name;
}

class LiveMessages : public ConfigureLive, public testing::WithParamInterface<LiveCase> {};

TEST_P(LiveMessages, WorkerFeedsThePlugInWhileTheEditorStays) {
    const auto& c = GetParam();
    auto child = start(c.words, c.messages);
    const XWindowId window = windowOf(*child);
    ASSERT_NE(window, 0u);
    // The worker is done once the input has ended; wait for its last call to show.
    if (c.frames > 0) {
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::duration<double>(windowWait);
        while (framesProcessed() < c.frames && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ASSERT_TRUE(child->running()) << "the session ended before the window was closed";
    EXPECT_TRUE(x.waitForWindowOf(child->pid(), 0.0).has_value()) << "the editor went away";

    x.requestClose(window);
    const auto result = child->wait(exitWait);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, "") << "nothing may reach the data channel";
    EXPECT_EQ(result.err, c.err);
    EXPECT_EQ(framesProcessed(), c.frames);
}

const std::string stereoFormat = chunk(3, formatRecord(44100, 2, 0, 2, 0));

INSTANTIATE_TEST_SUITE_P(
    Table, LiveMessages,
    testing::Values(
        LiveCase{"FormatThenAudio",
                 stereoFormat + chunk(1, silence(1300, 2)) + chunk(1, silence(7, 2)), 1307, ""},
        LiveCase{"AudioBeforeFormatIsDropped",
                 chunk(1, silence(600, 2)) + stereoFormat + chunk(1, silence(100, 2)), 100, ""},
        LiveCase{"FormatWithFewerInputsKeepsWaiting",
                 chunk(3, formatRecord(44100, 3, 0, 2, 0)) + chunk(1, silence(100, 3)), 0, ""},
        LiveCase{"NoInputAtAll", "", 0, ""},
        LiveCase{"TruncatedPayloadEndsQuietly",
                 stereoFormat + chunk(1, silence(100, 2)).substr(0, 50), 0, ""},
        LiveCase{"StateMessageIsUnknownHere",
                 stereoFormat + chunk(2, "x") + chunk(1, silence(100, 2)), 0,
                 "Live data processing error: unknown command"},
        LiveCase{"ShortFormat", chunk(3, "0123456789"), 0, "Live data processing error: bad input"},
        LiveCase{"FormatWithoutInputsIsRefused",
                 chunk(3, formatRecord(44100, 0, 0, 2, 0)) + chunk(1, silence(100, 2)), 0,
                 "Live data processing error: unsupported stream format"},
        // Under ThreadSanitizer: the host's state shared by the two threads is safe.
        LiveCase{"PlugInCallsTheHostFromBothThreads",
                 stereoFormat + chunk(1, silence(1300, 2)), 1300, "", "editor,host-calls"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ConfigureLive, WithoutEditorTheWorkerIsStoppedInsideItsRead) {
    // The input stays open and idle: only the stop request can end the worker's read.
    auto child = start("params=1", stereoFormat, true);
    const auto result = child->wait(exitWait);
    EXPECT_FALSE(result.timedOut) << "the worker was not stopped";
    EXPECT_EQ(result.exitStatus, 255);
    EXPECT_EQ(result.err, "Live data processing error: user abort");
    EXPECT_EQ(result.out, "");
}

TEST_F(ConfigureLive, ClosingTheEditorEndsTheSessionWhileTheWorkerWaits) {
    auto child = start("editor,edit=50", stereoFormat + chunk(1, silence(512, 2)), true);
    const XWindowId window = windowOf(*child);
    ASSERT_NE(window, 0u);
    ASSERT_TRUE(waitForLogLine("edited"));
    x.requestClose(window);
    const auto result = child->wait(exitWait);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.err, "") << "the worker is not stopped, so it reports nothing";
    EXPECT_EQ(result.out, "");
}

TEST_F(ConfigureLive, SettingsAreWrittenWhenTheSessionEnds) {
    auto options = effect("editor,edit=50");
    options.stdinBytes = stereoFormat + chunk(1, silence(100, 2));
    BackgroundChild child(
        testing_support::adapterBinary(),
        {"configure-live", "--vst", TEST_EFFECT_PATH, "--bits", "16", "--data", dataPath}, options);
    ASSERT_NE(windowOf(child), 0u);
    ASSERT_TRUE(waitForLogLine("edited"));
    child.signal(SIGTERM);
    EXPECT_EQ(child.wait(exitWait).exitStatus, 0);
    EXPECT_EQ(readFile(dataPath), floats({0.5f}));
}

} // namespace
