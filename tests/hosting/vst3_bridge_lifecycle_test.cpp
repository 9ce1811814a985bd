// The VST 3 bridge's record, its lifecycle and its audio, driven the way our host drives it.
#include "tests/hosting/vst3_bridge_fixture.h"

#include <algorithm>
#include <functional>

namespace {

using testing_support::linesStartingWith;

struct RecordCase {
    const char* name;
    std::string words;
    std::function<void(const AEffect&)> check;
};

void PrintTo(const RecordCase& c, std::ostream* out) {
    *out << c.name;
}

class BridgeRecord : public testing::TestWithParam<RecordCase> {};

TEST_P(BridgeRecord, Fields) {
    BridgeRig rig(GetParam().name, GetParam().words);
    ASSERT_NE(rig.effect, nullptr);
    EXPECT_EQ(rig.effect->magic, kEffectMagic);
    EXPECT_NE(rig.effect->processReplacing, nullptr);
    EXPECT_NE(rig.effect->processDoubleReplacing, nullptr);
    EXPECT_TRUE(rig.effect->flags & effFlagsCanReplacing);
    EXPECT_TRUE(rig.effect->flags & effFlagsProgramChunks);
    GetParam().check(*rig.effect);
}

constexpr int32_t noFlag = 0;

std::function<void(const AEffect&)> counts(int32_t params, int32_t inputs, int32_t outputs) {
    return [=](const AEffect& e) {
        EXPECT_EQ(e.numParams, params);
        EXPECT_EQ(e.numInputs, inputs);
        EXPECT_EQ(e.numOutputs, outputs);
    };
}

std::function<void(const AEffect&)> flag(int32_t bit, bool set) {
    return [=](const AEffect& e) { EXPECT_EQ((e.flags & bit) != 0, set) << std::hex << e.flags; };
}

INSTANTIATE_TEST_SUITE_P(
    Table, BridgeRecord,
    testing::Values(
        // Read-only meter, bypass and program change are not VST 2 parameters.
        RecordCase{"Default", "", counts(2, 2, 2)}, RecordCase{"Mono", "mono", counts(2, 1, 1)},
        // The side chain is an auxiliary bus: the processor gets silence there, VST 2 sees no pin.
        RecordCase{"SidechainIsNoPin", "sidechain", counts(2, 2, 2)},
        RecordCase{"NoControllerNoParameters", "no-controller", counts(0, 2, 2)},
        RecordCase{"SingleComponent", "single", counts(2, 2, 2)},
        RecordCase{"DoubleOffered", "double", flag(effFlagsCanDoubleReplacing, true)},
        RecordCase{"DoubleNotOffered", "", flag(effFlagsCanDoubleReplacing, false)},
        RecordCase{"InstrumentMarked", "instrument", flag(effFlagsIsSynth, true)},
        RecordCase{"EditorFlag", "editor", flag(effFlagsHasEditor, true)},
        RecordCase{"NoEditorFlag", "", flag(effFlagsHasEditor, false)},
        RecordCase{"NoTailIsNoSoundInStop", "", flag(effFlagsNoSoundInStop, true)},
        RecordCase{"TailClearsNoSoundInStop", "tail=100", flag(effFlagsNoSoundInStop, false)},
        RecordCase{"LatencyBeforeAnySetup", "latency=480",
                   [](const AEffect& e) { EXPECT_EQ(e.initialDelay, 480); }},
        RecordCase{"VersionFromClassVersion", "",
                   [](const AEffect& e) { EXPECT_EQ(e.version, 1230); }},
        RecordCase{"UniqueIdIsTheOneGiven", "",
                   [](const AEffect& e) { EXPECT_EQ(e.uniqueID, noFlag); }}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(BridgeRecord, ClassesThatCannotBeMadeGiveNoBridge) {
    for (const char* words : {"refuse-initialize", "throw-initialize"}) {
        BridgeRig rig(words, words);
        EXPECT_EQ(rig.wrapper, nullptr) << words;
        // A component whose initialize failed is released without terminate.
        EXPECT_FALSE(contains(rig.log(), "terminate component")) << words;
    }
}

TEST(BridgeStrings, NamesVendorCategoryAndVersion) {
    BridgeRig rig("strings", "");
    char text[128] = {};
    EXPECT_EQ(rig.dispatch(effGetEffectName, 0, 0, text), 1);
    EXPECT_STREQ(text, "Test VST3 Gain");
    EXPECT_EQ(rig.dispatch(effGetProductString, 0, 0, text), 1);
    EXPECT_STREQ(text, "Test VST3 Gain");
    EXPECT_EQ(rig.dispatch(effGetVendorString, 0, 0, text), 1);
    EXPECT_STREQ(text, "Test Vendor");
    EXPECT_EQ(rig.dispatch(effGetVendorVersion), 1230);
    EXPECT_EQ(rig.dispatch(effGetVstVersion), kVstVersion);
    EXPECT_EQ(rig.dispatch(effGetPlugCategory), kPlugCategEffect);
    EXPECT_EQ(rig.dispatch(effGetTailSize), 0);
    char bypass[] = "bypass", timeInfo[] = "receiveVstTimeInfo", midi[] = "receiveVstMidiEvent";
    EXPECT_EQ(rig.dispatch(effCanDo, 0, 0, bypass), 1);
    EXPECT_EQ(rig.dispatch(effCanDo, 0, 0, timeInfo), 1);
    EXPECT_EQ(rig.dispatch(effCanDo, 0, 0, midi), 0);
}

TEST(BridgeStrings, InstrumentCategoryAndTail) {
    BridgeRig rig("instrument-category", "instrument,tail=4410");
    EXPECT_EQ(rig.dispatch(effGetPlugCategory), kPlugCategSynth);
    EXPECT_EQ(rig.dispatch(effGetTailSize), 4410);
}

TEST(BridgeLifecycle, CreationInitialisesSynchronisesAndConnectsWithoutActivating) {
    BridgeRig rig("creation", "");
    const auto log = rig.log();
    const std::vector<std::string> expected{"initialize component",       "initialize controller",
                                            "setComponentHandler set",    "connect component",
                                            "controller notify hello 42", "connect controller",
                                            "setComponentState 0.5"};
    auto at = log.begin();
    for (const auto& line : expected) {
        at = std::find(at, log.end(), line);
        ASSERT_NE(at, log.end()) << "missing or out of order: " << line;
    }
    EXPECT_TRUE(linesStartingWith(log, "setActive").empty());
}

TEST(BridgeLifecycle, ResumeWaitsAndSetUpActivatesButOnlyABlockStartsProcessing) {
    BridgeRig rig("lazy", "");
    rig.newLog();
    rig.openAndResume();
    EXPECT_TRUE(linesStartingWith(rig.newLog(), "setActive").empty());

    EXPECT_EQ(rig.dispatch(effSetSampleRate, 0, 0, nullptr, 48000.0f), 1);
    EXPECT_EQ(rig.newLog(),
              (std::vector<std::string>{"activateBus 0 0 1", "activateBus 1 0 1",
                                        "setupProcessing 2 0 512 48000", "setActive 1"}));
    rig.process(0);
    EXPECT_EQ(rig.newLog(), (std::vector<std::string>{"setProcessing 1", "process 0 0"}));
    rig.process(64);
    EXPECT_EQ(rig.newLog(), (std::vector<std::string>{"process 64 0"}));

    rig.dispatch(effMainsChanged, 0, 0);
    EXPECT_EQ(rig.newLog(), (std::vector<std::string>{"setProcessing 0", "setActive 0"}));
    rig.close();
    EXPECT_TRUE(linesStartingWith(rig.log(), "violation").empty());
}

TEST(BridgeLifecycle, EverySetUpChangeGoesDownFirstAndNothingHappensWhileActive) {
    BridgeRig rig("setup-order", "double,sidechain");
    rig.openAndResume();
    rig.process(16);
    EXPECT_EQ(rig.dispatch(effSetProcessPrecision, 0, kVstProcessPrecision64), 1);
    EXPECT_EQ(rig.dispatch(effSetSampleRate, 0, 0, nullptr, 96000.0f), 1);
    VstSpeakerArrangement mono{};
    mono.type = kSpeakerArrMono;
    mono.numChannels = 1;
    rig.dispatch(effSetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&mono), &mono);
    rig.dispatch(effStopProcess);
    rig.dispatch(effStartProcess);
    rig.dispatch(effMainsChanged, 0, 0);
    rig.dispatch(effMainsChanged, 0, 1);
    rig.process(16);
    rig.close();
    const auto log = rig.log();
    EXPECT_TRUE(linesStartingWith(log, "violation").empty())
        << linesStartingWith(log, "violation")[0];
    EXPECT_TRUE(contains(log, "setupProcessing 2 1 512 96000"));
    // The side chain is listed but switched off.
    EXPECT_TRUE(contains(log, "activateBus 0 1 0"));
}

TEST(BridgeLifecycle, ProcessModeFollowsTheHostsProcessLevel) {
    BridgeRig rig("realtime", "");
    rig.host.processLevel = kVstProcessLevelRealtime;
    rig.openAndResume();
    rig.dispatch(effSetSampleRate, 0, 0, nullptr, 44100.5f);
    EXPECT_TRUE(contains(rig.log(), "setupProcessing 0 0 512 44100.5"));
}

TEST(BridgeLifecycle, TeardownStopsDisconnectsAndTerminatesInOrder) {
    BridgeRig rig("teardown", "");
    rig.openAndResume();
    rig.process(8);
    rig.newLog();
    rig.close();
    EXPECT_EQ(rig.newLog(), (std::vector<std::string>{
                                "setProcessing 0", "setActive 0", "disconnect component",
                                "disconnect controller", "setComponentHandler null",
                                "terminate controller", "terminate component", "moduleExit"}));
}

TEST(BridgeLifecycle, SingleComponentIsInitialisedAndTerminatedOnceAndNeverConnected) {
    BridgeRig rig("single", "single");
    rig.close();
    const auto log = rig.log();
    EXPECT_EQ(linesStartingWith(log, "initialize"),
              std::vector<std::string>{"initialize component"});
    EXPECT_EQ(linesStartingWith(log, "terminate"), std::vector<std::string>{"terminate component"});
    EXPECT_TRUE(linesStartingWith(log, "connect").empty());
    EXPECT_TRUE(linesStartingWith(log, "create controller").empty());
}

struct ArrangementCase {
    const char* name;
    std::string words;
    VstSpeakerArrangement request;
    intptr_t answer;
    int32_t pins;
    int32_t pinFlags;
    int32_t pinType;
};

void PrintTo(const ArrangementCase& c, std::ostream* out) {
    *out << c.name;
}

VstSpeakerArrangement requested(int32_t type, std::vector<int32_t> speakers) {
    VstSpeakerArrangement record{};
    record.type = type;
    record.numChannels = std::max<int32_t>(static_cast<int32_t>(speakers.size()), 1);
    for (size_t at = 0; at < speakers.size(); ++at)
        record.speakers[at].type = speakers[at];
    return record;
}

class BridgeArrangements : public testing::TestWithParam<ArrangementCase> {};

TEST_P(BridgeArrangements, AnswerPinsAndIoChange) {
    const auto& c = GetParam();
    BridgeRig rig(c.name, c.words);
    rig.openAndResume();
    VstSpeakerArrangement request = c.request;
    EXPECT_EQ(
        rig.dispatch(effSetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&request), &request),
        c.answer);
    EXPECT_EQ(rig.effect->numInputs, c.pins);
    EXPECT_EQ(rig.effect->numOutputs, c.pins);
    // The host hears of a change of pin count, and only then.
    EXPECT_EQ(rig.host.callsOf(audioMasterIOChanged).size(), c.pins != 2 ? 1u : 0u);
    for (int32_t pin = 0; pin < c.pins; ++pin) {
        VstPinProperties properties{};
        ASSERT_EQ(rig.dispatch(effGetInputProperties, pin, 0, &properties), 1);
        EXPECT_STREQ(properties.label, "Main In");
        EXPECT_EQ(properties.flags, c.pinFlags);
        EXPECT_EQ(properties.arrangementType, c.pinType);
    }
    VstPinProperties past{};
    EXPECT_EQ(rig.dispatch(effGetOutputProperties, c.pins, 0, &past), 0);
    VstSpeakerArrangement* input = nullptr;
    VstSpeakerArrangement* output = nullptr;
    EXPECT_EQ(
        rig.dispatch(effGetSpeakerArrangement, 0, reinterpret_cast<intptr_t>(&input), &output), 1);
    ASSERT_NE(input, nullptr);
    EXPECT_EQ(input->numChannels, c.pins);
    EXPECT_TRUE(linesStartingWith(rig.log(), "violation").empty());
}

INSTANTIATE_TEST_SUITE_P(
    Table, BridgeArrangements,
    testing::Values(
        ArrangementCase{"Stereo", "", requested(kSpeakerArrStereo, {1, 2}), 1, 2, 7,
                        kSpeakerArrStereo},
        ArrangementCase{"Mono", "", requested(kSpeakerArrMono, {}), 1, 1, 5, kSpeakerArrMono},
        ArrangementCase{"UserDefinedThree", "", requested(kSpeakerArrUserDefined, {1, 2, 3}), 1, 3,
                        5, kSpeakerArrUserDefined},
        ArrangementCase{"Quad", "", requested(kSpeakerArr40Music, {1, 2, 5, 6}), 1, 4, 5,
                        kSpeakerArr40Music},
        // A refusal keeps the plug-in's own layout.
        ArrangementCase{"Refused", "refuse-arrangements", requested(kSpeakerArrMono, {}), 0, 2, 7,
                        kSpeakerArrStereo},
        ArrangementCase{"Unreadable", "", requested(kSpeakerArrUserDefined, {1, 1}), 0, 2, 7,
                        kSpeakerArrStereo}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(BridgeProcessing, OutputIsTheProcessorsAndTheContextCarriesOnlyTempoAndSignature) {
    BridgeRig rig("process", "");
    rig.openAndResume();
    const auto out = rig.process(32, 0.25f);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0], std::vector<float>(32, 0.25f)); // gain 0.5 normalised is 1.0
    EXPECT_EQ(out[1], std::vector<float>(32, 0.5f));
    const auto timeCalls = rig.host.callsOf(audioMasterGetTime);
    ASSERT_FALSE(timeCalls.empty());
    // Never the nanoseconds, which our host answers with a NaN.
    EXPECT_EQ(timeCalls.back().value, kVstTempoValid | kVstTimeSigValid);
}

TEST(BridgeProcessing, NullChannelsGetScratchAndTheProcessorNeverSeesNull) {
    BridgeRig rig("null-channels", "sidechain");
    rig.openAndResume();
    std::vector<float*> none(2, nullptr);
    rig.effect->processReplacing(rig.effect, none.data(), none.data(), 0);
    rig.effect->processReplacing(rig.effect, none.data(), none.data(), 512);
    EXPECT_TRUE(contains(rig.log(), "process 512 0"));
    EXPECT_TRUE(linesStartingWith(rig.log(), "violation").empty());
}

TEST(BridgeProcessing, DoublePrecisionWhenOfferedAndSilenceFromTheOtherEntry) {
    BridgeRig rig("double", "double");
    rig.openAndResume();
    ASSERT_EQ(rig.dispatch(effSetProcessPrecision, 0, kVstProcessPrecision64), 1);
    std::vector<double> left(16, 0.125), right(16, -0.5), outLeft(16, 7.0), outRight(16, 7.0);
    double* in[] = {left.data(), right.data()};
    double* out[] = {outLeft.data(), outRight.data()};
    rig.effect->processDoubleReplacing(rig.effect, in, out, 16);
    EXPECT_EQ(outLeft, left);
    EXPECT_EQ(outRight, right);
    EXPECT_TRUE(contains(rig.log(), "process 16 1"));
    // The float entry with 64-bit set up gives silence instead of calling the plug-in wrongly.
    const auto silent = rig.process(16);
    EXPECT_EQ(silent[0], std::vector<float>(16, 0.0f));
    EXPECT_EQ(linesStartingWith(rig.log(), "process 16 0").size(), 0u);
}

TEST(BridgeProcessing, DoubleRefusedKeepsSinglePrecision) {
    BridgeRig rig("no-double", "");
    rig.openAndResume();
    EXPECT_EQ(rig.dispatch(effSetProcessPrecision, 0, kVstProcessPrecision64), 0);
    EXPECT_EQ(rig.dispatch(effSetProcessPrecision, 0, kVstProcessPrecision32), 1);
    EXPECT_EQ(rig.process(8)[0], std::vector<float>(8, 0.25f));
}

TEST(BridgeProcessing, NotResumedMeansSilenceWithoutCallingThePlugIn) {
    BridgeRig rig("suspended", "");
    rig.dispatch(effOpen);
    EXPECT_EQ(rig.process(8)[0], std::vector<float>(8, 0.0f));
    EXPECT_TRUE(linesStartingWith(rig.log(), "process").empty());
}

} // namespace
