#include "hosting/vst3/vst3_parameters.h"

#include "hosting/vst2/vst2_abi.h"
#include "hosting/vst3/vst3_text.h"

#include "pluginterfaces/vst/ivstunits.h"

#include <algorithm>

namespace vst3 {

using Steinberg::FUnknownPtr;
using Steinberg::int32;
using Steinberg::kResultOk;
using Steinberg::Vst::ParameterInfo;
using Steinberg::Vst::ParamID;
using Steinberg::Vst::ParamValue;
using Steinberg::Vst::String128;

namespace {

// Parameter names may be longer than the VST 2.4 label length; 32 is what hosts allow them.
constexpr size_t parameterNameBytes = 32;

// The number of programs in the root unit's program list, 0 without one.
int32 rootPrograms(Steinberg::Vst::IEditController& controller) {
    FUnknownPtr<Steinberg::Vst::IUnitInfo> units(&controller);
    if (!units)
        return 0;
    Steinberg::Vst::ProgramListID programList = Steinberg::Vst::kNoProgramListId;
    for (int32 index = 0; index < units->getUnitCount(); ++index) {
        Steinberg::Vst::UnitInfo unit{};
        if (units->getUnitInfo(index, unit) == kResultOk && unit.id == Steinberg::Vst::kRootUnitId)
            programList = unit.programListId;
    }
    if (programList == Steinberg::Vst::kNoProgramListId)
        return 0;
    int32 programs = 0;
    for (int32 index = 0; index < units->getProgramListCount(); ++index) {
        Steinberg::Vst::ProgramListInfo list{};
        if (units->getProgramListInfo(index, list) == kResultOk && list.id == programList)
            programs = std::max(list.programCount, 0);
    }
    return programs;
}

} // namespace

void Vst3Parameters::build() {
    if (auto* controller = parts.controller()) {
        map.build(*controller);
        programs = rootPrograms(*controller);
    }
    const int32 capacity = std::max(map.controllerCount(), 1);
    inputChanges.setCapacity(capacity);
    outputChanges.setCapacity(capacity);
    outputRing.setCapacity(2 * static_cast<size_t>(capacity));
}

std::optional<ParamID> Vst3Parameters::idAt(int32 index) const {
    if (const auto* entry = map.at(index))
        return entry->id;
    return std::nullopt;
}

void Vst3Parameters::set(ParamID id, ParamValue value) {
    if (parts.controller())
        parts.controller()->setParamNormalized(id, value);
    pending.push(id, value);
}

float Vst3Parameters::value(int32 index) const {
    const auto* entry = map.at(index);
    if (entry == nullptr || !parts.controller())
        return 0.0f;
    // A value set a moment ago may not have reached the plug-in yet; it is still the answer.
    if (const auto queued = pending.latest(entry->id))
        return static_cast<float>(*queued);
    return static_cast<float>(parts.controller()->getParamNormalized(entry->id));
}

void Vst3Parameters::setValue(int32 index, float value) {
    if (const auto* entry = map.at(index))
        set(entry->id, value);
}

intptr_t Vst3Parameters::text(int32_t opcode, int32 index, void* ptr) const {
    const auto* entry = map.at(index);
    if (entry == nullptr || ptr == nullptr || !parts.controller())
        return 0;
    auto* out = static_cast<char*>(ptr);
    if (opcode == effGetParamDisplay) {
        String128 text{};
        if (parts.controller()->getParamStringByValue(entry->id, value(index), text) != kResultOk)
            return 0;
        vst3_text::copyCut(vst3_text::fromUtf16(text, 128), out, kVstMaxParamStrLen);
        return 1;
    }
    ParameterInfo info{};
    if (parts.controller()->getParameterInfo(entry->controllerIndex, info) != kResultOk)
        return 0;
    if (opcode == effGetParamName)
        vst3_text::copyCut(vst3_text::fromUtf16(info.title, 128), out, parameterNameBytes);
    else
        vst3_text::copyCut(vst3_text::fromUtf16(info.units, 128), out, kVstMaxParamStrLen);
    return 1;
}

intptr_t Vst3Parameters::properties(int32 index, void* ptr) const {
    const auto* entry = map.at(index);
    if (entry == nullptr || ptr == nullptr || !parts.controller())
        return 0;
    ParameterInfo info{};
    if (parts.controller()->getParameterInfo(entry->controllerIndex, info) != kResultOk)
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

intptr_t Vst3Parameters::canBeAutomated(int32 index) const {
    const auto* entry = map.at(index);
    return entry != nullptr && (entry->flags & ParameterInfo::kCanAutomate) ? 1 : 0;
}

intptr_t Vst3Parameters::setProgram(intptr_t program) {
    const auto change = map.programChange();
    if (!change || change->stepCount < 1 || program < 0 || program > change->stepCount)
        return 0;
    currentProgram = static_cast<int32>(program);
    set(change->id, static_cast<ParamValue>(program) / change->stepCount);
    return 1;
}

intptr_t Vst3Parameters::setBypass(bool on) {
    if (const auto bypass = map.bypass()) {
        set(bypass->id, on ? 1.0 : 0.0);
        return 1;
    }
    return 0;
}

void Vst3Parameters::beginBlock(int32 frames, Steinberg::Vst::ProcessData& data) {
    inputChanges.clear();
    outputChanges.clear();
    // Some plug-ins return from a block of no frames before they read its parameter changes
    // (DPF-made ones do): such a block is given the changes but they stay queued for the next.
    if (frames == 0)
        pending.copyInto(inputChanges);
    else
        pending.moveInto(inputChanges);
    data.inputParameterChanges = &inputChanges;
    data.outputParameterChanges = &outputChanges;
}

void Vst3Parameters::endBlock(bool processed) {
    if (processed)
        for (int32 index = 0; index < outputChanges.getParameterCount(); ++index) {
            auto& queue = outputChanges.queue(index);
            if (queue.getPointCount() > 0)
                outputRing.push(queue.getParameterId(), queue.lastValue());
        }
    inputChanges.clear();
    outputChanges.clear();
}

void Vst3Parameters::drainOutputChanges() {
    ParamID id = 0;
    ParamValue value = 0.0;
    while (outputRing.pop(id, value))
        if (parts.controller())
            parts.controller()->setParamNormalized(id, value);
}

} // namespace vst3
