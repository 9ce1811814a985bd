// The VST 3 bridge: which parameters VST 2 sees, the chunk layout, and one bridged instance of
// the test plug-in driven the way our host drives it.
#include "hosting/vst2/vst2_abi.h"
#include "hosting/vst3/vst3_bridge.h"
#include "hosting/vst3/vst3_chunk.h"
#include "hosting/vst3/vst3_module.h"
#include "hosting/vst3/vst3_parameter_map.h"
#include "tests/common/vst3_bundles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace Steinberg;
using namespace Steinberg::Vst;

TEST(ParameterMap, RepeatedIdIsOfferedOnce) {
    ParameterInfo seven{}, eight{};
    seven.id = 7;
    eight.id = 8;
    Vst3ParameterMap map;
    map.build({seven, seven, eight});
    EXPECT_EQ(map.size(), 2);
    EXPECT_EQ(map.indexOf(8), 1);
}

using Bytes = std::vector<uint8_t>;

// Two little-endian 64-bit sizes, then `body`.
Bytes chunk(uint64_t component, uint64_t controller, Bytes body) {
    Bytes out;
    for (uint64_t size : {component, controller})
        for (int byte = 0; byte < 8; ++byte)
            out.push_back(static_cast<uint8_t>(size >> (8 * byte)));
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

struct SplitCase {
    const char* name;
    Bytes chunk;
    std::optional<std::pair<Bytes, Bytes>> parts;
};

class Vst3ChunkSplit : public testing::TestWithParam<SplitCase> {};

TEST_P(Vst3ChunkSplit, Parts) {
    const auto parts = vst3_chunk::split(GetParam().chunk);
    ASSERT_EQ(parts.has_value(), GetParam().parts.has_value());
    if (!parts)
        return;
    EXPECT_EQ(std::pair(Bytes(parts->component.begin(), parts->component.end()),
                        Bytes(parts->controller.begin(), parts->controller.end())),
              *GetParam().parts);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Vst3ChunkSplit,
    testing::Values(SplitCase{"ShorterThanHeader", {1, 2, 3}, std::nullopt},
                    SplitCase{"ComponentTooLong", chunk(4, 0, {1, 2}), std::nullopt},
                    SplitCase{"ControllerTooLong", chunk(1, 2, {1, 2}), std::nullopt},
                    SplitCase{"SizesThatWouldWrap", chunk(~uint64_t{0}, 2, {1, 2}), std::nullopt}),
    [](const auto& info) { return std::string(info.param.name); });

// The edits the bridge reported to its host, found through AEffect::user.
using Edit = std::tuple<int32_t, int32_t, float>;
intptr_t recordEdits(AEffect* effect, int32_t opcode, int32_t index, intptr_t, void*, float opt) {
    if (effect != nullptr && effect->user != nullptr &&
        (opcode == audioMasterBeginEdit || opcode == audioMasterAutomate ||
         opcode == audioMasterEndEdit))
        static_cast<std::vector<Edit>*>(effect->user)->emplace_back(opcode, index, opt);
    return opcode == audioMasterGetCurrentProcessLevel ? kVstProcessLevelOffline : 0;
}

// One bridged instance of the test plug-in with TEST_VST3 `words`, loaded into this process.
class BridgeRig {
  public:
    explicit BridgeRig(const std::string& words) : logPath(layouts / "log") {
        ::setenv("TEST_VST3", words.c_str(), 1);
        ::setenv("TEST_VST3_LOG", logPath.c_str(), 1);
        module = Vst3Module::load(layouts.bundle("Gain", TEST_VST3_PATH));
        for (const auto& info : module->classes())
            if (info.isAudioModule()) {
                Steinberg::TUID id;
                std::memcpy(id, info.classId.data(), sizeof id);
                effect =
                    vst3::Vst3Bridge::create(&module->factory(), id, 0, &recordEdits)->getAEffect();
            }
        effect->user = &edits;
        dispatch(effOpen);
        dispatch(effSetBlockSize, 0, 512);
        dispatch(effMainsChanged, 0, 1);
    }
    ~BridgeRig() {
        dispatch(effClose);
        ::unsetenv("TEST_VST3");
        ::unsetenv("TEST_VST3_LOG");
    }

    intptr_t dispatch(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr) {
        return effect->dispatcher(effect, opcode, index, value, ptr, 0.0f);
    }
    // One block of 4 frames with every input sample 0.5; the first output channel.
    std::vector<float> process() {
        std::vector<float> in(4, 0.5f), out(4, 9.0f), other(4);
        float* ins[] = {in.data(), in.data()};
        float* outs[] = {out.data(), other.data()};
        effect->processReplacing(effect, ins, outs, 4);
        return out;
    }
    Bytes chunk() {
        void* data = nullptr;
        const intptr_t size = dispatch(effGetChunk, 0, 0, &data);
        return Bytes(static_cast<uint8_t*>(data), static_cast<uint8_t*>(data) + size);
    }
    std::vector<std::string> log() const { return testing_support::readLines(logPath); }

    testing_support::Vst3Layouts layouts;
    std::string logPath;
    std::shared_ptr<Vst3Module> module;
    AEffect* effect = nullptr;
    std::vector<Edit> edits;
};

bool logged(const BridgeRig& rig, const std::string& line) {
    return std::ranges::count(rig.log(), line) > 0;
}

// A chunk set is what the controller reads back, parameters and state, byte for byte.
TEST(BridgeChunks, ControllerStateTravelsInItsOwnPart) {
    BridgeRig rig("controller-state");
    Bytes saved = rig.chunk();
    // The component's "TV3S" and three float64, then the controller's "TV3C" and one.
    ASSERT_EQ(saved, chunk(28, 12, Bytes(saved.begin() + 16, saved.end())));
    const double gain = 0.25, controllerValue = 0.5;
    std::memcpy(saved.data() + 20, &gain, 8);
    std::memcpy(saved.data() + 48, &controllerValue, 8);
    EXPECT_EQ(rig.dispatch(effSetChunk, 0, static_cast<intptr_t>(saved.size()), saved.data()), 1);
    EXPECT_EQ(rig.effect->getParameter(rig.effect, 0), 0.25f);
    EXPECT_EQ(rig.chunk(), saved);
}

TEST(BridgeParameters, ProgramsStepThroughTheListAndBypassPassesTheInput) {
    BridgeRig rig("");
    EXPECT_EQ(rig.effect->numParams, 2) << "bypass and programs have calls of their own";
    EXPECT_EQ(rig.dispatch(effSetBypass, 0, 1), 1);
    EXPECT_EQ(rig.dispatch(effSetProgram, 0, 2), 1);
    EXPECT_EQ(rig.dispatch(effGetProgram), 2);
    rig.effect->setParameter(rig.effect, 0, 0.0f); // gain 0, were it not bypassed
    EXPECT_EQ(rig.process(), std::vector<float>(4, 0.5f));
    EXPECT_TRUE(logged(rig, "paramChange 400 0.6666666666666666")); // 2 of 3 steps
}

TEST(BridgeEditor, EditsMadeInTheEditorReachTheHostAndTheProcessor) {
    BridgeRig rig("editor");
    int parent = 0;
    ASSERT_EQ(rig.dispatch(effEditOpen, 0, 0, &parent), 1);
    EXPECT_EQ(rig.edits, (std::vector<Edit>{{audioMasterBeginEdit, 0, 0.0f},
                                            {audioMasterAutomate, 0, 0.75f},
                                            {audioMasterEndEdit, 0, 0.0f}}));
    // Read back before any block has taken it, then heard: 0.5 x 2 x 0.75.
    EXPECT_FLOAT_EQ(rig.effect->getParameter(rig.effect, 0), 0.75f);
    EXPECT_EQ(rig.process(), std::vector<float>(4, 0.75f));
    EXPECT_EQ(rig.dispatch(effEditClose), 1);
}

} // namespace
