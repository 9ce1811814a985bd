#pragma once

// The VST 2.4 binary interface as plug-ins see it: records, opcodes, flags and constants with
// their published values. Written from the public description of the ABI; layouts are checked
// below and against real plug-ins by the tests.

#include <cstddef>
#include <cstdint>

struct AEffect;

using audioMasterCallback = intptr_t (*)(AEffect* effect, int32_t opcode, int32_t index,
                                         intptr_t value, void* ptr, float opt);
using AEffectDispatcherProc = intptr_t (*)(AEffect* effect, int32_t opcode, int32_t index,
                                           intptr_t value, void* ptr, float opt);
using AEffectProcessProc = void (*)(AEffect* effect, float** inputs, float** outputs,
                                    int32_t sampleFrames);
using AEffectProcessDoubleProc = void (*)(AEffect* effect, double** inputs, double** outputs,
                                          int32_t sampleFrames);
using AEffectSetParameterProc = void (*)(AEffect* effect, int32_t index, float parameter);
using AEffectGetParameterProc = float (*)(AEffect* effect, int32_t index);
// The plug-in's entry function ("VSTPluginMain", or "main" in older plug-ins).
using VstPluginMainProc = AEffect* (*)(audioMasterCallback host);

struct AEffect {
    int32_t magic;
    AEffectDispatcherProc dispatcher;
    AEffectProcessProc process; // accumulating; only for plug-ins without effFlagsCanReplacing
    AEffectSetParameterProc setParameter;
    AEffectGetParameterProc getParameter;
    int32_t numPrograms;
    int32_t numParams;
    int32_t numInputs;
    int32_t numOutputs;
    int32_t flags;
    intptr_t resvd1;
    intptr_t resvd2;
    int32_t initialDelay;
    int32_t realQualities;
    int32_t offQualities;
    float ioRatio;
    void* object;
    void* user;
    int32_t uniqueID;
    int32_t version;
    AEffectProcessProc processReplacing;
    AEffectProcessDoubleProc processDoubleReplacing;
    char future[56];
};

struct ERect {
    int16_t top;
    int16_t left;
    int16_t bottom;
    int16_t right;
};

struct VstTimeInfo {
    double samplePos;
    double sampleRate;
    double nanoSeconds;
    double ppqPos;
    double tempo;
    double barStartPos;
    double cycleStartPos;
    double cycleEndPos;
    int32_t timeSigNumerator;
    int32_t timeSigDenominator;
    int32_t smpteOffset;
    int32_t smpteFrameRate;
    int32_t samplesToNextClock;
    int32_t flags;
};

inline constexpr int kVstMaxLabelLen = 64;
inline constexpr int kVstMaxShortLabelLen = 8;
inline constexpr int kVstMaxNameLen = 64;
inline constexpr int kVstMaxParamStrLen = 8;
inline constexpr int kVstMaxEffectNameLen = 32;
inline constexpr int kVstMaxVendorStrLen = 64;
inline constexpr int kVstMaxProductStrLen = 64;
inline constexpr int kVstMaxCategLabelLen = 24;

struct VstPinProperties {
    char label[kVstMaxLabelLen];
    int32_t flags;
    int32_t arrangementType;
    char shortLabel[kVstMaxShortLabelLen];
    char future[48];
};

struct VstSpeakerProperties {
    float azimuth;
    float elevation;
    float radius;
    float reserved;
    char name[kVstMaxNameLen];
    int32_t type;
    char future[28];
};

struct VstSpeakerArrangement {
    int32_t type;
    int32_t numChannels;
    VstSpeakerProperties speakers[8];
};

struct VstParameterProperties {
    float stepFloat;
    float smallStepFloat;
    float largeStepFloat;
    char label[kVstMaxLabelLen];
    int32_t flags;
    int32_t minInteger;
    int32_t maxInteger;
    int32_t stepInteger;
    int32_t largeStepInteger;
    char shortLabel[kVstMaxShortLabelLen];
    int16_t displayIndex;
    int16_t category;
    int16_t numParametersInCategory;
    int16_t reserved;
    char categoryLabel[kVstMaxCategLabelLen];
    char future[16];
};

static_assert(sizeof(void*) != 8 || sizeof(AEffect) == 192, "AEffect layout");
static_assert(sizeof(void*) != 8 || offsetof(AEffect, numInputs) == 48, "AEffect layout");
static_assert(sizeof(void*) != 8 || offsetof(AEffect, initialDelay) == 80, "AEffect layout");
static_assert(sizeof(void*) != 8 || offsetof(AEffect, user) == 104, "AEffect layout");
static_assert(sizeof(void*) != 8 || offsetof(AEffect, processReplacing) == 120, "AEffect layout");
static_assert(sizeof(ERect) == 8, "ERect layout");
static_assert(sizeof(VstTimeInfo) == 88, "VstTimeInfo layout");
static_assert(sizeof(VstPinProperties) == 128, "VstPinProperties layout");
static_assert(sizeof(VstSpeakerProperties) == 112, "VstSpeakerProperties layout");
static_assert(sizeof(VstSpeakerArrangement) == 904, "VstSpeakerArrangement layout");
static_assert(sizeof(VstParameterProperties) == 152, "VstParameterProperties layout");

inline constexpr int32_t kEffectMagic = 0x56737450; // 'VstP'

// AEffect::flags
inline constexpr int32_t effFlagsHasEditor = 1 << 0;
inline constexpr int32_t effFlagsCanReplacing = 1 << 4;
inline constexpr int32_t effFlagsProgramChunks = 1 << 5;
inline constexpr int32_t effFlagsIsSynth = 1 << 8;
inline constexpr int32_t effFlagsNoSoundInStop = 1 << 9;
inline constexpr int32_t effFlagsCanDoubleReplacing = 1 << 12;

// Dispatcher opcodes (host to plug-in)
inline constexpr int32_t effOpen = 0;
inline constexpr int32_t effClose = 1;
inline constexpr int32_t effSetProgram = 2;
inline constexpr int32_t effGetProgram = 3;
inline constexpr int32_t effGetParamLabel = 6;
inline constexpr int32_t effGetParamDisplay = 7;
inline constexpr int32_t effGetParamName = 8;
inline constexpr int32_t effSetSampleRate = 10;
inline constexpr int32_t effSetBlockSize = 11;
inline constexpr int32_t effMainsChanged = 12;
inline constexpr int32_t effEditGetRect = 13;
inline constexpr int32_t effEditOpen = 14;
inline constexpr int32_t effEditClose = 15;
inline constexpr int32_t effEditIdle = 19;
inline constexpr int32_t effGetChunk = 23;
inline constexpr int32_t effSetChunk = 24;
inline constexpr int32_t effProcessEvents = 25;
inline constexpr int32_t effCanBeAutomated = 26;
inline constexpr int32_t effConnectInput = 31;
inline constexpr int32_t effConnectOutput = 32;
inline constexpr int32_t effGetInputProperties = 33;
inline constexpr int32_t effGetOutputProperties = 34;
inline constexpr int32_t effGetPlugCategory = 35;
inline constexpr int32_t effSetSpeakerArrangement = 42;
inline constexpr int32_t effSetBypass = 44;
inline constexpr int32_t effGetEffectName = 45;
inline constexpr int32_t effGetVendorString = 47;
inline constexpr int32_t effGetProductString = 48;
inline constexpr int32_t effGetVendorVersion = 49;
inline constexpr int32_t effCanDo = 51;
inline constexpr int32_t effGetTailSize = 52;
inline constexpr int32_t effIdle = 53;
inline constexpr int32_t effGetParameterProperties = 56;
inline constexpr int32_t effGetVstVersion = 58;
inline constexpr int32_t effGetSpeakerArrangement = 69;
inline constexpr int32_t effStartProcess = 71;
inline constexpr int32_t effStopProcess = 72;
inline constexpr int32_t effBeginLoadBank = 75;
inline constexpr int32_t effBeginLoadProgram = 76;
inline constexpr int32_t effSetProcessPrecision = 77;

// Host callback opcodes (plug-in to host)
inline constexpr int32_t audioMasterAutomate = 0;
inline constexpr int32_t audioMasterVersion = 1;
inline constexpr int32_t audioMasterCurrentId = 2;
inline constexpr int32_t audioMasterIdle = 3;
inline constexpr int32_t audioMasterGetTime = 7;
inline constexpr int32_t audioMasterProcessEvents = 8;
inline constexpr int32_t audioMasterIOChanged = 13;
inline constexpr int32_t audioMasterNeedIdle = 14;
inline constexpr int32_t audioMasterSizeWindow = 15;
inline constexpr int32_t audioMasterGetSampleRate = 16;
inline constexpr int32_t audioMasterGetBlockSize = 17;
inline constexpr int32_t audioMasterGetInputLatency = 18;
inline constexpr int32_t audioMasterGetOutputLatency = 19;
inline constexpr int32_t audioMasterGetCurrentProcessLevel = 23;
inline constexpr int32_t audioMasterGetAutomationState = 24;
inline constexpr int32_t audioMasterGetVendorString = 32;
inline constexpr int32_t audioMasterGetProductString = 33;
inline constexpr int32_t audioMasterGetVendorVersion = 34;
inline constexpr int32_t audioMasterVendorSpecific = 35;
inline constexpr int32_t audioMasterCanDo = 37;
inline constexpr int32_t audioMasterGetLanguage = 38;
inline constexpr int32_t audioMasterGetDirectory = 41;
inline constexpr int32_t audioMasterUpdateDisplay = 42;
inline constexpr int32_t audioMasterBeginEdit = 43;
inline constexpr int32_t audioMasterEndEdit = 44;

// VstTimeInfo::flags
inline constexpr int32_t kVstTransportChanged = 1;
inline constexpr int32_t kVstTransportPlaying = 1 << 1;
inline constexpr int32_t kVstNanosValid = 1 << 8;
inline constexpr int32_t kVstPpqPosValid = 1 << 9;
inline constexpr int32_t kVstTempoValid = 1 << 10;
inline constexpr int32_t kVstBarsValid = 1 << 11;
inline constexpr int32_t kVstCyclePosValid = 1 << 12;
inline constexpr int32_t kVstTimeSigValid = 1 << 13;

// VstParameterProperties::flags
inline constexpr int32_t kVstParameterIsSwitch = 1 << 0;
inline constexpr int32_t kVstParameterUsesIntegerMinMax = 1 << 1;
inline constexpr int32_t kVstParameterUsesFloatStep = 1 << 2;
inline constexpr int32_t kVstParameterUsesIntStep = 1 << 3;
inline constexpr int32_t kVstParameterCanRamp = 1 << 6;

// effGetPlugCategory answers
inline constexpr int32_t kPlugCategUnknown = 0;
inline constexpr int32_t kPlugCategEffect = 1;
inline constexpr int32_t kPlugCategSynth = 2;
inline constexpr int32_t kPlugCategAnalysis = 3;
inline constexpr int32_t kPlugCategMastering = 4;
inline constexpr int32_t kPlugCategSpacializer = 5;
inline constexpr int32_t kPlugCategRoomFx = 6;
inline constexpr int32_t kPlugCategSurroundFx = 7;
inline constexpr int32_t kPlugCategRestoration = 8;
inline constexpr int32_t kPlugCategGenerator = 11;

// VstPinProperties::flags
inline constexpr int32_t kVstPinIsActive = 1 << 0;
inline constexpr int32_t kVstPinIsStereo = 1 << 1;
inline constexpr int32_t kVstPinUseSpeaker = 1 << 2;

// Speaker arrangement types
inline constexpr int32_t kSpeakerArrUserDefined = -2;
inline constexpr int32_t kSpeakerArrEmpty = -1;
inline constexpr int32_t kSpeakerArrMono = 0;
inline constexpr int32_t kSpeakerArrStereo = 1;
inline constexpr int32_t kSpeakerArr40Music = 11;
inline constexpr int32_t kSpeakerArr51 = 15;
inline constexpr int32_t kSpeakerArr71Music = 23;

// Speaker types
inline constexpr int32_t kSpeakerM = 0;
inline constexpr int32_t kSpeakerL = 1;
inline constexpr int32_t kSpeakerR = 2;
inline constexpr int32_t kSpeakerC = 3;
inline constexpr int32_t kSpeakerArrMaxSpeakers = 8; // VstSpeakerArrangement::speakers

inline constexpr int32_t kVstProcessLevelRealtime = 2;
inline constexpr int32_t kVstProcessLevelOffline = 4;
inline constexpr int32_t kVstProcessPrecision32 = 0;
inline constexpr int32_t kVstProcessPrecision64 = 1;
inline constexpr int32_t kVstLangEnglish = 1;
inline constexpr int32_t kVstVersion = 2400;
