#include "tests/hosting/fake_effect.h"

#include "hosting/plugin_host.h"
#include "hosting/plugin_loading.h"
#include "hosting/plugin_state.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

namespace {

// A host attached to a fake plug-in; the host goes first, as it closes the plug-in.
struct Rig {
    FakeEffect fake;
    std::unique_ptr<PluginHost> host = std::make_unique<PluginHost>();

    explicit Rig(int32_t flags = 0) {
        fake.effect.flags |= flags;
        fake.withParameters(std::vector<float>(10, -1.0f));
        EXPECT_TRUE(attachEffect(*host, &fake.effect));
        fake.calls.clear();
    }

    size_t count(int32_t opcode) const {
        size_t n = 0;
        for (const auto& call : fake.calls)
            n += call.opcode == opcode ? 1 : 0;
        return n;
    }
};

std::vector<uint8_t> floatBytes(const std::vector<float>& values, size_t length) {
    std::vector<uint8_t> bytes(length, 0);
    std::memcpy(bytes.data(), values.data(), std::min(length, values.size() * sizeof(float)));
    return bytes;
}

struct ParameterCase {
    const char* name;
    size_t length;
    size_t parametersSet;
};

void PrintTo(const ParameterCase& c, std::ostream* out) {
    *out << c.name;
}

class ParameterLayout : public testing::TestWithParam<ParameterCase> {};

TEST_P(ParameterLayout, SetsWholeValuesUpToTheParameterCount) {
    Rig rig;
    std::vector<float> values(12);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = 0.1f * static_cast<float>(i + 1);
    const auto bytes = floatBytes(values, GetParam().length);

    loadState(*rig.host, bytes.data(), bytes.size());

    for (size_t i = 0; i < rig.fake.parameters.size(); ++i)
        EXPECT_EQ(rig.fake.parameters[i], i < GetParam().parametersSet ? values[i] : -1.0f)
            << "parameter " << i;
    EXPECT_EQ(rig.fake.parameterWrites.size(), GetParam().parametersSet);
    EXPECT_EQ(rig.count(effSetChunk), 0u);
}

INSTANTIATE_TEST_SUITE_P(Table, ParameterLayout,
                         testing::Values(ParameterCase{"ThreeValues", 12, 3},
                                         ParameterCase{"SixBytesIsOneValue", 6, 1},
                                         ParameterCase{"ThreeBytesIsNone", 3, 0},
                                         ParameterCase{"Exact", 40, 10},
                                         ParameterCase{"ExtraValuesIgnored", 48, 10},
                                         ParameterCase{"MisalignedLong", 45, 10}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(ParameterLayout, SaveGivesOneFloatPerParameter) {
    Rig rig;
    rig.fake.parameters = {0.0f, 0.25f, 1.0f, -3.5f, 0, 0, 0, 0, 0, 7.0f};
    EXPECT_EQ(saveState(*rig.host), floatBytes(rig.fake.parameters, 40));

    // What was saved loads back unchanged.
    const auto saved = saveState(*rig.host);
    rig.fake.parameters.assign(10, 0.5f);
    loadState(*rig.host, saved.data(), saved.size());
    EXPECT_EQ(saveState(*rig.host), saved);
}

TEST(ChunkLayout, LoadHandsTheBankChunkOver) {
    Rig rig(effFlagsProgramChunks);
    const std::vector<uint8_t> chunk{1, 2, 3, 4, 5};
    std::vector<uint8_t> received;
    rig.fake.onDispatch = [&](int32_t opcode, int32_t, intptr_t value, void* ptr,
                              float) -> intptr_t {
        if (opcode == effSetChunk)
            received.assign(static_cast<uint8_t*>(ptr), static_cast<uint8_t*>(ptr) + value);
        return 0;
    };
    loadState(*rig.host, chunk.data(), chunk.size());
    ASSERT_EQ(rig.count(effSetChunk), 1u);
    EXPECT_EQ(rig.fake.calls.front().index, 0);
    EXPECT_EQ(received, chunk);
    EXPECT_TRUE(rig.fake.parameterWrites.empty());
}

TEST(ChunkLayout, SaveCopiesWhatThePlugInOffers) {
    struct Case {
        intptr_t answer;
        bool givesPointer;
        size_t expectedSize;
    };
    static uint8_t chunk[] = {9, 8, 7, 6};
    for (const Case c : {Case{4, true, 4}, Case{2, true, 2}, Case{0, true, 0}, Case{-1, true, 0},
                         Case{4, false, 0}}) {
        Rig rig(effFlagsProgramChunks);
        rig.fake.onDispatch = [&](int32_t opcode, int32_t index, intptr_t, void* ptr,
                                  float) -> intptr_t {
            if (opcode != effGetChunk)
                return 0;
            EXPECT_EQ(index, 0) << "the bank, not one program";
            if (c.givesPointer)
                *static_cast<void**>(ptr) = chunk;
            return c.answer;
        };
        const auto saved = saveState(*rig.host);
        EXPECT_EQ(saved, std::vector<uint8_t>(chunk, chunk + c.expectedSize))
            << "answer " << c.answer;
    }
}

TEST(LoadState, NothingHappensWithoutBytesOrPlugIn) {
    Rig rig(effFlagsProgramChunks);
    const uint8_t byte = 1;
    loadState(*rig.host, &byte, 0);
    EXPECT_TRUE(rig.fake.calls.empty());

    PluginHost empty;
    loadState(empty, &byte, 1);
    EXPECT_TRUE(saveState(empty).empty());
}

TEST(LoadState, LetsAnOpenEditorCatchUp) {
    Rig rig(effFlagsHasEditor);
    FakeWindow window;
    rig.host->openEditor(window);
    rig.fake.calls.clear();
    rig.host->requestIdle();
    static ERect rect{0, 0, 150, 300};
    rig.fake.onDispatch = [](int32_t opcode, int32_t, intptr_t, void* ptr, float) -> intptr_t {
        if (opcode == effEditGetRect)
            *static_cast<ERect**>(ptr) = &rect;
        return opcode == effIdle ? 1 : 0;
    };
    const auto bytes = floatBytes({0.5f}, 4);
    loadState(*rig.host, bytes.data(), bytes.size());

    EXPECT_EQ(rig.fake.calls.front().opcode, effEditGetRect)
        << "the size is taken before the settings change";
    EXPECT_EQ(rig.count(effEditIdle), 2u);
    EXPECT_GE(rig.count(effIdle), 1u);
    // The same size is no resize; a new one in a later idle step is.
    rig.host->idleStep();
    EXPECT_TRUE(window.sizes.empty());
    rect = {0, 0, 200, 400};
    rig.host->idleStep();
    EXPECT_EQ(window.sizes, (std::vector<std::pair<int, int>>{{400, 200}}));
}

TEST(LoadState, ClosedEditorIsLeftAlone) {
    Rig rig;
    const auto bytes = floatBytes({0.5f}, 4);
    loadState(*rig.host, bytes.data(), bytes.size());
    EXPECT_EQ(rig.count(effEditGetRect) + rig.count(effEditIdle) + rig.count(effIdle), 0u);
}

} // namespace
