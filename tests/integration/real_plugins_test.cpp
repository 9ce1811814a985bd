#include "tests/common/child_process.h"
#include "tests/common/real_plugins.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

namespace {

using testing_support::headless;
using testing_support::runAdapter;

struct RealPlugin {
    const char* name;
    const char* path;
    int inputs;
    int outputs;
};

void PrintTo(const RealPlugin& plugin, std::ostream* out) {
    *out << plugin.name;
}

class RealVst2Plugins : public testing::TestWithParam<RealPlugin> {
  protected:
    void SetUp() override {
        if (!std::filesystem::exists(GetParam().path))
            GTEST_SKIP() << GetParam().path << " is not installed (scripts/setup installs it)";
    }
};

TEST_P(RealVst2Plugins, TestLoads) {
    const auto result =
        runAdapter({"test", "--vst", GetParam().path, "--vst-version", "2"}, headless());
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST_P(RealVst2Plugins, HasEditorAnswersYes) {
    // Every one of these has parameters, so it can be configured with or without an editor.
    const auto result = runAdapter({"has-editor", "--vst", GetParam().path}, headless());
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.out, "");
}

TEST_P(RealVst2Plugins, InfoCountsPins) {
    const auto result = runAdapter({"info", "--vst", GetParam().path}, headless());
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.out, "");
    std::istringstream lines(result.err);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "Number of inputs: " + std::to_string(GetParam().inputs));
    int pinSections = 0;
    while (std::getline(lines, line))
        if (line.rfind("  Input ", 0) == 0 || line.rfind("  Output ", 0) == 0)
            ++pinSections;
    EXPECT_EQ(pinSections, GetParam().inputs + GetParam().outputs);
    EXPECT_NE(result.err.find("Number of outputs: " + std::to_string(GetParam().outputs) + "\n"),
              std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Installed, RealVst2Plugins,
    testing::Values(
        RealPlugin{"LspCompressorStereo", "/usr/lib/vst/lsp-plugins/compressor-stereo.so", 2, 2},
        RealPlugin{"LspCompressorMono", "/usr/lib/vst/lsp-plugins/compressor-mono.so", 1, 1},
        RealPlugin{"LspGateSidechain", "/usr/lib/vst/lsp-plugins/sc-gate-stereo.so", 4, 2},
        RealPlugin{"ZamCompSidechain", "/usr/lib/vst/ZamComp-vst.so", 2, 1},
        RealPlugin{"ZamDelay", "/usr/lib/vst/ZamDelay-vst.so", 1, 1},
        RealPlugin{"ZamEq", "/usr/lib/vst/ZamEQ2-vst.so", 1, 1}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RealVst2Library, LibraryWithoutEntryIsRefused) {
    const char* library = "/usr/lib/vst/lsp-plugins/lsp-plugins-vst2-1.2.5.so";
    if (!std::filesystem::exists(library))
        GTEST_SKIP() << "lsp-plugins-vst not installed";
    const auto result = runAdapter({"test", "--vst", library}, headless());
    EXPECT_EQ(result.exitStatus, 255);
    EXPECT_EQ(result.err, std::string("Could not load VST: ") + library + "\nCould not open VST.");
}

TEST(RealVst2Library, InstrumentIsRefusedAndClosedCleanly) {
    // Its threads run from the moment it is made: releasing its code before closing it crashed
    // the process after the refusal, now and then.
    const char* sampler = "/usr/lib/vst/lsp-plugins/sampler-stereo.so";
    if (!std::filesystem::exists(sampler))
        GTEST_SKIP() << "lsp-plugins-vst not installed";
    for (int run = 0; run < 5; ++run) {
        const auto result = runAdapter({"test", "--vst", sampler}, headless());
        ASSERT_EQ(result.exitStatus, 255) << "run " << run + 1 << ", signal " << result.signal;
        EXPECT_EQ(result.err,
                  std::string("Could not load VST: ") + sampler + "\nCould not open VST.");
    }
}

} // namespace
