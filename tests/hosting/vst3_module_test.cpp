// The VST 3 module loader against the in-tree test module, loaded into this process.
#include "hosting/load_failure.h"
#include "hosting/vst3/vst3_module.h"
#include "tests/common/vst3_bundles.h"
#include "tests/hosting/vst3_test_environment.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using testing_support::readLines;
using testing_support::Vst3Layouts;

TEST(Vst3Module, BundleLoadsWithItsClassesInFactoryOrder) {
    Vst3Layouts layouts("module-order");
    const std::string log = layouts.file("log");
    {
        const Vst3TestEnvironment environment("", log);
        auto module = Vst3Module::load(layouts.bundle("Gain", TEST_VST3_PATH));
        ASSERT_NE(module, nullptr);
        const auto& classes = module->classes();
        ASSERT_EQ(classes.size(), 2u);
        EXPECT_TRUE(classes[0].isAudioModule());
        EXPECT_EQ(classes[0].category, "Audio Module Class");
        EXPECT_EQ(classes[0].name, "Test VST3 Gain");
        EXPECT_EQ(classes[0].vendor, "Test Vendor"); // the factory's, as the class names none
        EXPECT_EQ(classes[0].version, "1.2.3");
        EXPECT_EQ(classes[0].subCategories, "Fx|Dynamics");
        EXPECT_EQ(classes[0].classIdText(), "5445535456535433434F4D5000000001");
        EXPECT_FALSE(classes[1].isAudioModule());
        EXPECT_EQ(classes[1].category, "Component Controller Class");
    }
    EXPECT_EQ(readLines(log), (std::vector<std::string>{"moduleEntry", "getFactory",
                                                        "factoryHostContext set", "moduleExit"}));
}

TEST(Vst3Module, ControllerListedFirstStaysFirst) {
    Vst3Layouts layouts("module-controller-first");
    const Vst3TestEnvironment environment("controller-first", layouts.file("log"));
    auto module = Vst3Module::load(layouts.bundle("Gain", TEST_VST3_PATH));
    ASSERT_NE(module, nullptr);
    ASSERT_EQ(module->classes().size(), 2u);
    EXPECT_FALSE(module->classes()[0].isAudioModule());
    EXPECT_TRUE(module->classes()[1].isAudioModule());
}

TEST(Vst3Module, SingleFileLoads) {
    Vst3Layouts layouts("module-single-file");
    const Vst3TestEnvironment environment("", layouts.file("log"));
    EXPECT_NE(Vst3Module::load(layouts.singleFile("Gain", TEST_VST3_PATH)), nullptr);
}

struct RefusalCase {
    const char* name;
    std::string words;
    std::function<std::string(Vst3Layouts&)> path;
    std::vector<std::string> log; // what the module saw
};

void PrintTo(const RefusalCase& c, std::ostream* out) {
    *out << c.name;
}

class Vst3ModuleRefusals : public testing::TestWithParam<RefusalCase> {};

TEST_P(Vst3ModuleRefusals, NoModule) {
    Vst3Layouts layouts(std::string("module-") + GetParam().name);
    const std::string log = layouts.file("log");
    {
        const Vst3TestEnvironment environment(GetParam().words, log);
        EXPECT_THROW(Vst3Module::load(GetParam().path(layouts)), LoadFailure);
    }
    EXPECT_EQ(readLines(log), GetParam().log);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Vst3ModuleRefusals,
    testing::Values(
        // An entry function that says no leaves the module uninitialised: no exit either.
        RefusalCase{"EntryRefuses",
                    "entry-false",
                    [](auto& l) { return l.bundle("Gain", TEST_VST3_PATH); },
                    {"moduleEntry"}},
        RefusalCase{"BadOptionsRefuseInEntry",
                    "no-such-word",
                    [](auto& l) { return l.bundle("Gain", TEST_VST3_PATH); },
                    {}},
        RefusalCase{"NullFactory",
                    "null-factory",
                    [](auto& l) { return l.bundle("Gain", TEST_VST3_PATH); },
                    {"moduleEntry", "getFactory", "moduleExit"}},
        // Exports are checked before anything runs.
        RefusalCase{"NoFactoryExport",
                    "",
                    [](auto& l) { return l.bundle("Gain", TEST_VST3_NO_FACTORY_PATH); },
                    {}},
        RefusalCase{"OtherArchitectureOnly",
                    "",
                    [](auto& l) { return l.bundle("Gain", TEST_VST3_PATH, "some-other-linux"); },
                    {}},
        RefusalCase{"FolderThatIsNoBundle",
                    "",
                    [](auto& l) { return l.folder("Gain.vst3", {"Gain.so"}); },
                    {}},
        RefusalCase{
            "SharedObjectNotNamedVst3", "", [](auto&) { return std::string(TEST_VST3_PATH); }, {}},
        RefusalCase{"Missing", "", [](auto& l) { return l.file("Absent.vst3"); }, {}}),
    [](const auto& info) { return std::string(info.param.name); });

} // namespace
