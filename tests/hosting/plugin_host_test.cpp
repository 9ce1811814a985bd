#include "tests/hosting/fake_effect.h"

#include "audio/stream_format.h"
#include "hosting/plugin_host.h"
#include "hosting/plugin_loading.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

// Owns a host and the fake it drives; the host is destroyed first, as it closes the plug-in.
struct Rig {
    FakeEffect fake;
    std::unique_ptr<PluginHost> host = std::make_unique<PluginHost>();
    bool attach() { return attachEffect(*host, &fake.effect); }
};

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

} // namespace
