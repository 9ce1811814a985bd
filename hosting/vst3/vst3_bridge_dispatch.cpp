// The bridge's dispatcher: the VST 2 opcodes the program uses, answered from the VST 3 side.
// Opcodes nobody sends to an effect we host answer 0.
#include "hosting/vst3/vst3_bridge.h"

#include "hosting/vst3/vst3_text.h"

#include <string_view>

namespace vst3 {

using Steinberg::int32;
using Steinberg::Vst::kInput;
using Steinberg::Vst::kOutput;

intptr_t Vst3Bridge::dispatch(int32 opcode, int32 index, intptr_t value, void* ptr, float opt) {
    switch (opcode) {
    case effOpen:
        return 0;
    case effSetProgram:
        return parameters.setProgram(value);
    case effGetProgram:
        return parameters.program();
    case effGetParamLabel:
    case effGetParamDisplay:
    case effGetParamName:
        return parameters.text(opcode, index, ptr);
    case effSetSampleRate:
        return processing.setSampleRate(opt);
    case effSetBlockSize:
        return processing.setBlockSize(value);
    case effMainsChanged:
        return processing.setMains(value != 0);
    case effEditGetRect:
        return editor.rect(ptr);
    case effEditOpen:
        return editor.open(ptr);
    case effEditClose:
        return editor.close();
    case effEditIdle:
        return idle(true);
    case effGetChunk:
        return state.getChunk(ptr);
    case effSetChunk:
        return setChunk(value, ptr);
    case effCanBeAutomated:
        return parameters.canBeAutomated(index);
    case effConnectInput:
    case effConnectOutput:
        // A disconnected main pin is simply fed the host's silent scratch.
        return 1;
    case effGetInputProperties:
    case effGetOutputProperties:
        if (ptr == nullptr)
            return 0;
        return processing.busTable().pinProperties(opcode == effGetInputProperties ? kInput
                                                                                   : kOutput,
                                                   index, *static_cast<VstPinProperties*>(ptr))
                   ? 1
                   : 0;
    case effGetPlugCategory:
        return plugCategory();
    case effSetSpeakerArrangement:
        return processing.setSpeakerArrangement(reinterpret_cast<VstSpeakerArrangement*>(value),
                                                static_cast<VstSpeakerArrangement*>(ptr));
    case effSetBypass:
        return parameters.setBypass(value != 0);
    case effGetEffectName:
    case effGetProductString:
        if (ptr != nullptr)
            vst3_text::copyCut(classInfo.name, static_cast<char*>(ptr),
                               opcode == effGetEffectName ? kVstMaxEffectNameLen
                                                          : kVstMaxProductStrLen);
        return ptr != nullptr ? 1 : 0;
    case effGetVendorString:
        if (ptr != nullptr)
            vst3_text::copyCut(classInfo.vendor, static_cast<char*>(ptr), kVstMaxVendorStrLen);
        return ptr != nullptr ? 1 : 0;
    case effGetVendorVersion:
        return effect.version;
    case effCanDo:
        return canDo(static_cast<const char*>(ptr));
    case effGetTailSize:
        // Passed on unchanged: "no tail" (0) lets the host render its default tail.
        return static_cast<intptr_t>(parts.processor()->getTailSamples());
    case effIdle:
        return idle(false);
    case effGetParameterProperties:
        return parameters.properties(index, ptr);
    case effGetVstVersion:
        return kVstVersion;
    case effGetSpeakerArrangement:
        return processing.getSpeakerArrangement(reinterpret_cast<VstSpeakerArrangement**>(value),
                                                static_cast<VstSpeakerArrangement**>(ptr));
    case effStartProcess:
        return processing.startProcess();
    case effStopProcess:
        return processing.stopProcess();
    case effSetProcessPrecision:
        return processing.setProcessPrecision(value);
    default:
        return 0;
    }
}

intptr_t Vst3Bridge::plugCategory() const {
    struct Category {
        std::string_view word;
        int32 vst2;
    };
    // The first sub-category word VST 2 has a category for decides.
    static constexpr Category categories[] = {
        {"Instrument", kPlugCategSynth},        {"Analyzer", kPlugCategAnalysis},
        {"Mastering", kPlugCategMastering},     {"Spatial", kPlugCategSpacializer},
        {"Reverb", kPlugCategRoomFx},           {"Surround", kPlugCategSurroundFx},
        {"Restoration", kPlugCategRestoration}, {"Generator", kPlugCategGenerator},
    };
    std::string_view rest = classInfo.subCategories;
    while (!rest.empty()) {
        const auto bar = rest.find('|');
        const auto word = rest.substr(0, bar);
        for (const auto& category : categories)
            if (word == category.word)
                return category.vst2;
        rest = bar == std::string_view::npos ? std::string_view() : rest.substr(bar + 1);
    }
    return kPlugCategEffect;
}

intptr_t Vst3Bridge::canDo(const char* text) const {
    if (text == nullptr)
        return 0;
    const std::string_view asked(text);
    return asked == "bypass" || asked == "receiveVstTimeInfo" ? 1 : 0;
}

intptr_t Vst3Bridge::setChunk(intptr_t length, void* ptr) {
    const auto chunkParts = Vst3StateTransfer::readChunk(length, ptr);
    if (!chunkParts)
        return 0;
    const StateLoad loading(*this);
    if (!chunkParts->component.empty())
        dropQueuedValues();
    state.loadChunk(*chunkParts);
    return 1;
}

} // namespace vst3
