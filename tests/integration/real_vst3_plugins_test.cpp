// Real VST 3 plug-ins from Debian's zam-plugins through the built binary. Skipped when absent.
#include "tests/common/child_process.h"
#include "tests/common/chunked_stream.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

using testing_support::ChildOptions;
using testing_support::runAdapter;

const std::string zamFolder = "/usr/lib/vst3/";

// No display, a throw-away home; leaks inside third-party plug-ins are theirs, not ours.
ChildOptions headless(std::string input = "") {
    ChildOptions options;
    options.environment["DISPLAY"] = std::nullopt;
    options.environment["WAYLAND_DISPLAY"] = std::nullopt;
    options.environment["HOME"] = std::filesystem::temp_directory_path().string();
    const char* asan = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] = std::string(asan ? asan : "") + ":detect_leaks=0";
    options.stdinBytes = std::move(input);
    options.timeoutSeconds = 120.0;
    return options;
}

bool installed(const std::string& bundle) {
    return std::filesystem::exists(zamFolder + bundle + ".vst3");
}

// A 16-bit sine, the same on every channel, loud enough for dynamics plug-ins to act on.
std::string sine16(size_t frames, int channels, double amplitude = 0.6) {
    std::string bytes;
    for (size_t frame = 0; frame < frames; ++frame) {
        const auto value = static_cast<int16_t>(
            std::lround(amplitude * 32767.0 * std::sin(0.0456 * static_cast<double>(frame))));
        for (int channel = 0; channel < channels; ++channel)
            bytes.append(reinterpret_cast<const char*>(&value), 2);
    }
    return bytes;
}

int16_t peak(const std::string& samples) {
    int peakValue = 0;
    for (size_t at = 0; at + 1 < samples.size(); at += 2) {
        int16_t value = 0;
        std::memcpy(&value, samples.data() + at, 2);
        peakValue = std::max(peakValue, std::abs(static_cast<int>(value)));
    }
    return static_cast<int16_t>(peakValue);
}

struct Zam {
    const char* name;
    int inputs;
    int outputs;
    bool changesSound; // with its defaults, on our sine
};

void PrintTo(const Zam& zam, std::ostream* out) {
    *out << zam.name;
}

class ZamVst3 : public testing::TestWithParam<Zam> {
  protected:
    void SetUp() override {
        if (!installed(GetParam().name))
            GTEST_SKIP() << GetParam().name
                         << ".vst3 is not installed (scripts/setup installs zam-plugins)";
    }
    std::string path() const { return zamFolder + GetParam().name + ".vst3"; }
    std::vector<std::string> processArguments() const {
        return {"process",       "--vst",      path(),
                "--vst-version", "3",          "--rate",
                "44100",         "--channels", std::to_string(GetParam().inputs),
                "--bits",        "16"};
    }
};

TEST_P(ZamVst3, TestAndHasEditor) {
    for (const char* command : {"test", "has-editor"}) {
        const auto result =
            runAdapter({command, "--vst", path(), "--vst-version", "3"}, headless());
        EXPECT_EQ(result.exitStatus, 0) << command << ": " << result.err;
        EXPECT_EQ(result.out, "");
    }
}

TEST_P(ZamVst3, InfoShowsMainBusPins) {
    const auto result = runAdapter({"info", "--vst", path(), "--vst-version", "3"}, headless());
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    const bool stereo = GetParam().inputs == 2;
    const std::string firstPin =
        std::string("  Input 0:\n    .label = Audio Input\n    .flags = ") + (stereo ? "7" : "5") +
        "\n    .arrangementType = " + (stereo ? "1" : "0") + "\n";
    EXPECT_NE(
        result.err.find("Number of inputs: " + std::to_string(GetParam().inputs) + "\n" + firstPin),
        std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("Number of outputs: " + std::to_string(GetParam().outputs) + "\n"),
              std::string::npos);
}

TEST_P(ZamVst3, ProcessIsRepeatableAndChangesTheSoundWhereItShould) {
    const std::string input = sine16(8000, GetParam().inputs);
    const auto first = runAdapter(processArguments(), headless(input));
    const auto second = runAdapter(processArguments(), headless(input));
    ASSERT_EQ(first.exitStatus, 0) << first.err;
    ASSERT_EQ(second.exitStatus, 0) << second.err;
    ASSERT_GE(first.out.size(), input.size());
    EXPECT_EQ(first.out, second.out);
    EXPECT_EQ(first.out.substr(0, input.size()) != input, GetParam().changesSound);
}

TEST_P(ZamVst3, PlainAndChunkedFramingGiveTheSameSamples) {
    const std::string input = sine16(3000, GetParam().inputs);
    const auto plain = runAdapter(processArguments(), headless(input));
    const auto channels = static_cast<uint32_t>(GetParam().inputs);
    const uint32_t mask = channels == 2 ? 3 : 4;
    // Two audio messages of unequal size: framing must not matter to the plug-in's output.
    const std::string chunked =
        testing_support::formatMessage(44100, channels, mask, channels, mask) +
        testing_support::chunk(1, input.substr(0, 1000 * 2 * channels)) +
        testing_support::chunk(1, input.substr(1000 * 2 * channels));
    const auto framed = runAdapter(
        {"process", "--vst", path(), "--vst-version", "3", "--bits", "16", "--protocol", "chunked"},
        headless(chunked));
    ASSERT_EQ(plain.exitStatus, 0) << plain.err;
    ASSERT_EQ(framed.exitStatus, 0) << framed.err;
    const size_t firstPart = 1000 * 2 * channels;
    ASSERT_EQ(framed.out.size(), 20 + firstPart + 4 + (input.size() - firstPart) + 4);
    const std::string samples = framed.out.substr(20, firstPart) +
                                framed.out.substr(20 + firstPart + 4, input.size() - firstPart);
    EXPECT_EQ(samples, plain.out.substr(0, input.size()));
}

INSTANTIATE_TEST_SUITE_P(Installed, ZamVst3,
                         testing::Values(Zam{"ZaMaximX2", 2, 2, true},
                                         Zam{"ZamCompX2", 2, 2, false}, Zam{"ZamComp", 1, 1, false},
                                         Zam{"ZamDelay", 1, 1, true}, Zam{"ZamTube", 1, 1, true},
                                         Zam{"ZamEQ2", 1, 1, false}, Zam{"ZamGateX2", 2, 2, true}),
                         [](const auto& info) { return std::string(info.param.name); });

class ZaMaximX2 : public testing::Test {
  protected:
    void SetUp() override {
        if (!installed("ZaMaximX2"))
            GTEST_SKIP() << "zam-plugins is not installed";
    }
    const std::string path = zamFolder + "ZaMaximX2.vst3";
};

TEST_F(ZaMaximX2, LatencyIsReportedAndDelaysTheSound) {
    const std::string input = sine16(2048, 2);
    const std::string messages =
        testing_support::formatMessage(44100, 2, 3, 2, 3) + testing_support::chunk(1, input);
    const auto result = runAdapter(
        {"process", "--vst", path, "--bits", "16", "--protocol", "chunked"}, headless(messages));
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    ASSERT_EQ(result.out.size(), 20 + input.size() + 4);
    EXPECT_EQ(testing_support::readU32(result.out, 20 + input.size()), 480u);
    // Frame 480 carries sin(0); the first sound is one frame later.
    EXPECT_EQ(peak(result.out.substr(20, 481 * 4)), 0);
    EXPECT_GT(peak(result.out.substr(20 + 481 * 4, 4)), 0);
}

TEST_F(ZaMaximX2, RecordsFromTheDataFileReachTheProcessor) {
    // Release, output ceiling and threshold all to 0: the limiter pulls the sine right down.
    const std::string data =
        (std::filesystem::temp_directory_path() / ("zam-records-" + std::to_string(::getpid())))
            .string();
    std::ofstream(data, std::ios::binary)
        << testing_support::idValueRecords({{4, 0.0}, {5, 0.0}, {6, 0.0}});
    const std::string input = sine16(8000, 2);
    const std::vector<std::string> arguments{"process",    "--vst", path,     "--rate", "44100",
                                             "--channels", "2",     "--bits", "16"};
    auto withData = arguments;
    withData.insert(withData.end(), {"--data", data});
    const auto plain = runAdapter(arguments, headless(input));
    const auto limited = runAdapter(withData, headless(input));
    std::filesystem::remove(data);
    ASSERT_EQ(plain.exitStatus, 0) << plain.err;
    ASSERT_EQ(limited.exitStatus, 0) << limited.err;
    EXPECT_GT(peak(plain.out), 19000);
    EXPECT_LT(peak(limited.out), 2000);
}

TEST_F(ZaMaximX2, SixtyFourBitRequestFallsBackToThirtyTwo) {
    // No zam plug-in processes 64-bit: asking for it must give the 32-bit result, not silence.
    const std::string input = sine16(2000, 2);
    const std::vector<std::string> arguments{"process",    "--vst", path,     "--rate", "44100",
                                             "--channels", "2",     "--bits", "16"};
    auto asked = arguments;
    asked.insert(asked.end(), {"--float64", "1"});
    const auto single = runAdapter(arguments, headless(input));
    const auto doubled = runAdapter(asked, headless(input));
    ASSERT_EQ(doubled.exitStatus, 0) << doubled.err;
    EXPECT_EQ(doubled.out, single.out);
    EXPECT_GT(peak(doubled.out), 0);
}

} // namespace
