#pragma once

#include "hosting/vst2/vst2_abi.h"
#include "hosting/vst3/vst3_buses.h"
#include "hosting/vst3/vst3_host_objects.h"
#include "hosting/vst3/vst3_module.h"
#include "hosting/vst3/vst3_parameter_changes.h"
#include "hosting/vst3/vst3_parameter_map.h"
#include "hosting/vst3/vst3_run_loop.h"

#include "pluginterfaces/base/ipluginbase.h"
#include "pluginterfaces/gui/iplugview.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"
#include "pluginterfaces/vst/ivstmessage.h"
#include "pluginterfaces/vst/ivstprocesscontext.h"
#include "pluginterfaces/vst/ivstunits.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace vst3 {

// The bridge speaks the SDK's types throughout.
using namespace Steinberg;
using namespace Steinberg::Vst;

// A VST 3 effect presented as a VST 2.4 AEffect, so that the rest of the program drives every
// plug-in through one interface; towards the plug-in it is the VST 3 host (component handler,
// editor frame, process data). Created by `create`, deleted by effClose; the module it came from
// must stay loaded until then.
//
// Threads: configuration opcodes and processing come from whichever thread owns the plug-in
// host at the time (the main thread, or the live worker), one at a time. The thread that made
// the bridge is its UI thread: editor opcodes, idle and everything that calls the controller
// belong there. A lock keeps reconfiguration and the editor's opcodes apart; steady processing
// takes no lock, and the controller is never called from it.
class Vst3Bridge final : private Vst3HandlerTarget, private Vst3FrameTarget {
  public:
    // Makes class `classId` of `factory` and opens it up to the point where it can be set up:
    // initialised, controller synchronised and connected, buses read and processing set up with
    // the defaults (it is not activated: that waits for the first block, see lifecycle). Null
    // when the class cannot be made or initialised, or anything it does throws. `vst2Id` becomes
    // the record's unique id.
    static Vst3Bridge* create(IPluginFactory* factory, const TUID classId, int32 vst2Id,
                              audioMasterCallback hostCallback);
    ~Vst3Bridge();
    Vst3Bridge(const Vst3Bridge&) = delete;
    Vst3Bridge& operator=(const Vst3Bridge&) = delete;

    AEffect* getAEffect() { return &effect; }
    // The timers and descriptors the editor's view registered; the editor window waits on them.
    const Vst3RunLoop& editorRunLoop() const { return *runLoop; }

    // For the settings code, on the UI thread.
    IComponent* component() const { return componentPart.get(); }
    IEditController* controller() const { return controllerPart.get(); } // may be null
    const FUID& classId() const { return classUid; }
    // The controller hears the value now, the processor with the next block.
    void setParameterById(ParamID id, ParamValue value);
    // The VST 3 id behind a VST 2 parameter index; none for an index out of range.
    std::optional<ParamID> parameterId(int32 index) const;
    // Makes sure values still queued have reached the processor before its state is read: runs
    // one frame of silence through it when any are queued (an empty block is not enough for
    // every plug-in). Not while audio is streaming: the plug-in hears the extra frame.
    void settleParameters();

    // Held while a state is loaded into the plug-in: keeps reconfiguration out and pauses
    // handing meter values to the controller, which is busy with the state. Values still queued
    // stay: settings given one after another add up.
    class StateLoad {
      public:
        explicit StateLoad(Vst3Bridge& bridge);
        ~StateLoad();
        StateLoad(const StateLoad&) = delete;
        StateLoad& operator=(const StateLoad&) = delete;

      private:
        Vst3Bridge& bridge;
        std::lock_guard<std::mutex> lock;
    };
    // Before a whole state is handed over, under a StateLoad: the values still queued belong to
    // the state it replaces, and the next block would put them back.
    void dropQueuedValues() { pending.clear(); }

  private:
    enum class Running { inactive, active, processing };

    // What the host asked for; applied to the plug-in only while it is inactive.
    struct Setup {
        double sampleRate = 44100.0;
        int32 blockSize = 512;
        int32 sampleSize = kSample32;
    };

    Vst3Bridge(audioMasterCallback hostCallback, int32 vst2Id);
    bool initialize(IPluginFactory& factory, const TUID id);
    bool makeController(IPluginFactory& factory);
    void connectParts();
    void synchroniseController();
    void readPrograms();
    bool probeEditor();
    void fillRecord();
    void tearDown() noexcept;
    intptr_t callHost(int32 opcode, int32 index = 0, intptr_t value = 0, void* ptr = nullptr,
                      float opt = 0.0f);

    // The record's entry points; each finds its bridge through AEffect::object.
    static intptr_t dispatcherEntry(AEffect* effect, int32 opcode, int32 index, intptr_t value,
                                    void* ptr, float opt);
    static void processEntry(AEffect* effect, float** inputs, float** outputs, int32 frames);
    static void processReplacingEntry(AEffect* effect, float** inputs, float** outputs,
                                      int32 frames);
    static void processDoubleEntry(AEffect* effect, double** inputs, double** outputs,
                                   int32 frames);
    static void setParameterEntry(AEffect* effect, int32 index, float value);
    static float getParameterEntry(AEffect* effect, int32 index);

    intptr_t dispatch(int32 opcode, int32 index, intptr_t value, void* ptr, float opt);
    intptr_t dispatchParameterText(int32 opcode, int32 index, void* ptr);
    intptr_t parameterProperties(int32 index, void* ptr);
    intptr_t plugCategory() const;
    intptr_t canDo(const char* text) const;
    intptr_t setProgram(intptr_t program);
    intptr_t getChunk(void* ptr);
    intptr_t setChunk(intptr_t length, void* ptr);
    float getParameter(int32 index);
    void setParameter(int32 index, float value);

    // Lifecycle (vst3_bridge_lifecycle.cpp). The `Locked` ones expect the lifecycle lock.
    intptr_t setMains(bool on);
    intptr_t setSampleRate(float rate);
    intptr_t setBlockSize(intptr_t frames);
    intptr_t setProcessPrecision(intptr_t precision);
    intptr_t setSpeakerArrangement(VstSpeakerArrangement* input, VstSpeakerArrangement* output);
    intptr_t getSpeakerArrangement(VstSpeakerArrangement** input, VstSpeakerArrangement** output);
    intptr_t startProcess();
    intptr_t stopProcess();
    void bringDownLocked();
    void applySetupLocked();
    void bringUpLocked(bool startProcessing);
    void applyNowLocked();
    void refreshLatency();
    void updatePinCounts();
    template <typename Sample> void processBlock(Sample** inputs, Sample** outputs, int32 frames);
    template <typename Sample> void silence(Sample** outputs, int32 frames) const;
    void fillProcessContext();
    void publishOutputChanges();

    // Editor (vst3_bridge_editor.cpp). UI thread.
    bool ensureView();
    intptr_t editorRect(void* ptr);
    intptr_t openEditor(void* parent);
    intptr_t closeEditor();
    intptr_t idle(bool editor);
    void drainOutputChanges();
    bool onUiThread() const { return std::this_thread::get_id() == uiThread; }

    // Vst3HandlerTarget
    void beginEdit(ParamID id) override;
    void performEdit(ParamID id, ParamValue value) override;
    void endEdit(ParamID id) override;
    tresult restartComponent(int32 flags) override;
    // Vst3FrameTarget
    tresult resizeView(IPlugView* view, ViewRect& size) override;

    audioMasterCallback hostCallback;
    AEffect effect{};
    const std::thread::id uiThread = std::this_thread::get_id();
    Vst3ClassInfo classInfo;
    FUID classUid;

    // Declared first of the plug-in side so that it goes last: editors unregister from it
    // while their view is released.
    std::unique_ptr<Vst3RunLoop> runLoop;
    IPtr<Vst3HostApplication> hostApplication;
    IPtr<Vst3ComponentHandler> componentHandler;
    IPtr<Vst3PlugFrame> frame;
    IPtr<IComponent> componentPart;
    IPtr<IAudioProcessor> processor;
    IPtr<IEditController> controllerPart;
    IPtr<IConnectionPoint> componentConnection;
    IPtr<IConnectionPoint> controllerConnection;
    bool componentInitialised = false;
    bool controllerInitialised = false; // a separate controller of ours to terminate
    bool connected = false;
    bool canDouble = false;

    Vst3BusTable buses;
    Vst3ParameterMap parameters;
    Vst3ParameterChanges inputChanges;
    Vst3ParameterChanges outputChanges;
    Vst3PendingChanges pending;
    Vst3OutputChangeRing outputRing;
    Vst3EmptyEventList eventList;
    ProcessData processData;
    ProcessContext processContext{};
    TSamples projectTime = 0;

    std::mutex lifecycle;
    Setup wanted;
    int32 processMode = kRealtime;
    bool mainsOn = false;
    std::atomic<Running> running{Running::inactive};
    std::atomic<bool> setupDirty{true};
    std::atomic<bool> restartPending{false};
    std::atomic<std::thread::id> processingThread{};
    std::atomic<bool> loadingState{false};

    IPtr<IPlugView> view;
    bool viewAttached = false;
    ViewRect lastViewSize;
    ERect rectAnswer{};
    VstSpeakerArrangement inputArrangement{};
    VstSpeakerArrangement outputArrangement{};
    std::vector<uint8_t> chunk;
    int32 currentProgram = 0;
    ProgramListID programList = kNoProgramListId;
};

} // namespace vst3
