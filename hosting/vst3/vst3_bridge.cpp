#include "hosting/vst3/vst3_bridge.h"

#include "hosting/guarded_call.h"

#include "public.sdk/source/common/memorystream.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <string_view>

namespace vst3 {

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

    runLoop = Vst3RunLoop::create();
    hostApplication = owned(new Vst3HostApplication(runLoop.get()));
    componentHandler = owned(new Vst3ComponentHandler(*this));

    IComponent* made = nullptr;
    if (factory.createInstance(id, IComponent::iid, reinterpret_cast<void**>(&made)) != kResultOk ||
        made == nullptr)
        return false;
    componentPart = owned(made);
    processor = FUnknownPtr<IAudioProcessor>(componentPart);
    if (!processor)
        return false;
    // A component whose initialize fails is released without terminate, as the interface asks.
    if (componentPart->initialize(hostApplication) != kResultOk)
        return false;
    componentInitialised = true;

    if (makeController(factory)) {
        controllerPart->setComponentHandler(componentHandler);
        connectParts();
        // Before any parameter is read: otherwise the controller shows its defaults, not what
        // the processor holds.
        synchroniseController();
        parameters.build(*controllerPart);
        readPrograms();
    }

    canDouble = processor->canProcessSampleSize(kSample64) == kResultTrue;
    // 64-bit only when 32-bit is refused outright.
    if (canDouble && processor->canProcessSampleSize(kSample32) != kResultTrue)
        wanted.sampleSize = kSample64;
    effect.initialDelay = static_cast<int32>(
        std::min<uint32>(processor->getLatencySamples(), std::numeric_limits<int32>::max()));

    const int32 capacity = std::max(parameters.controllerCount(), 1);
    inputChanges.setCapacity(capacity);
    outputChanges.setCapacity(capacity);
    outputRing.setCapacity(2 * static_cast<size_t>(capacity));

    {
        const std::lock_guard lock(lifecycle);
        applySetupLocked();
    }
    const bool hasEditor = probeEditor();
    fillRecord();
    if (hasEditor)
        effect.flags |= effFlagsHasEditor;
    return true;
}

bool Vst3Bridge::makeController(IPluginFactory& factory) {
    if (FUnknownPtr<IEditController> single(componentPart); single) {
        // One object is both sides: it is initialised, connected and terminated once, as the
        // component.
        controllerPart = single;
        return true;
    }
    TUID controllerId{};
    if (componentPart->getControllerClassId(controllerId) != kResultTrue)
        return false;
    IEditController* made = nullptr;
    if (factory.createInstance(controllerId, IEditController::iid,
                               reinterpret_cast<void**>(&made)) != kResultOk ||
        made == nullptr)
        return false;
    IPtr<IEditController> controller = owned(made);
    if (controller->initialize(hostApplication) != kResultOk)
        return false;
    controllerPart = controller;
    controllerInitialised = true;
    return true;
}

void Vst3Bridge::connectParts() {
    if (!controllerInitialised)
        return;
    componentConnection = FUnknownPtr<IConnectionPoint>(componentPart);
    controllerConnection = FUnknownPtr<IConnectionPoint>(controllerPart);
    if (!componentConnection || !controllerConnection)
        return;
    componentConnection->connect(controllerConnection);
    controllerConnection->connect(componentConnection);
    connected = true;
}

void Vst3Bridge::synchroniseController() {
    IPtr<MemoryStream> state = owned(new MemoryStream);
    // An empty state tells the controller nothing, and some controllers complain about reading
    // from an empty stream.
    if (componentPart->getState(state) != kResultTrue || state->getSize() == 0)
        return;
    state->seek(0, IBStream::kIBSeekSet, nullptr);
    controllerPart->setComponentState(state);
}

void Vst3Bridge::readPrograms() {
    FUnknownPtr<IUnitInfo> units(controllerPart);
    if (!units)
        return;
    for (int32 index = 0; index < units->getUnitCount(); ++index) {
        UnitInfo unit{};
        if (units->getUnitInfo(index, unit) == kResultOk && unit.id == kRootUnitId)
            programList = unit.programListId;
    }
    if (programList == kNoProgramListId)
        return;
    for (int32 index = 0; index < units->getProgramListCount(); ++index) {
        ProgramListInfo list{};
        if (units->getProgramListInfo(index, list) == kResultOk && list.id == programList)
            effect.numPrograms = std::max(list.programCount, 0);
    }
}

bool Vst3Bridge::probeEditor() {
    if (!controllerPart)
        return false;
    // Cheap on most plug-ins; some open their display here, so a throw or null just means no
    // editor, and the view made for asking is not kept.
    bool hasView = false;
    guardedCall([&] {
        IPtr<IPlugView> probe = owned(controllerPart->createView(ViewType::kEditor));
        hasView = probe != nullptr;
    });
    return hasView;
}

void Vst3Bridge::fillRecord() {
    effect.magic = kEffectMagic;
    effect.dispatcher = &Vst3Bridge::dispatcherEntry;
    effect.process = &Vst3Bridge::processEntry;
    effect.processReplacing = &Vst3Bridge::processReplacingEntry;
    effect.processDoubleReplacing = &Vst3Bridge::processDoubleEntry;
    effect.setParameter = &Vst3Bridge::setParameterEntry;
    effect.getParameter = &Vst3Bridge::getParameterEntry;
    effect.numParams = parameters.size();
    effect.numInputs = buses.mainChannels(kInput);
    effect.numOutputs = buses.mainChannels(kOutput);
    // The VST 2 view of any VST 3 state is a chunk.
    effect.flags = effFlagsCanReplacing | effFlagsProgramChunks;
    if (canDouble)
        effect.flags |= effFlagsCanDoubleReplacing;
    // Instruments are marked so that the loader can refuse them.
    if (classInfo.subCategories.find("Instrument") != std::string::npos)
        effect.flags |= effFlagsIsSynth;
    if (processor->getTailSamples() == kNoTail)
        effect.flags |= effFlagsNoSoundInStop;
    effect.ioRatio = 1.0f;
    effect.version = packedVersion(classInfo.version);
}

void Vst3Bridge::tearDown() noexcept {
    guardedCall([&] {
        const std::lock_guard lock(lifecycle);
        bringDownLocked();
    });
    guardedCall([&] { closeEditor(); });
    if (connected) {
        guardedCall([&] { componentConnection->disconnect(controllerConnection); });
        guardedCall([&] { controllerConnection->disconnect(componentConnection); });
    }
    if (controllerPart)
        guardedCall([&] { controllerPart->setComponentHandler(nullptr); });
    if (controllerInitialised)
        guardedCall([&] { controllerPart->terminate(); });
    if (componentInitialised)
        guardedCall([&] { componentPart->terminate(); });
    // Releasing may run the plug-in's destructors.
    guardedCall([&] { componentConnection = nullptr; });
    guardedCall([&] { controllerConnection = nullptr; });
    guardedCall([&] { controllerPart = nullptr; });
    guardedCall([&] { processor = nullptr; });
    guardedCall([&] { componentPart = nullptr; });
    // Our own objects may still be held by the plug-in; they must not reach back into us.
    if (componentHandler)
        componentHandler->detach();
    if (frame)
        frame->detach();
    if (hostApplication)
        hostApplication->detachRunLoop();
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
        bridge->processBlock(inputs, outputs, frames);
}

void Vst3Bridge::processDoubleEntry(AEffect* effect, double** inputs, double** outputs,
                                    int32 frames) {
    if (Vst3Bridge* bridge = fromEffect(effect))
        bridge->processBlock(inputs, outputs, frames);
}

void Vst3Bridge::setParameterEntry(AEffect* effect, int32 index, float value) {
    if (Vst3Bridge* bridge = fromEffect(effect))
        guardedCall([&] { bridge->setParameter(index, value); });
}

float Vst3Bridge::getParameterEntry(AEffect* effect, int32 index) {
    float value = 0.0f;
    if (Vst3Bridge* bridge = fromEffect(effect))
        guardedCall([&] { value = bridge->getParameter(index); });
    return value;
}

void Vst3Bridge::beginEdit(ParamID id) {
    if (const auto index = parameters.indexOf(id))
        callHost(audioMasterBeginEdit, *index);
}

void Vst3Bridge::performEdit(ParamID id, ParamValue value) {
    // The controller already holds the value; the processor learns it with the next block.
    // Ids the host cannot name still reach the processor.
    pending.push(id, value);
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
        setupDirty = true;
    if (flags & kLatencyChanged) {
        refreshLatency();
        // A new latency takes effect only through a restart of the processing.
        if (running != Running::inactive)
            restartPending = true;
        callHost(audioMasterIOChanged);
    }
    // From the processing thread the display update would reach the controller there.
    if ((flags & (kParamValuesChanged | kParamTitlesChanged)) &&
        processingThread.load() != std::this_thread::get_id())
        callHost(audioMasterUpdateDisplay);
    return (flags & kReloadComponent) ? kNotImplemented : kResultOk;
}

Vst3Bridge::StateLoad::StateLoad(Vst3Bridge& bridge) : bridge(bridge), lock(bridge.lifecycle) {
    bridge.loadingState = true;
}

Vst3Bridge::StateLoad::~StateLoad() {
    bridge.loadingState = false;
}

void Vst3Bridge::setParameterById(ParamID id, ParamValue value) {
    if (controllerPart)
        controllerPart->setParamNormalized(id, value);
    pending.push(id, value);
}

std::optional<ParamID> Vst3Bridge::parameterId(int32 index) const {
    if (const auto* entry = parameters.at(index))
        return entry->id;
    return std::nullopt;
}

} // namespace vst3
