#include "tests/hosting/fake_effect.h"

#include "audio/stream_format.h"
#include "hosting/plugin_host.h"
#include "hosting/plugin_loading.h"
#include "hosting/vst2/speaker_layout.h"
#include "tests/common/case_name.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace {

using testing_support::hexText;

constexpr uint32_t arrangementChannelLimit =
    speaker_layout::SpeakerArrangementRecord::maximumChannels;

// Owns a host and the fake it drives; the host is destroyed first, as it closes the plug-in.
struct Rig {
    FakeEffect fake;
    std::unique_ptr<PluginHost> host = std::make_unique<PluginHost>();
    bool attach() { return attachEffect(*host, &fake.effect); }
};

TEST(AttachEffect, OpensSetsBlockSizeAndResumesInOrder) {
    Rig rig;
    rig.host->setSampleRate(48000);
    ASSERT_TRUE(rig.attach());
    EXPECT_EQ(rig.fake.effect.user, rig.host.get());
    EXPECT_EQ(rig.fake.opcodes(), (std::vector<int32_t>{effOpen, effSetSampleRate, effSetBlockSize,
                                                        effMainsChanged, effStartProcess}));
    EXPECT_EQ(rig.fake.calls[1].opt, 48000.0f);
    EXPECT_EQ(rig.fake.calls[2].value, 512);
    EXPECT_EQ(rig.fake.calls[3].value, 1);
    EXPECT_TRUE(rig.host->isActive());
}

TEST(AttachEffect, NoRateMeansNoRateCall) {
    Rig rig;
    ASSERT_TRUE(rig.attach());
    EXPECT_EQ(rig.fake.opcodes(),
              (std::vector<int32_t>{effOpen, effSetBlockSize, effMainsChanged, effStartProcess}));
}

struct RefusalCase {
    const char* name;
    std::function<void(AEffect&)> spoil;
    std::vector<int32_t> calls; // an instrument was created, so it is closed
};

class AttachRefusals : public testing::TestWithParam<RefusalCase> {};

TEST_P(AttachRefusals, RefusedWithoutBeingOpened) {
    Rig rig;
    GetParam().spoil(rig.fake.effect);
    EXPECT_FALSE(rig.attach());
    EXPECT_EQ(rig.fake.opcodes(), GetParam().calls);
    EXPECT_EQ(rig.host->effect(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Table, AttachRefusals,
    testing::Values(RefusalCase{"WrongMagic", [](AEffect& e) { e.magic = 0x12345678; }, {}},
                    RefusalCase{
                        "Instrument", [](AEffect& e) { e.flags |= effFlagsIsSynth; }, {effClose}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(AttachEffect, NullRecordIsRefused) {
    PluginHost host;
    EXPECT_FALSE(attachEffect(host, nullptr));
}

TEST(AttachEffect, ThrowingOpenFailsButTeardownStillCloses) {
    Rig rig;
    rig.fake.onDispatch = [](int32_t opcode, int32_t, intptr_t, void*, float) -> intptr_t {
        if (opcode == effOpen)
            throw std::runtime_error("plug-in failure");
        return 0;
    };
    EXPECT_FALSE(rig.attach());
    rig.fake.calls.clear();
    rig.fake.onDispatch = nullptr;
    rig.host.reset();
    EXPECT_EQ(rig.fake.opcodes(), (std::vector<int32_t>{effMainsChanged, effClose}));
}

TEST(AttachEffect, ThrowingResumeIsSwallowed) {
    Rig rig;
    rig.fake.onDispatch = [](int32_t opcode, int32_t, intptr_t value, void*, float) -> intptr_t {
        if (opcode == effMainsChanged && value == 1)
            throw std::runtime_error("plug-in failure");
        return 0;
    };
    EXPECT_TRUE(rig.attach());
}

TEST(Teardown, SuspendsClosesEditorThenCloses) {
    Rig rig;
    rig.fake.effect.flags |= effFlagsHasEditor;
    ASSERT_TRUE(rig.attach());
    FakeWindow window;
    rig.host->openEditor(window);
    rig.fake.calls.clear();
    rig.host.reset();
    EXPECT_EQ(rig.fake.opcodes(),
              (std::vector<int32_t>{effStopProcess, effMainsChanged, effEditClose, effClose}));
    EXPECT_EQ(rig.fake.calls[1].value, 0);
}

struct FormatCase {
    const char* name;
    int32_t inputs, outputs;
    std::vector<int32_t> inputTypes, outputTypes;
    StreamFormat requested;
    bool accepted;
    StreamFormat expected;
    uint32_t inputsUsed, outputsUsed;
};

class SetFormat : public testing::TestWithParam<FormatCase> {};

TEST_P(SetFormat, ChoosesPinsAndRewritesTheRecord) {
    const auto& c = GetParam();
    Rig rig;
    rig.fake.effect.numInputs = c.inputs;
    rig.fake.effect.numOutputs = c.outputs;
    rig.fake.inputTypes = c.inputTypes;
    rig.fake.outputTypes = c.outputTypes;
    ASSERT_TRUE(rig.attach());
    StreamFormat format = c.requested;
    EXPECT_EQ(rig.host->setFormat(format), c.accepted);
    if (!c.accepted)
        return;
    EXPECT_EQ(format.sampleRate, c.expected.sampleRate);
    EXPECT_EQ(format.inputChannels, c.expected.inputChannels);
    EXPECT_EQ(format.inputChannelMask, c.expected.inputChannelMask);
    EXPECT_EQ(format.outputChannels, c.expected.outputChannels);
    EXPECT_EQ(format.outputChannelMask, c.expected.outputChannelMask);
    EXPECT_EQ(rig.host->inputsUsed(), c.inputsUsed);
    EXPECT_EQ(rig.host->outputsUsed(), c.outputsUsed);
}

INSTANTIATE_TEST_SUITE_P(
    Table, SetFormat,
    testing::Values(
        // A plug-in that ignores the pin query: a pair reads as stereo.
        FormatCase{"StereoUnknownTypes",
                   2,
                   2,
                   {},
                   {},
                   {44100, 2, 3, 2, 3},
                   true,
                   {44100, 2, 3, 2, 3},
                   2,
                   2},
        FormatCase{"StereoRequestOnMono",
                   1,
                   1,
                   {},
                   {},
                   {48000, 2, 3, 2, 3},
                   true,
                   {48000, 1, 4, 1, 4},
                   1,
                   1},
        FormatCase{"SideChainGroupLeftOut",
                   4,
                   2,
                   {1, 1, 0, 0},
                   {1, 1},
                   {44100, 4, 0, 2, 3},
                   true,
                   {44100, 2, 3, 2, 3},
                   2,
                   2},
        FormatCase{"MaskClearedWhenCountDiffers",
                   2,
                   2,
                   {1, 1},
                   {1, 1},
                   {44100, 1, 4, 1, 4},
                   true,
                   {44100, 1, 0, 1, 0},
                   1,
                   1},
        FormatCase{"FiveOneLayout",
                   6,
                   6,
                   {15, 15, 15, 15, 15, 15},
                   {15, 15, 15, 15, 15, 15},
                   {96000, 6, 0x3F, 6, 0x3F},
                   true,
                   {96000, 6, 0x3F, 6, 0x3F},
                   6,
                   6},
        FormatCase{"UnknownTypeGivesNoMask",
                   3,
                   3,
                   {7, 7, 7},
                   {7, 7, 7},
                   {44100, 3, 0, 3, 0},
                   true,
                   {44100, 3, 0, 3, 0},
                   3,
                   3},
        FormatCase{"NoInputsRefused", 0, 2, {}, {}, {44100, 2, 3, 2, 3}, false, {}, 0, 0},
        FormatCase{"NegativeOutputsRefused", 2, -1, {}, {}, {44100, 2, 3, 2, 3}, false, {}, 0, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(SetFormatCalls, ConnectsUsedPinsAndDisconnectsTheRest) {
    Rig rig;
    rig.fake.effect.numInputs = 4;
    rig.fake.inputTypes = {1, 1, 0, 0};
    rig.fake.outputTypes = {1, 1};
    ASSERT_TRUE(rig.attach());
    rig.fake.calls.clear();
    StreamFormat format{44100, 2, 0, 2, 0};
    ASSERT_TRUE(rig.host->setFormat(format));
    std::vector<std::pair<int32_t, intptr_t>> connections;
    for (const auto& call : rig.fake.calls)
        if (call.opcode == effConnectInput || call.opcode == effConnectOutput)
            connections.emplace_back(call.opcode * 10 + call.index, call.value);
    EXPECT_EQ(connections, (std::vector<std::pair<int32_t, intptr_t>>{
                               {310, 1}, {311, 1}, {312, 0}, {313, 0}, {320, 1}, {321, 1}}));
}

struct ArrangementCase {
    uint32_t mask;
    int32_t type;
    std::vector<int32_t> speakers;
};

class SpeakerArrangements : public testing::TestWithParam<ArrangementCase> {};

TEST_P(SpeakerArrangements, MaskBecomesArrangement) {
    Rig rig;
    ASSERT_TRUE(rig.attach());
    StreamFormat format{44100, 2, GetParam().mask, 2, GetParam().mask};
    rig.host->setFormat(format);
    const auto& sent = rig.fake.lastArrangement;
    EXPECT_EQ(sent.type, GetParam().type);
    EXPECT_EQ(sent.numChannels, 2);
    for (size_t i = 0; i < 8; ++i)
        EXPECT_EQ(sent.speakers[i].type,
                  i < GetParam().speakers.size() ? GetParam().speakers[i] : 0)
            << i;
}

INSTANTIATE_TEST_SUITE_P(
    Table, SpeakerArrangements,
    testing::Values(ArrangementCase{0x4, kSpeakerArrMono, {}},
                    ArrangementCase{0x3, kSpeakerArrStereo, {1, 2}},
                    ArrangementCase{0x7, kSpeakerArrUserDefined, {1, 2, 3}},
                    ArrangementCase{0x63F, kSpeakerArr71Music, {1, 2, 3, 4, 5, 6, 10, 11}},
                    ArrangementCase{0xFFFF, kSpeakerArrUserDefined, {1, 2, 3, 4, 5, 6, 7, 8}}),
    [](const auto& info) {
        const auto& c = info.param;
        return std::string("Mask" + hexText(c.mask));
    });

TEST(SpeakerArrangementRecord, HasRoomForEverySpeakerItClaims) {
    // Plug-ins read numChannels speakers; a format message may claim any count.
    for (const uint32_t channels : {1u, 9u, 1000u, 0xFFFFFFFFu}) {
        Rig rig;
        ASSERT_TRUE(rig.attach());
        int32_t claimed = -1;
        int32_t nonZero = 0;
        rig.fake.onDispatch = [&](int32_t opcode, int32_t, intptr_t value, void*,
                                  float) -> intptr_t {
            if (opcode != effSetSpeakerArrangement)
                return 0;
            const auto* arrangement = reinterpret_cast<const VstSpeakerArrangement*>(value);
            claimed = arrangement->numChannels;
            for (int32_t i = 0; i < claimed; ++i)
                nonZero += arrangement->speakers[i].type != 0 ? 1 : 0;
            return 1;
        };
        StreamFormat format{44100, channels, 0x3, 2, 0};
        rig.host->setFormat(format);
        EXPECT_EQ(claimed, static_cast<int32_t>(std::min(channels, arrangementChannelLimit)))
            << channels;
        EXPECT_EQ(nonZero, std::min(claimed, 2))
            << "only L and R are named, the rest are left zero";
    }
}

TEST(Process, NotResumedMeansNoCall) {
    FakeEffect fake;
    PluginHost host;
    host.adoptEffect(&fake.effect);
    float* none[2] = {};
    EXPECT_FALSE(host.processFloat(none, none, 0));
    EXPECT_TRUE(fake.processed.empty());
    host.adoptEffect(nullptr);
}

TEST(Process, UnusedPinsGetSilentScratchChannels) {
    Rig rig;
    rig.fake.effect.numInputs = 4;
    rig.fake.inputTypes = {1, 1, 0, 0};
    rig.fake.outputTypes = {1, 1};
    ASSERT_TRUE(rig.attach());
    StreamFormat format{44100, 2, 0, 2, 0};
    ASSERT_TRUE(rig.host->setFormat(format));
    float in0[4] = {1, 2, 3, 4}, in1[4] = {5, 6, 7, 8}, out0[4], out1[4];
    float* inputs[] = {in0, in1};
    float* outputs[] = {out0, out1};
    ASSERT_TRUE(rig.host->processFloat(inputs, outputs, 4));
    ASSERT_EQ(rig.fake.lastFloatPins.size(), 6u);
    EXPECT_EQ(rig.fake.lastFloatPins[0], in0);
    EXPECT_EQ(rig.fake.lastFloatPins[1], in1);
    EXPECT_NE(rig.fake.lastFloatPins[2], rig.fake.lastFloatPins[3]);
    for (int pin = 2; pin < 4; ++pin)
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(rig.fake.lastFloatPins[pin][i], 0.0f);
    EXPECT_EQ(rig.fake.lastFloatPins[4], out0);
    EXPECT_EQ(out1[3], 9.0f);
}

TEST(Process, AccumulatingPlugInGetsZeroedOutputs) {
    Rig rig;
    rig.fake.effect.flags = 0;
    ASSERT_TRUE(rig.attach());
    StreamFormat format{44100, 2, 0, 2, 0};
    ASSERT_TRUE(rig.host->setFormat(format));
    float in0[2] = {0.5f, 0.25f}, in1[2] = {1, 1}, out0[2] = {99, 99}, out1[2] = {99, 99};
    float* inputs[] = {in0, in1};
    float* outputs[] = {out0, out1};
    ASSERT_TRUE(rig.host->processFloat(inputs, outputs, 2));
    EXPECT_EQ(rig.fake.processed, (std::vector<std::string>{"accumulating"}));
    EXPECT_EQ(out0[0], 0.5f);
    EXPECT_EQ(out1[1], 1.0f);
}

TEST(Process, PrimeSetsDefaultFormatAndRunsAnEmptyBlock) {
    Rig rig;
    ASSERT_TRUE(rig.attach());
    rig.host->prime();
    EXPECT_TRUE(rig.host->formatSet());
    EXPECT_EQ(rig.host->sampleRate(), 44100);
    EXPECT_EQ(rig.fake.processed, (std::vector<std::string>{"replacing"}));
    rig.host->setProcessPrecision(true);
    rig.host->prime();
    EXPECT_EQ(rig.fake.processed.back(), "double");
}

TEST(Queries, CountsAndFlags) {
    Rig rig;
    rig.fake.effect.numInputs = -1;
    rig.fake.effect.flags |= effFlagsCanDoubleReplacing;
    rig.fake.effect.initialDelay = 64;
    ASSERT_TRUE(rig.attach());
    EXPECT_EQ(rig.host->numInputs(), 0);
    EXPECT_TRUE(rig.host->canDoubleReplacing());
    EXPECT_EQ(rig.host->initialDelay(), 64);
    rig.fake.effect.processDoubleReplacing = nullptr;
    EXPECT_FALSE(rig.host->canDoubleReplacing());
}

} // namespace
