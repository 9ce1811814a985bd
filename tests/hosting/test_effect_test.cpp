// The in-tree test plug-ins, loaded directly: the exports and record fields that host tests
// take for granted when they pick a module and a TEST_EFFECT word.

#include "hosting/vst2/vst2_abi.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <dlfcn.h>
#include <memory>
#include <string>
#include <vector>

namespace {

intptr_t silentHost(AEffect*, int32_t, int32_t, intptr_t, void*, float) {
    return 0;
}

struct DlCloser {
    void operator()(void* handle) const { ::dlclose(handle); }
};
using Module = std::unique_ptr<void, DlCloser>;

Module openModule(const char* path) {
    Module module(::dlopen(path, RTLD_NOW | RTLD_LOCAL));
    EXPECT_NE(module, nullptr) << ::dlerror();
    return module;
}

VstPluginMainProc entryOf(const Module& module, const char* name) {
    return reinterpret_cast<VstPluginMainProc>(::dlsym(module.get(), name));
}

struct EffectCloser {
    void operator()(AEffect* effect) const {
        effect->dispatcher(effect, effClose, 0, 0, nullptr, 0.0f);
    }
};
using Effect = std::unique_ptr<AEffect, EffectCloser>;

// TEST_EFFECT for the life of the object, also when the entry function throws.
class ScopedWords {
  public:
    explicit ScopedWords(const char* words) { ::setenv("TEST_EFFECT", words, 1); }
    ScopedWords(const ScopedWords&) = delete;
    ScopedWords& operator=(const ScopedWords&) = delete;
    ~ScopedWords() { ::unsetenv("TEST_EFFECT"); }
};

// Makes an instance through VSTPluginMain with TEST_EFFECT set to `words`.
Effect makeEffect(const Module& module, const char* words) {
    const ScopedWords scoped(words);
    const VstPluginMainProc entry = entryOf(module, "VSTPluginMain");
    return Effect(entry == nullptr ? nullptr : entry(silentHost));
}

std::string effectName(AEffect* effect) {
    char name[64] = {};
    effect->dispatcher(effect, effGetEffectName, 0, 0, name, 0.0f);
    return name;
}

TEST(TestEffectModules, ExportTheEntryFunctionsTheirNamesPromise) {
    struct Case {
        const char* path;
        bool pluginMain;
        bool main;
    };
    for (const Case& c :
         {Case{TEST_EFFECT_PATH, true, true}, Case{TEST_EFFECT_MAIN_ONLY_PATH, false, true},
          Case{TEST_EFFECT_NO_ENTRY_PATH, false, false}}) {
        SCOPED_TRACE(c.path);
        const Module module = openModule(c.path);
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(entryOf(module, "VSTPluginMain") != nullptr, c.pluginMain);
        EXPECT_EQ(entryOf(module, "main") != nullptr, c.main);
    }
}

TEST(TestEffectModules, EntryThroughMainIsTheModulesOwnAndMarked) {
    const Module module = openModule(TEST_EFFECT_PATH);
    ASSERT_NE(module, nullptr);
    const VstPluginMainProc viaMain = entryOf(module, "main");
    ASSERT_NE(viaMain, nullptr);
    Dl_info info{};
    ASSERT_NE(::dladdr(reinterpret_cast<void*>(viaMain), &info), 0);
    EXPECT_NE(std::string(info.dli_fname).find("test_effect.so"), std::string::npos);

    const Effect fromMain(viaMain(silentHost));
    const Effect fromPluginMain(entryOf(module, "VSTPluginMain")(silentHost));
    ASSERT_NE(fromMain, nullptr);
    ASSERT_NE(fromPluginMain, nullptr);
    EXPECT_EQ(effectName(fromMain.get()), "Test Effect (main)");
    EXPECT_EQ(effectName(fromPluginMain.get()), "Test Effect");
}

TEST(TestEffectRecord, CarriesWhatTheWordsAsk) {
    struct Case {
        const char* words;
        int32_t numInputs;
        int32_t numOutputs;
        int32_t flags;
        bool processReplacing;
        bool processDouble;
        int32_t initialDelay;
    };
    const Case cases[] = {
        {"", 2, 2, effFlagsCanReplacing, true, false, 0},
        {"inputs=-1,outputs=-1", -1, -1, effFlagsCanReplacing, true, false, 0},
        {"sidechain,outputs=1", 4, 1, effFlagsCanReplacing, true, false, 0},
        {"no-replacing", 2, 2, 0, false, false, 0},
        {"double,synth", 2, 2, effFlagsCanReplacing | effFlagsCanDoubleReplacing | effFlagsIsSynth,
         true, true, 0},
        {"editor,chunks,delay=5", 2, 2,
         effFlagsCanReplacing | effFlagsHasEditor | effFlagsProgramChunks, true, false, 5},
        {"delay=5,latency=-3", 2, 2, effFlagsCanReplacing, true, false, -3},
    };
    const Module module = openModule(TEST_EFFECT_PATH);
    ASSERT_NE(module, nullptr);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.words);
        const Effect effect = makeEffect(module, c.words);
        ASSERT_NE(effect, nullptr);
        EXPECT_EQ(effect->magic, kEffectMagic);
        EXPECT_EQ(effect->numInputs, c.numInputs);
        EXPECT_EQ(effect->numOutputs, c.numOutputs);
        EXPECT_EQ(effect->flags, c.flags);
        EXPECT_EQ(effect->processReplacing != nullptr, c.processReplacing);
        EXPECT_EQ(effect->processDoubleReplacing != nullptr, c.processDouble);
        EXPECT_EQ(effect->initialDelay, c.initialDelay);
    }
}

TEST(TestEffectRecord, RefusedWordsAndFailureWordsYieldNoRecord) {
    const Module module = openModule(TEST_EFFECT_PATH);
    ASSERT_NE(module, nullptr);
    for (const char* words : {"null", "no-such-word", "inputs=two", "delay=-1", "editor=10"}) {
        SCOPED_TRACE(words);
        EXPECT_EQ(makeEffect(module, words), nullptr);
    }
    EXPECT_ANY_THROW(makeEffect(module, "throw-entry"));
    const Effect wrongMagic = makeEffect(module, "bad-magic");
    ASSERT_NE(wrongMagic, nullptr);
    EXPECT_NE(wrongMagic->magic, kEffectMagic);
}

// Tail tests rely on the delayed input coming back exactly, followed by silence.
TEST(TestEffectProcessing, DelayGivesTheInputBackExactlyAfterItsLength) {
    constexpr int32_t kDelay = 3;
    const Module module = openModule(TEST_EFFECT_PATH);
    ASSERT_NE(module, nullptr);
    const Effect effect = makeEffect(module, "delay=3,double");
    ASSERT_NE(effect, nullptr);
    EXPECT_EQ(effect->dispatcher(effect.get(), effGetTailSize, 0, 0, nullptr, 0.0f), kDelay);

    const std::vector<double> input{0.1, -0.25, 1.0 / 3.0, 7.0, -1e-300};
    std::vector<double> left = input;
    left.resize(input.size() + kDelay, 0.0);
    std::vector<double> right(left.size(), -2.0);
    std::vector<double> outLeft(left.size(), 99.0);
    std::vector<double> outRight(left.size(), 99.0);
    double* inputs[] = {left.data(), right.data()};
    double* outputs[] = {outLeft.data(), outRight.data()};
    effect->processDoubleReplacing(effect.get(), inputs, outputs,
                                   static_cast<int32_t>(left.size()));

    for (size_t i = 0; i < left.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(outLeft[i], i < kDelay ? 0.0 : input[i - kDelay]);
        EXPECT_EQ(outRight[i], i < kDelay ? 0.0 : -2.0);
    }
}

} // namespace
