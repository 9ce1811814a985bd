#include "tests/hosting/fake_effect.h"

#include "hosting/host_callback.h"
#include "hosting/plugin_host.h"
#include "tests/common/case_name.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace {

using testing_support::hexText;

struct AnswerCase {
    const char* name;
    int32_t opcode;
    const char* text;  // for canDo
    intptr_t withHost;
    intptr_t withoutHost;
};

class CallbackAnswers : public testing::TestWithParam<AnswerCase> {};

TEST_P(CallbackAnswers, WithAndWithoutAHostObject) {
    const auto& c = GetParam();
    FakeEffect fake;
    PluginHost host;
    void* ptr = const_cast<char*>(c.text);
    EXPECT_EQ(hostCallback(nullptr, c.opcode, 0, 0, ptr, 0), c.withoutHost);
    EXPECT_EQ(hostCallback(&fake.effect, c.opcode, 0, 0, ptr, 0), c.withoutHost) << "user not set yet";
    fake.effect.user = &host;
    EXPECT_EQ(hostCallback(&fake.effect, c.opcode, 0, 0, ptr, 0), c.withHost);
}

INSTANTIATE_TEST_SUITE_P(
    Table, CallbackAnswers,
    testing::Values(AnswerCase{"Version", audioMasterVersion, nullptr, 2400, 2400},
                    AnswerCase{"Idle", audioMasterIdle, nullptr, 1, 0},
                    AnswerCase{"ProcessEvents", audioMasterProcessEvents, nullptr, 1, 1},
                    AnswerCase{"IOChanged", audioMasterIOChanged, nullptr, 1, 1},
                    AnswerCase{"NeedIdle", audioMasterNeedIdle, nullptr, 1, 1},
                    AnswerCase{"SampleRateDefault", audioMasterGetSampleRate, nullptr, 44100, 44100},
                    AnswerCase{"BlockSize", audioMasterGetBlockSize, nullptr, 512, 512},
                    AnswerCase{"ProcessLevel", audioMasterGetCurrentProcessLevel, nullptr, 4, 4},
                    AnswerCase{"VendorVersion", audioMasterGetVendorVersion, nullptr, 1, 1},
                    AnswerCase{"Language", audioMasterGetLanguage, nullptr, 1, 1},
                    AnswerCase{"Directory", audioMasterGetDirectory, nullptr, 0, 0},
                    AnswerCase{"UpdateDisplay", audioMasterUpdateDisplay, nullptr, 0, 0},
                    AnswerCase{"Automate", audioMasterAutomate, nullptr, 0, 0},
                    AnswerCase{"CurrentId", audioMasterCurrentId, nullptr, 0, 0},
                    AnswerCase{"BeginEdit", audioMasterBeginEdit, nullptr, 0, 0},
                    AnswerCase{"Unknown", 4711, nullptr, 0, 0}, AnswerCase{"Negative", -3, nullptr, 0, 0},
                    AnswerCase{"CanDoTimeInfo", audioMasterCanDo, "sendVstTimeInfo", 1, 1},
                    AnswerCase{"CanDoSizeWindow", audioMasterCanDo, "sizeWindow", 1, 1},
                    AnswerCase{"CanDoSupplyIdle", audioMasterCanDo, "supplyIdle", 1, 1},
                    AnswerCase{"CanDoMidi", audioMasterCanDo, "receiveVstMidiEvent", 0, 0},
                    AnswerCase{"CanDoCaseMatters", audioMasterCanDo, "SizeWindow", 0, 0},
                    AnswerCase{"CanDoNull", audioMasterCanDo, nullptr, 0, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Callback, SampleRateAndLevelComeFromTheHost) {
    FakeEffect fake;
    PluginHost host;
    fake.effect.user = &host;
    host.setSampleRate(48000);
    host.setProcessLevel(kVstProcessLevelRealtime);
    EXPECT_EQ(hostCallback(&fake.effect, audioMasterGetSampleRate, 0, 0, nullptr, 0), 48000);
    EXPECT_EQ(hostCallback(&fake.effect, audioMasterGetCurrentProcessLevel, 0, 0, nullptr, 0), 2);
}

TEST(Callback, VendorAndProductStrings) {
    char buffer[64];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(hostCallback(nullptr, audioMasterGetVendorString, 0, 0, buffer, 0), 1);
    EXPECT_STREQ(buffer, "Marrowvale");
    EXPECT_EQ(hostCallback(nullptr, audioMasterGetProductString, 0, 0, buffer, 0), 1);
    EXPECT_STREQ(buffer, "Marrowvale VST Adapter");
}

struct TimeCase {
    intptr_t filter;
    bool active;
    int32_t flags;
};

class TimeInfo : public testing::TestWithParam<TimeCase> {};

TEST_P(TimeInfo, FlagsFollowFilterAndTransport) {
    FakeEffect fake;
    PluginHost host;
    fake.effect.user = &host;
    if (GetParam().active)
        host.resume();
    auto* info = reinterpret_cast<VstTimeInfo*>(
        hostCallback(&fake.effect, audioMasterGetTime, 0, GetParam().filter, nullptr, 0));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->flags, GetParam().flags);
    EXPECT_EQ(info->samplePos, 0.0);
    EXPECT_EQ(info->sampleRate, 0.0);
    EXPECT_EQ(info->tempo, (GetParam().filter & kVstTempoValid) ? 120.0 : 0.0);
    if (GetParam().filter & kVstTimeSigValid) {
        EXPECT_EQ(info->timeSigNumerator, 4);
        EXPECT_EQ(info->timeSigDenominator, 4);
    }
    EXPECT_EQ(std::isnan(info->nanoSeconds), (GetParam().filter & kVstNanosValid) != 0);
}

INSTANTIATE_TEST_SUITE_P(
    Table, TimeInfo,
    testing::Values(TimeCase{0, false, 1}, TimeCase{0, true, 3}, TimeCase{0x2400, false, 0x2401},
                    TimeCase{0x100, false, 0x101}, TimeCase{0x100, true, 0x103},
                    TimeCase{0x200 | 0x800, true, 3}),
    [](const auto& info) {
        const auto& c = info.param;
        return std::string("Filter" + hexText(static_cast<uint64_t>(c.filter)) +
                           (c.active ? "_Active" : "_Stopped"));
    });

TEST(Callback, IdleRunsPlugInIdleWithoutChangingNeedIdle) {
    FakeEffect fake;
    PluginHost host;
    host.adoptEffect(&fake.effect);
    fake.effect.flags |= effFlagsHasEditor;
    FakeWindow window;
    host.openEditor(window);
    fake.calls.clear();
    EXPECT_EQ(hostCallback(&fake.effect, audioMasterIdle, 0, 0, nullptr, 0), 1);
    EXPECT_EQ(fake.opcodes(), (std::vector<int32_t>{effIdle, effEditIdle, effEditIdle}));
    EXPECT_FALSE(host.idleRequested());
    host.adoptEffect(nullptr);
}

} // namespace
