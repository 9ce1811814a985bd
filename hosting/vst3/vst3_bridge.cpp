#include "hosting/vst3/vst3_bridge.h"

#include "hosting/guarded_call.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <string_view>

namespace vst3 {

using Steinberg::FUID;
using Steinberg::int32;
using Steinberg::IPluginFactory;
using Steinberg::kNotImplemented;
using Steinberg::kResultOk;
using Steinberg::tresult;
using Steinberg::TUID;
using Steinberg::uint32;
using Steinberg::Vst::kInput;
using Steinberg::Vst::kIoChanged;
using Steinberg::Vst::kLatencyChanged;
using Steinberg::Vst::kNoTail;
using Steinberg::Vst::kOutput;
using Steinberg::Vst::kParamTitlesChanged;
using Steinberg::Vst::kParamValuesChanged;
using Steinberg::Vst::kReloadComponent;
using Steinberg::Vst::ParamID;
using Steinberg::Vst::ParamValue;

namespace {

// "4.1.0" -> 4100; "1.2.3.4" -> 1234. Parts past 9 saturate so that a part never spills into
// the next place.
int32 packedVersion(std::string_view text) {
    int32 packed = 0;
    int32 places[] = {1000, 100, 10, 1};
    for (const int32 place : places) {
        int32 part = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), part);
        if (error != std::errc{})
            break;
        packed += std::clamp(part, 0, 9) * place;
        text.remove_prefix(static_cast<size_t>(end - text.data()));
        if (text.empty() || text.front() != '.')
            break;
        text.remove_prefix(1);
    }
    return packed;
}

Vst3Bridge* fromEffect(AEffect* effect) {
    return effect != nullptr ? static_cast<Vst3Bridge*>(effect->object) : nullptr;
}

} // namespace

Vst3Bridge* Vst3Bridge::create(IPluginFactory* factory, const TUID classId, int32 vst2Id,
                               audioMasterCallback hostCallback) {
    if (factory == nullptr || hostCallback == nullptr)
        return nullptr;
    std::unique_ptr<Vst3Bridge> bridge(new Vst3Bridge(hostCallback, vst2Id));
    bool made = false;
    if (!guardedCall([&] { made = bridge->initialize(*factory, classId); }) || !made)
        return nullptr; // the destructor takes down whatever was made
    return bridge.release();
}

Vst3Bridge::Vst3Bridge(audioMasterCallback hostCallback, int32 vst2Id)
    : hostCallback(hostCallback) {
    effect.uniqueID = vst2Id;
    effect.object = this;
}

Vst3Bridge::~Vst3Bridge() {
    tearDown();
}

intptr_t Vst3Bridge::callHost(int32 opcode, int32 index, intptr_t value, void* ptr, float opt) {
    // `user` is still null while the plug-in is being created; the host copes with that.
    return hostCallback(&effect, opcode, index, value, ptr, opt);
}

bool Vst3Bridge::initialize(IPluginFactory& factory, const TUID id) {
    classUid = FUID::fromTUID(id);
    for (auto& info : readFactoryClasses(factory))
        if (std::memcmp(info.classId.data(), id, info.classId.size()) == 0)
            classInfo = std::move(info);

    if (!parts.make(factory, id, editor.makeRunLoop(), *this))
        return false;
    parameters.build();

    processing.open();
    const bool hasEditor = editor.available();
    fillRecord();
    if (hasEditor)
        effect.flags |= effFlagsHasEditor;
    return true;
}

void Vst3Bridge::fillRecord() {
    effect.magic = kEffectMagic;
    effect.dispatcher = &Vst3Bridge::dispatcherEntry;
    effect.process = &Vst3Bridge::processEntry;
    effect.processReplacing = &Vst3Bridge::processReplacingEntry;
    effect.processDoubleReplacing = &Vst3Bridge::processDoubleEntry;
    effect.setParameter = &Vst3Bridge::setParameterEntry;
    effect.getParameter = &Vst3Bridge::getParameterEntry;
    effect.numParams = parameters.count();
    effect.numPrograms = parameters.programCount();
    effect.numInputs = processing.busTable().mainChannels(kInput);
    effect.numOutputs = processing.busTable().mainChannels(kOutput);
    // The VST 2 view of any VST 3 state is a chunk.
    effect.flags = effFlagsCanReplacing | effFlagsProgramChunks;
    if (processing.canDoublePrecision())
        effect.flags |= effFlagsCanDoubleReplacing;
    // Instruments are marked so that the loader can refuse them.
    if (classInfo.subCategories.find("Instrument") != std::string::npos)
        effect.flags |= effFlagsIsSynth;
    if (parts.processor()->getTailSamples() == kNoTail)
        effect.flags |= effFlagsNoSoundInStop;
    effect.ioRatio = 1.0f;
    effect.version = packedVersion(classInfo.version);
}

void Vst3Bridge::tearDown() noexcept {
    guardedCall([&] { processing.bringDown(); });
    guardedCall([&] { editor.close(); });
    parts.tearDown();
    editor.detachFrame();
}

intptr_t Vst3Bridge::hostProcessLevel() {
    return callHost(audioMasterGetCurrentProcessLevel);
}

const VstTimeInfo* Vst3Bridge::hostTime(intptr_t flags) {
    return reinterpret_cast<const VstTimeInfo*>(callHost(audioMasterGetTime, 0, flags));
}

void Vst3Bridge::refreshLatency() {
    effect.initialDelay = static_cast<int32>(std::min<uint32>(
        parts.processor()->getLatencySamples(), std::numeric_limits<int32>::max()));
}

void Vst3Bridge::updatePinCounts() {
    // The record is filled (and its counts first set) once creation is done.
    if (effect.magic != kEffectMagic)
        return;
    const int32 inputs = processing.busTable().mainChannels(kInput);
    const int32 outputs = processing.busTable().mainChannels(kOutput);
    if (inputs == effect.numInputs && outputs == effect.numOutputs)
        return;
    effect.numInputs = inputs;
    effect.numOutputs = outputs;
    callHost(audioMasterIOChanged);
}

intptr_t Vst3Bridge::dispatcherEntry(AEffect* effect, int32 opcode, int32 index, intptr_t value,
                                     void* ptr, float opt) {
    Vst3Bridge* bridge = fromEffect(effect);
    if (bridge == nullptr)
        return 0;
    if (opcode == effClose) {
        delete bridge;
        return 1;
    }
    intptr_t answer = 0;
    guardedCall([&] { answer = bridge->dispatch(opcode, index, value, ptr, opt); });
    return answer;
}

// Never called: the record always offers replacing processing.
void Vst3Bridge::processEntry(AEffect*, float**, float**, int32) {}

void Vst3Bridge::processReplacingEntry(AEffect* effect, float** inputs, float** outputs,
                                       int32 frames) {
    if (Vst3Bridge* bridge = fromEffect(effect))
        bridge->processing.processBlock(inputs, outputs, frames);
}

void Vst3Bridge::processDoubleEntry(AEffect* effect, double** inputs, double** outputs,
                                    int32 frames) {
    if (Vst3Bridge* bridge = fromEffect(effect))
        bridge->processing.processBlock(inputs, outputs, frames);
}

void Vst3Bridge::setParameterEntry(AEffect* effect, int32 index, float value) {
    if (Vst3Bridge* bridge = fromEffect(effect))
        guardedCall([&] { bridge->parameters.setValue(index, value); });
}

float Vst3Bridge::getParameterEntry(AEffect* effect, int32 index) {
    float value = 0.0f;
    if (Vst3Bridge* bridge = fromEffect(effect))
        guardedCall([&] { value = bridge->parameters.value(index); });
    return value;
}

void Vst3Bridge::beginEdit(ParamID id) {
    if (const auto index = parameters.indexOf(id))
        callHost(audioMasterBeginEdit, *index);
}

void Vst3Bridge::performEdit(ParamID id, ParamValue value) {
    // The controller already holds the value; the processor learns it with the next block.
    // Ids the host cannot name still reach the processor.
    parameters.queueEdit(id, value);
    if (const auto index = parameters.indexOf(id))
        callHost(audioMasterAutomate, *index, 0, nullptr, static_cast<float>(value));
}

void Vst3Bridge::endEdit(ParamID id) {
    if (const auto index = parameters.indexOf(id))
        callHost(audioMasterEndEdit, *index);
}

tresult Vst3Bridge::restartComponent(int32 flags) {
    // Only flags and values here: this may come from inside setActive, process or a state load,
    // so the work itself waits for the next block.
    if (flags & kIoChanged)
        processing.ioChanged();
    if (flags & kLatencyChanged) {
        refreshLatency();
        processing.latencyChanged();
        callHost(audioMasterIOChanged);
    }
    // From the processing thread the display update would reach the controller there.
    if ((flags & (kParamValuesChanged | kParamTitlesChanged)) && !processing.onProcessingThread())
        callHost(audioMasterUpdateDisplay);
    return (flags & kReloadComponent) ? kNotImplemented : kResultOk;
}

Vst3Bridge::StateLoad::StateLoad(Vst3Bridge& bridge)
    : bridge(bridge), lock(bridge.processing.lifecycleLock()) {
    bridge.state.setLoading(true);
}

Vst3Bridge::StateLoad::~StateLoad() {
    bridge.state.setLoading(false);
}

void Vst3Bridge::setParameterById(ParamID id, ParamValue value) {
    parameters.set(id, value);
}

void Vst3Bridge::settleParameters() {
    state.settle();
}

intptr_t Vst3Bridge::idle(bool editorIdle) {
    // A state load makes plug-ins ask for display updates, which come back here: neither the
    // controller nor the editor's timers are entered again while it is busy with the state.
    if (!onUiThread() || state.loading())
        return 0;
    parameters.drainOutputChanges();
    if (editorIdle)
        editor.dispatchDue();
    return 0;
}

std::optional<ParamID> Vst3Bridge::parameterId(int32 index) const {
    return parameters.idAt(index);
}

} // namespace vst3
