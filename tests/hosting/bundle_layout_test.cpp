#include "hosting/module/bundle_layout.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

struct LayoutCase {
    const char* name;
    std::vector<std::string> files;  // created below the temporary root
    std::string given;               // path handed to the resolver, relative to the root
    std::optional<std::string> expected;
};

class LayoutFolder : public testing::TestWithParam<LayoutCase> {
  protected:
    void SetUp() override {
        root = fs::temp_directory_path() / ("layout-" + std::string(GetParam().name) + "-" + std::to_string(::getpid()));
        fs::remove_all(root);
        for (const auto& file : GetParam().files) {
            fs::create_directories((root / file).parent_path());
            std::ofstream(root / file) << "x";
        }
    }
    void TearDown() override { fs::remove_all(root); }
    fs::path root;
};

using BundleLayouts = LayoutFolder;

TEST_P(BundleLayouts, ChooseTheBinary) {
    const auto found = resolveModuleBinary((root / GetParam().given).string(), "x86_64-linux");
    if (!GetParam().expected) {
        EXPECT_FALSE(found) << *found;
        return;
    }
    ASSERT_TRUE(found);
    EXPECT_EQ(fs::path(*found).lexically_normal(), (root / *GetParam().expected).lexically_normal());
}

INSTANTIATE_TEST_SUITE_P(
    Table, BundleLayouts,
    testing::Values(
        LayoutCase{"PlainFile", {"fx.so"}, "fx.so", "fx.so"},
        LayoutCase{"AnyFileIsTried", {"notes.txt"}, "notes.txt", "notes.txt"},
        LayoutCase{"Missing", {}, "absent.so", std::nullopt},
        LayoutCase{"BundleNamedBinary", {"Fx.vst/Contents/x86_64-linux/Fx.so", "Fx.vst/Contents/x86_64-linux/Other.so"},
                   "Fx.vst", "Fx.vst/Contents/x86_64-linux/Fx.so"},
        LayoutCase{"BundleTrailingSlash", {"Fx.vst/Contents/x86_64-linux/Fx.so"}, "Fx.vst/",
                   "Fx.vst/Contents/x86_64-linux/Fx.so"},
        LayoutCase{"BundleOtherName", {"Fx.vst/Contents/x86_64-linux/engine.so"}, "Fx.vst",
                   "Fx.vst/Contents/x86_64-linux/engine.so"},
        LayoutCase{"OtherArchitectureOnly", {"Fx.vst/Contents/aarch64-linux/Fx.so"}, "Fx.vst", std::nullopt},
        LayoutCase{"FolderNamedAfterBinary", {"Fx.vst/Fx.so", "Fx.vst/helper.so"}, "Fx.vst", "Fx.vst/Fx.so"},
        LayoutCase{"FolderWithOneBinary", {"Fx/engine.so", "Fx/readme.txt"}, "Fx", "Fx/engine.so"},
        LayoutCase{"FolderWithTwoBinaries", {"Fx/a.so", "Fx/b.so"}, "Fx", std::nullopt},
        LayoutCase{"EmptyFolder", {"Fx/readme.txt"}, "Fx", std::nullopt}),
    [](const auto& info) { return std::string(info.param.name); });

using Vst3BundleLayouts = LayoutFolder;

TEST_P(Vst3BundleLayouts, ChooseTheBinary) {
    const auto found = resolveVst3Binary((root / GetParam().given).string(), "x86_64-linux");
    if (!GetParam().expected) {
        EXPECT_FALSE(found) << *found;
        return;
    }
    ASSERT_TRUE(found);
    EXPECT_EQ(fs::path(*found).lexically_normal(),
              (root / *GetParam().expected).lexically_normal());
}

INSTANTIATE_TEST_SUITE_P(
    Table, Vst3BundleLayouts,
    testing::Values(LayoutCase{"Bundle",
                               {"Fx.vst3/Contents/x86_64-linux/Fx.so"},
                               "Fx.vst3",
                               "Fx.vst3/Contents/x86_64-linux/Fx.so"},
                    LayoutCase{"BundleTrailingSlash",
                               {"Fx.vst3/Contents/x86_64-linux/Fx.so"},
                               "Fx.vst3/",
                               "Fx.vst3/Contents/x86_64-linux/Fx.so"},
                    LayoutCase{"SingleFile", {"Fx.vst3"}, "Fx.vst3", "Fx.vst3"},
                    LayoutCase{"SharedObjectIsNotTried", {"fx.so"}, "fx.so", std::nullopt},
                    LayoutCase{"BinaryNamedOtherwise",
                               {"Fx.vst3/Contents/x86_64-linux/engine.so"},
                               "Fx.vst3",
                               std::nullopt},
                    LayoutCase{"OtherArchitectureOnly",
                               {"Fx.vst3/Contents/aarch64-linux/Fx.so"},
                               "Fx.vst3",
                               std::nullopt},
                    LayoutCase{
                        "FolderNamedAfterBinary", {"Fx.vst3/Fx.so"}, "Fx.vst3", std::nullopt},
                    LayoutCase{"Missing", {}, "Fx.vst3", std::nullopt}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Vst3BundleLayouts, ArchitectureFolderNamesThisMachine) {
    const std::string folder = linuxArchitectureFolder();
#if defined(__x86_64__)
    EXPECT_EQ(folder, "x86_64-linux");
#else
    EXPECT_TRUE(folder.ends_with("-linux")) << folder;
#endif
}

} // namespace
