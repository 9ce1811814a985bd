#include "tests/hosting/fake_effect.h"

#include "audio/stream_format_codec.h"
#include "hosting/host_callback.h"
#include "hosting/plugin_host.h"
#include "hosting/plugin_loading.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

// Owns a host and the fake it drives; the host is destroyed first, as it closes the plug-in.
struct Rig {
    FakeEffect fake;
    std::unique_ptr<PluginHost> host = std::make_unique<PluginHost>();
    bool attach() { return attachEffect(*host, &fake.effect); }
};

// Pin types one hex digit per pin (none: the plug-in ignores the query); a request and what the
// host makes of it: rate, input channels and mask, output channels and mask; then the pins used.
struct FormatCase {
    const char* name;
    int32_t inputs, outputs;
    const char *inputTypes, *outputTypes;
    uint32_t rate, inChannels, inMask, outChannels, outMask;
    bool accepted;
    uint32_t inChannelsGot = 0, inMaskGot = 0, outChannelsGot = 0, outMaskGot = 0, inputsUsed = 0,
             outputsUsed = 0;
};

std::vector<int32_t> pinTypes(const char* digits) {
    std::vector<int32_t> types;
    for (; *digits != 0; ++digits)
        types.push_back(std::stoi(std::string(1, *digits), nullptr, 16));
    return types;
}

class SetFormat : public testing::TestWithParam<FormatCase> {};

TEST_P(SetFormat, ChoosesPinsAndRewritesTheRecord) {
    const auto& c = GetParam();
    Rig rig;
    rig.fake.effect.numInputs = c.inputs;
    rig.fake.effect.numOutputs = c.outputs;
    rig.fake.inputTypes = pinTypes(c.inputTypes);
    rig.fake.outputTypes = pinTypes(c.outputTypes);
    ASSERT_TRUE(rig.attach());
    StreamFormat format{c.rate, c.inChannels, c.inMask, c.outChannels, c.outMask};
    EXPECT_EQ(rig.host->setFormat(format), c.accepted);
    if (!c.accepted)
        return;
    EXPECT_EQ(
        std::vector<uint32_t>({format.sampleRate, format.inputChannels, format.inputChannelMask,
                               format.outputChannels, format.outputChannelMask,
                               rig.host->inputsUsed(), rig.host->outputsUsed()}),
        std::vector<uint32_t>({c.rate, c.inChannelsGot, c.inMaskGot, c.outChannelsGot, c.outMaskGot,
                               c.inputsUsed, c.outputsUsed}));
}

INSTANTIATE_TEST_SUITE_P(
    Table, SetFormat,
    testing::Values(
        // A plug-in that ignores the pin query: a pair reads as stereo.
        FormatCase{"StereoUnknownTypes", 2, 2, "", "", 44100, 2, 3, 2, 3, true, 2, 3, 2, 3, 2, 2},
        FormatCase{"StereoRequestOnMono", 1, 1, "", "", 48000, 2, 3, 2, 3, true, 1, 4, 1, 4, 1, 1},
        FormatCase{"SideChainGroupLeftOut", 4, 2, "1100", "11", 44100, 4, 0, 2, 3, true, 2, 3, 2, 3,
                   2, 2},
        FormatCase{"MaskClearedWhenCountDiffers", 2, 2, "11", "11", 44100, 1, 4, 1, 4, true, 1, 0,
                   1, 0, 1, 1},
        FormatCase{"FiveOneLayout", 6, 6, "ffffff", "ffffff", 96000, 6, 0x3F, 6, 0x3F, true, 6,
                   0x3F, 6, 0x3F, 6, 6},
        FormatCase{"UnknownTypeGivesNoMask", 3, 3, "777", "777", 44100, 3, 0, 3, 0, true, 3, 0, 3,
                   0, 3, 3},
        FormatCase{"NoInputsRefused", 0, 2, "", "", 44100, 2, 3, 2, 3, false},
        FormatCase{"NegativeOutputsRefused", 2, -1, "", "", 44100, 2, 3, 2, 3, false}),
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

// Each side's arrangement follows its own mask and count: type (0 mono, 1 stereo, 11 quad,
// 15 5.1, 23 7.1, -2 user-defined), count, speaker types. No masks: nothing is sent.
TEST(SpeakerArrangements, TypesFollowEachSidesMaskAndCount) {
    using Sent = std::vector<std::vector<int32_t>>;
    for (const auto& [inMask, inCount, outMask, outCount, sent] :
         std::vector<std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, Sent>>{
             {0x4, 1, 0x3, 2, {{0, 1, 0}, {1, 2, 1, 2}}},
             {0x3F, 6, 0x33, 4, {{15, 6, 1, 2, 3, 4, 5, 6}, {11, 4, 1, 2, 5, 6}}},
             {0x63F, 8, 0x7, 3, {{23, 8, 1, 2, 3, 4, 5, 6, 10, 11}, {-2, 3, 1, 2, 3}}},
             {0, 10, 0x3, 2, {{-2, 10, 0, 0, 0, 0, 0, 0, 0, 0}, {1, 2, 1, 2}}},
             {0, 2, 0, 2, {}}}) {
        Rig rig;
        ASSERT_TRUE(rig.attach());
        StreamFormat format{44100, inCount, inMask, outCount, outMask};
        rig.host->setFormat(format);
        EXPECT_EQ(rig.fake.arrangements, sent) << inMask << " to " << outMask;
    }
}

// What a plug-in hears when it asks: before the host has its record (in the entry function),
// once open, and after the rate changes. Rate, block size, process level, version,
// four can-dos; then tempo, time signature and flags.
TEST(HostCallback, AnswersFollowTheSettingsInForce) {
    Rig rig;
    rig.host->setProcessLevel(kVstProcessLevelRealtime);
    rig.host->setSampleRate(48000);
    const auto answers = [&] {
        std::vector<intptr_t> got;
        for (const int32_t opcode : {audioMasterGetSampleRate, audioMasterGetBlockSize,
                                     audioMasterGetCurrentProcessLevel, audioMasterVersion})
            got.push_back(hostCallback(&rig.fake.effect, opcode, 0, 0, nullptr, 0));
        for (const char* can : {"sendVstTimeInfo", "sizeWindow", "supplyIdle", "sendVstEvents"})
            got.push_back(
                hostCallback(&rig.fake.effect, audioMasterCanDo, 0, 0, const_cast<char*>(can), 0));
        if (const auto* time = reinterpret_cast<VstTimeInfo*>(
                hostCallback(&rig.fake.effect, audioMasterGetTime, 0,
                             kVstTempoValid | kVstTimeSigValid, nullptr, 0)))
            got.insert(got.end(), {static_cast<intptr_t>(time->tempo), time->timeSigNumerator,
                                   time->timeSigDenominator, time->flags});
        return got;
    };
    EXPECT_EQ(answers(), (std::vector<intptr_t>{44100, 512, 4, 2400, 1, 1, 1, 0}));
    ASSERT_TRUE(rig.attach());
    EXPECT_EQ(answers(), (std::vector<intptr_t>{48000, 512, 2, 2400, 1, 1, 1, 0, 120, 4, 4, 9219}));
    rig.host->setSampleRate(96000);
    EXPECT_EQ(answers(), (std::vector<intptr_t>{96000, 512, 2, 2400, 1, 1, 1, 0, 120, 4, 4, 9219}));
}

std::vector<uint8_t> floatBytes(const std::vector<float>& values, size_t length) {
    std::vector<uint8_t> bytes(length, 0);
    std::memcpy(bytes.data(), values.data(), std::min(length, values.size() * sizeof(float)));
    return bytes;
}

// Whole float values up to the parameter count (10) are set; a trailing part of one is not.
TEST(ParameterLayout, SetsWholeValuesUpToTheParameterCount) {
    std::vector<float> values(12);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = 0.1f * static_cast<float>(i + 1);
    for (const auto& [length, parametersSet] :
         {std::pair<size_t, size_t>{12, 3}, {6, 1}, {3, 0}, {40, 10}, {48, 10}, {45, 10}}) {
        Rig rig;
        rig.fake.withParameters(std::vector<float>(10, -1.0f));
        ASSERT_TRUE(rig.attach());
        const auto bytes = floatBytes(values, length);
        rig.host->loadState(bytes);
        for (size_t i = 0; i < rig.fake.parameters.size(); ++i)
            EXPECT_EQ(rig.fake.parameters[i], i < parametersSet ? values[i] : -1.0f)
                << length << " bytes, parameter " << i;
        EXPECT_EQ(rig.fake.parameterWrites.size(), parametersSet) << length << " bytes";
    }
}

} // namespace
