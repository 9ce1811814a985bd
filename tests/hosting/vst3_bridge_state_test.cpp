// The VST 3 bridge's parameters, chunks and editor opcodes.
#include "tests/common/case_name.h"
#include "tests/hosting/vst3_bridge_fixture.h"

#include <cstdint>

namespace {

using testing_support::caseName;

using testing_support::linesStartingWith;

constexpr int32_t gainIndex = 0;
constexpr int32_t polarityIndex = 1;

TEST(BridgeParameters, SetReachesControllerAtOnceAndProcessorWithTheNextBlock) {
    BridgeRig rig("parameters", "");
    rig.openAndResume();
    rig.newLog();
    rig.effect->setParameter(rig.effect, gainIndex, 0.25f);
    EXPECT_EQ(rig.newLog(), std::vector<std::string>{"setParamNormalized 100 0.25"});
    EXPECT_FLOAT_EQ(rig.effect->getParameter(rig.effect, gainIndex), 0.25f);
    const auto out = rig.process(4, 0.5f);
    EXPECT_TRUE(contains(rig.newLog(), "paramChange 100 0.25"));
    EXPECT_EQ(out[0], std::vector<float>(4, 0.25f)); // 0.5 x 2 x 0.25
    // Applied once: the next block carries no change.
    rig.process(4);
    EXPECT_TRUE(linesStartingWith(rig.newLog(), "paramChange").empty());
}

TEST(BridgeParameters, ChangesOfferedToAnEmptyBlockComeAgainWithTheNextRealOne) {
    // Some plug-ins return from a block of no frames before reading its changes.
    BridgeRig rig("parameters-empty-block", "");
    rig.openAndResume();
    rig.effect->setParameter(rig.effect, gainIndex, 0.25f);
    rig.newLog();
    rig.process(0);
    EXPECT_TRUE(contains(rig.newLog(), "paramChange 100 0.25"));
    rig.process(4);
    EXPECT_TRUE(contains(rig.newLog(), "paramChange 100 0.25"));
    rig.process(4);
    EXPECT_TRUE(linesStartingWith(rig.newLog(), "paramChange").empty());
}

TEST(BridgeParameters, SettlingRunsOneSilentFrameOnlyWhenValuesAreQueued) {
    BridgeRig rig("parameters-settle", "");
    rig.openAndResume();
    rig.newLog();
    rig.wrapper->settleParameters();
    EXPECT_TRUE(linesStartingWith(rig.newLog(), "process").empty());
    rig.wrapper->setParameterById(7, 1.0);
    rig.newLog();
    rig.wrapper->settleParameters();
    const auto log = rig.newLog();
    EXPECT_TRUE(contains(log, "process 1 0"));
    EXPECT_TRUE(contains(log, "paramChange 7 1"));
    EXPECT_TRUE(linesStartingWith(log, "violation").empty());
}

TEST(BridgeParameters, ReadBackBeforeTheProcessorHasItIsTheQueuedValue) {
    BridgeRig rig("parameters-readback", "");
    rig.effect->setParameter(rig.effect, polarityIndex, 1.0f);
    rig.effect->setParameter(rig.effect, gainIndex, 0.75f);
    rig.effect->setParameter(rig.effect, gainIndex, 0.125f);
    EXPECT_FLOAT_EQ(rig.effect->getParameter(rig.effect, gainIndex), 0.125f);
    EXPECT_FLOAT_EQ(rig.effect->getParameter(rig.effect, polarityIndex), 1.0f);
    rig.openAndResume();
    rig.process(2);
    // Repeats of one id merged: only the newest reached the processor.
    EXPECT_EQ(linesStartingWith(rig.log(), "paramChange 100"),
              std::vector<std::string>{"paramChange 100 0.125"});
    EXPECT_FLOAT_EQ(rig.effect->getParameter(rig.effect, 5), 0.0f); // no such index
}

struct TextCase {
    int32_t opcode;
    int32_t index;
    std::string text;
};

void PrintTo(const TextCase& c, std::ostream* out) {
    *out << c.text;
}

class BridgeParameterText : public testing::TestWithParam<TextCase> {};

TEST_P(BridgeParameterText, FromTheController) {
    BridgeRig rig("parameter-text", "");
    rig.effect->setParameter(rig.effect, gainIndex, 0.25f);
    char text[64] = {};
    EXPECT_EQ(rig.dispatch(GetParam().opcode, GetParam().index, 0, text), 1);
    EXPECT_STREQ(text, GetParam().text.c_str());
}

INSTANTIATE_TEST_SUITE_P(
    Table, BridgeParameterText,
    testing::Values(TextCase{effGetParamName, gainIndex, "Gain"},
                    TextCase{effGetParamName, polarityIndex, "Polarity"},
                    TextCase{effGetParamLabel, gainIndex, "x"},
                    TextCase{effGetParamDisplay, gainIndex, "0.5"}, // shows the queued value
                    TextCase{effGetParamDisplay, polarityIndex, "off"}),
    [](const auto& info) {
        const auto& c = info.param;
        return std::string(caseName({c.opcode == effGetParamName    ? "Name"
                                     : c.opcode == effGetParamLabel ? "Label"
                                                                    : "Display",
                                     c.text}));
    });

TEST(BridgeParameters, PropertiesAutomationBypassAndPrograms) {
    BridgeRig rig("parameter-properties", "");
    VstParameterProperties properties{};
    EXPECT_EQ(rig.dispatch(effGetParameterProperties, polarityIndex, 0, &properties), 1);
    EXPECT_EQ(properties.flags, kVstParameterIsSwitch);
    EXPECT_STREQ(properties.label, "Polarity");
    EXPECT_EQ(rig.dispatch(effGetParameterProperties, gainIndex, 0, &properties), 1);
    EXPECT_EQ(properties.flags, kVstParameterCanRamp);
    EXPECT_EQ(rig.dispatch(effGetParameterProperties, 9, 0, &properties), 0);
    EXPECT_EQ(rig.dispatch(effCanBeAutomated, gainIndex), 1);
    EXPECT_EQ(rig.dispatch(effCanBeAutomated, 9), 0);

    rig.openAndResume();
    EXPECT_EQ(rig.dispatch(effSetBypass, 0, 1), 1);
    EXPECT_EQ(rig.dispatch(effSetProgram, 0, 2), 1);
    EXPECT_EQ(rig.dispatch(effGetProgram), 2);
    rig.effect->setParameter(rig.effect, gainIndex, 0.0f);
    const auto out = rig.process(4, 0.5f);
    EXPECT_TRUE(contains(rig.log(), "paramChange 300 1"));
    EXPECT_TRUE(contains(rig.log(), "paramChange 400 0.6666666666666666"));
    EXPECT_EQ(out[0], std::vector<float>(4, 0.5f)); // bypassed: gain 0 does not apply
}

TEST(BridgeParameters, MeterValuesReachTheControllerOnIdleNotFromProcessing) {
    BridgeRig rig("meters", "");
    rig.openAndResume();
    rig.process(8, 0.5f);
    EXPECT_TRUE(linesStartingWith(rig.log(), "setParamNormalized 200").empty());
    rig.dispatch(effIdle);
    EXPECT_EQ(linesStartingWith(rig.log(), "setParamNormalized 200"),
              std::vector<std::string>{"setParamNormalized 200 1"}); // peak of channel 1: 0.5 x 2
}

std::vector<uint8_t> chunkOf(BridgeRig& rig) {
    void* data = nullptr;
    const intptr_t size = rig.dispatch(effGetChunk, 0, 0, &data);
    if (size <= 0 || data == nullptr)
        return {};
    const auto* first = static_cast<const uint8_t*>(data);
    return {first, first + size};
}

uint64_t sizeAt(const std::vector<uint8_t>& chunk, size_t offset) {
    uint64_t size = 0;
    for (size_t byte = 0; byte < 8; ++byte)
        size |= uint64_t{chunk[offset + byte]} << (8 * byte);
    return size;
}

TEST(BridgeChunks, ComponentStateRoundTripsAndQueuedValuesAreDropped) {
    BridgeRig rig("chunks", "");
    rig.openAndResume();
    rig.effect->setParameter(rig.effect, gainIndex, 0.25f);
    rig.process(2);
    const auto saved = chunkOf(rig);
    ASSERT_EQ(saved.size(), 16u + 28u);
    EXPECT_EQ(sizeAt(saved, 0), 28u); // "TV3S" and three float64
    EXPECT_EQ(sizeAt(saved, 8), 0u);  // the controller keeps no state of its own

    rig.effect->setParameter(rig.effect, gainIndex, 0.75f);
    rig.newLog();
    EXPECT_EQ(rig.dispatch(effSetChunk, 0, static_cast<intptr_t>(saved.size()),
                           const_cast<uint8_t*>(saved.data())),
              1);
    const auto loaded = rig.newLog();
    EXPECT_TRUE(contains(loaded, "setState 0.25"));
    EXPECT_TRUE(contains(loaded, "setComponentState 0.25"));
    rig.newLog();
    const auto out = rig.process(2, 0.5f);
    // The 0.75 queued before the load would have undone it.
    EXPECT_TRUE(linesStartingWith(rig.newLog(), "paramChange").empty());
    EXPECT_EQ(out[0], std::vector<float>(2, 0.25f));
    EXPECT_FLOAT_EQ(rig.effect->getParameter(rig.effect, gainIndex), 0.25f);
}

TEST(BridgeChunks, IdleCalledBackDuringALoadWaitsUntilTheLoadIsDone) {
    BridgeRig rig("chunks-reentry", "");
    rig.host.idleOnUpdateDisplay = true;
    rig.openAndResume();
    const auto saved = chunkOf(rig);
    rig.process(8, 0.5f); // a meter value now waits for the UI thread
    rig.newLog();
    // The controller asks for a display update while it reads the state; the host idles at once.
    rig.dispatch(effSetChunk, 0, static_cast<intptr_t>(saved.size()),
                 const_cast<uint8_t*>(saved.data()));
    EXPECT_TRUE(linesStartingWith(rig.newLog(), "setParamNormalized").empty());
    rig.dispatch(effEditIdle);
    EXPECT_EQ(linesStartingWith(rig.newLog(), "setParamNormalized"),
              std::vector<std::string>{"setParamNormalized 200 1"});
}

TEST(BridgeChunks, ControllerStateTravelsInItsOwnPart) {
    BridgeRig rig("chunks-controller", "controller-state");
    const auto saved = chunkOf(rig);
    ASSERT_EQ(saved.size(), 16u + 28u + 12u);
    EXPECT_EQ(sizeAt(saved, 8), 12u);
    rig.newLog();
    EXPECT_EQ(rig.dispatch(effSetChunk, 0, static_cast<intptr_t>(saved.size()),
                           const_cast<uint8_t*>(saved.data())),
              1);
    EXPECT_TRUE(contains(rig.newLog(), "controllerSetState 0"));
}

TEST(BridgeChunks, MalformedChunksChangeNothing) {
    BridgeRig rig("chunks-malformed", "");
    auto chunk = chunkOf(rig);
    chunk[0] = 0xFF; // the component part now claims more than there is
    uint8_t tiny[3] = {1, 2, 3};
    rig.newLog();
    EXPECT_EQ(rig.dispatch(effSetChunk, 0, static_cast<intptr_t>(chunk.size()), chunk.data()), 0);
    EXPECT_EQ(rig.dispatch(effSetChunk, 0, 3, tiny), 0);
    EXPECT_EQ(rig.dispatch(effSetChunk, 0, 0, tiny), 0);
    EXPECT_EQ(rig.dispatch(effSetChunk, 0, 16, nullptr), 0);
    EXPECT_TRUE(rig.newLog().empty());
}

TEST(BridgeEditor, ViewSizedFromInsideAttachedFollowsTheWindow) {
    BridgeRig rig("editor", "editor");
    ERect* rect = nullptr;
    // 0 x 0 before attached is no rectangle: the host uses its default.
    EXPECT_EQ(rig.dispatch(effEditGetRect, 0, 0, &rect), 0);
    EXPECT_EQ(rect, nullptr);
    int parent = 0;
    EXPECT_EQ(rig.dispatch(effEditOpen, 0, 0, &parent), 1);
    const auto resizes = rig.host.callsOf(audioMasterSizeWindow);
    ASSERT_EQ(resizes.size(), 1u);
    EXPECT_EQ(resizes[0].index, 300);
    EXPECT_EQ(resizes[0].value, 150);
    ASSERT_EQ(rig.dispatch(effEditGetRect, 0, 0, &rect), 1);
    EXPECT_EQ(rect->right - rect->left, 300);
    EXPECT_EQ(rect->bottom - rect->top, 150);
    EXPECT_EQ(rig.dispatch(effEditOpen, 0, 0, &parent), 0); // already open
    rig.dispatch(effEditIdle);
    EXPECT_EQ(rig.dispatch(effEditClose), 1);
    EXPECT_EQ(rig.dispatch(effEditClose), 0);
    const auto viewLines = linesStartingWith(rig.log(), "view");
    const auto frameLines = linesStartingWith(rig.log(), "setFrame");
    EXPECT_EQ(viewLines, (std::vector<std::string>{"viewAttached X11EmbedWindowID",
                                                   "viewSize 300 150", "viewRemoved"}));
    EXPECT_EQ(frameLines, (std::vector<std::string>{"setFrame set", "setFrame null"}));
}

TEST(BridgeEditor, EditsMadeInTheEditorReachTheHostAndTheProcessor) {
    BridgeRig rig("editor-edits", "editor");
    rig.openAndResume();
    int parent = 0;
    ASSERT_EQ(rig.dispatch(effEditOpen, 0, 0, &parent), 1);
    ASSERT_EQ(rig.host.callsOf(audioMasterBeginEdit).size(), 1u);
    EXPECT_EQ(rig.host.callsOf(audioMasterBeginEdit)[0].index, gainIndex);
    const auto automated = rig.host.callsOf(audioMasterAutomate);
    ASSERT_EQ(automated.size(), 1u);
    EXPECT_EQ(automated[0].index, gainIndex);
    EXPECT_FLOAT_EQ(automated[0].opt, 0.75f);
    EXPECT_EQ(rig.host.callsOf(audioMasterEndEdit).size(), 1u);
    EXPECT_FLOAT_EQ(rig.effect->getParameter(rig.effect, gainIndex), 0.75f);
    const auto out = rig.process(2, 0.5f);
    EXPECT_TRUE(contains(rig.log(), "paramChange 100 0.75"));
    EXPECT_EQ(out[0], std::vector<float>(2, 0.75f));
}

TEST(BridgeEditor, AHostThatCannotResizeLeavesTheViewAlone) {
    BridgeRig rig("editor-fixed", "editor");
    rig.host.resizes = false;
    int parent = 0;
    EXPECT_EQ(rig.dispatch(effEditOpen, 0, 0, &parent), 1);
    EXPECT_TRUE(linesStartingWith(rig.log(), "viewSize").empty());
}

TEST(BridgeEditor, SizeKnownBeforeAttachedAndNoEditorWithoutView) {
    BridgeRig sized("editor-sized", "editor=320x200");
    ERect* rect = nullptr;
    ASSERT_EQ(sized.dispatch(effEditGetRect, 0, 0, &rect), 1);
    EXPECT_EQ(rect->right, 320);
    EXPECT_EQ(rect->bottom, 200);
    BridgeRig plain("editor-none", "");
    int parent = 0;
    EXPECT_EQ(plain.dispatch(effEditGetRect, 0, 0, &rect), 0);
    EXPECT_EQ(plain.dispatch(effEditOpen, 0, 0, &parent), 0);
    EXPECT_EQ(plain.dispatch(effEditClose), 0);
}

} // namespace
