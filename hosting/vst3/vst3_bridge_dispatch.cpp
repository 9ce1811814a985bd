// The bridge's dispatcher: the VST 2 opcodes the program uses, answered from the VST 3 side.
// Opcodes nobody sends to an effect we host answer 0.
#include "hosting/vst3/vst3_bridge.h"

#include "hosting/vst3/vst3_chunk.h"
#include "hosting/vst3/vst3_read_stream.h"
#include "hosting/vst3/vst3_text.h"

#include "public.sdk/source/common/memorystream.h"

#include <cstring>
#include <limits>
#include <span>
#include <string_view>

namespace vst3 {

namespace {

// Parameter names may be longer than the VST 2.4 label length; 32 is what hosts allow them.
constexpr size_t parameterNameBytes = 32;

std::span<const uint8_t> bytesOf(const MemoryStream& stream) {
    return {reinterpret_cast<const uint8_t*>(stream.getData()),
            static_cast<size_t>(stream.getSize())};
}

// A read-only stream over a copy of `bytes`, positioned at the start, as plug-ins reading state
// expect; it keeps their reads and seeks inside the bytes.
IPtr<Vst3ReadStream> streamOver(std::span<const uint8_t> bytes) {
    return owned(new Vst3ReadStream(bytes));
}

} // namespace

intptr_t Vst3Bridge::dispatch(int32 opcode, int32 index, intptr_t value, void* ptr, float opt) {
    switch (opcode) {
    case effOpen:
        return 0;
    case effSetProgram:
        return setProgram(value);
    case effGetProgram:
        return currentProgram;
    case effGetParamLabel:
    case effGetParamDisplay:
    case effGetParamName:
        return dispatchParameterText(opcode, index, ptr);
    case effSetSampleRate:
        return setSampleRate(opt);
    case effSetBlockSize:
        return setBlockSize(value);
    case effMainsChanged:
        return setMains(value != 0);
    case effEditGetRect:
        return editorRect(ptr);
    case effEditOpen:
        return openEditor(ptr);
    case effEditClose:
        return closeEditor();
    case effEditIdle:
        return idle(true);
    case effGetChunk:
        return getChunk(ptr);
    case effSetChunk:
        return setChunk(value, ptr);
    case effCanBeAutomated: {
        const auto* entry = parameters.at(index);
        return entry != nullptr && (entry->flags & ParameterInfo::kCanAutomate) ? 1 : 0;
    }
    case effConnectInput:
    case effConnectOutput:
        // A disconnected main pin is simply fed the host's silent scratch.
        return 1;
    case effGetInputProperties:
    case effGetOutputProperties:
        if (ptr == nullptr)
            return 0;
        return buses.pinProperties(opcode == effGetInputProperties ? kInput : kOutput, index,
                                   *static_cast<VstPinProperties*>(ptr))
                   ? 1
                   : 0;
    case effGetPlugCategory:
        return plugCategory();
    case effSetSpeakerArrangement:
        return setSpeakerArrangement(reinterpret_cast<VstSpeakerArrangement*>(value),
                                     static_cast<VstSpeakerArrangement*>(ptr));
    case effSetBypass:
        if (const auto bypass = parameters.bypass()) {
            setParameterById(bypass->id, value != 0 ? 1.0 : 0.0);
            return 1;
        }
        return 0;
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
        return static_cast<intptr_t>(processor->getTailSamples());
    case effIdle:
        return idle(false);
    case effGetParameterProperties:
        return parameterProperties(index, ptr);
    case effGetVstVersion:
        return kVstVersion;
    case effGetSpeakerArrangement:
        return getSpeakerArrangement(reinterpret_cast<VstSpeakerArrangement**>(value),
                                     static_cast<VstSpeakerArrangement**>(ptr));
    case effStartProcess:
        return startProcess();
    case effStopProcess:
        return stopProcess();
    case effSetProcessPrecision:
        return setProcessPrecision(value);
    default:
        return 0;
    }
}

intptr_t Vst3Bridge::dispatchParameterText(int32 opcode, int32 index, void* ptr) {
    const auto* entry = parameters.at(index);
    if (entry == nullptr || ptr == nullptr || !controllerPart)
        return 0;
    auto* out = static_cast<char*>(ptr);
    if (opcode == effGetParamDisplay) {
        String128 text{};
        if (controllerPart->getParamStringByValue(entry->id, getParameter(index), text) !=
            kResultOk)
            return 0;
        vst3_text::copyCut(vst3_text::fromUtf16(text, 128), out, kVstMaxParamStrLen);
        return 1;
    }
    ParameterInfo info{};
    if (controllerPart->getParameterInfo(entry->controllerIndex, info) != kResultOk)
        return 0;
    if (opcode == effGetParamName)
        vst3_text::copyCut(vst3_text::fromUtf16(info.title, 128), out, parameterNameBytes);
    else
        vst3_text::copyCut(vst3_text::fromUtf16(info.units, 128), out, kVstMaxParamStrLen);
    return 1;
}

intptr_t Vst3Bridge::parameterProperties(int32 index, void* ptr) {
    const auto* entry = parameters.at(index);
    if (entry == nullptr || ptr == nullptr || !controllerPart)
        return 0;
    ParameterInfo info{};
    if (controllerPart->getParameterInfo(entry->controllerIndex, info) != kResultOk)
        return 0;
    auto& properties = *static_cast<VstParameterProperties*>(ptr);
    properties = VstParameterProperties{};
    vst3_text::copyCut(vst3_text::fromUtf16(info.title, 128), properties.label,
                       sizeof properties.label);
    vst3_text::copyCut(vst3_text::fromUtf16(info.shortTitle, 128), properties.shortLabel,
                       sizeof properties.shortLabel);
    if (info.stepCount == 1) {
        properties.flags = kVstParameterIsSwitch;
    } else if (info.stepCount > 1) {
        properties.flags = kVstParameterUsesIntegerMinMax | kVstParameterUsesIntStep;
        properties.maxInteger = info.stepCount;
        properties.stepInteger = 1;
        properties.largeStepInteger = 1;
    } else {
        properties.flags = kVstParameterCanRamp;
    }
    return 1;
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

intptr_t Vst3Bridge::setProgram(intptr_t program) {
    const auto change = parameters.programChange();
    if (!change || change->stepCount < 1 || program < 0 || program > change->stepCount)
        return 0;
    currentProgram = static_cast<int32>(program);
    setParameterById(change->id, static_cast<ParamValue>(program) / change->stepCount);
    return 1;
}

float Vst3Bridge::getParameter(int32 index) {
    const auto* entry = parameters.at(index);
    if (entry == nullptr || !controllerPart)
        return 0.0f;
    // A value set a moment ago may not have reached the plug-in yet; it is still the answer.
    if (const auto queued = pending.latest(entry->id))
        return static_cast<float>(*queued);
    return static_cast<float>(controllerPart->getParamNormalized(entry->id));
}

void Vst3Bridge::setParameter(int32 index, float value) {
    if (const auto* entry = parameters.at(index))
        setParameterById(entry->id, value);
}

intptr_t Vst3Bridge::getChunk(void* ptr) {
    if (ptr == nullptr)
        return 0;
    const std::lock_guard lock(lifecycle);
    IPtr<MemoryStream> componentState = owned(new MemoryStream);
    IPtr<MemoryStream> controllerState = owned(new MemoryStream);
    // A side that cannot give its state counts as empty.
    if (componentPart->getState(componentState) != kResultTrue)
        componentState->setSize(0);
    if (!controllerPart || controllerPart->getState(controllerState) != kResultTrue)
        controllerState->setSize(0);
    if (componentState->getSize() == 0 && controllerState->getSize() == 0)
        return 0;
    chunk = vst3_chunk::pack(bytesOf(*componentState), bytesOf(*controllerState));
    *static_cast<void**>(ptr) = chunk.data();
    return static_cast<intptr_t>(chunk.size());
}

intptr_t Vst3Bridge::setChunk(intptr_t length, void* ptr) {
    if (ptr == nullptr || length <= 0 || length > std::numeric_limits<int32>::max())
        return 0;
    const auto parts =
        vst3_chunk::split({static_cast<const uint8_t*>(ptr), static_cast<size_t>(length)});
    if (!parts)
        return 0;
    const StateLoad loading(*this);
    if (!parts->component.empty()) {
        dropQueuedValues();
        IPtr<Vst3ReadStream> componentState = streamOver(parts->component);
        componentPart->setState(componentState);
        if (controllerPart) {
            componentState->seek(0, IBStream::kIBSeekSet, nullptr);
            controllerPart->setComponentState(componentState);
        }
    }
    if (!parts->controller.empty() && controllerPart)
        controllerPart->setState(streamOver(parts->controller));
    return 1;
}

} // namespace vst3
