#pragma once

#include "hosting/vst2/vst2_abi.h"
#include "hosting/vst3/vst3_editor.h"
#include "hosting/vst3/vst3_host_objects.h"
#include "hosting/vst3/vst3_module.h"
#include "hosting/vst3/vst3_parameters.h"
#include "hosting/vst3/vst3_plugin_parts.h"
#include "hosting/vst3/vst3_processing.h"
#include "hosting/vst3/vst3_run_loop.h"
#include "hosting/vst3/vst3_state_transfer.h"

#include "pluginterfaces/base/funknown.h"
#include "pluginterfaces/base/ipluginbase.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>

namespace vst3 {

// A VST 3 effect presented as a VST 2.4 AEffect, so that the rest of the program drives every
// plug-in through one interface; towards the plug-in it is the VST 3 host (component handler,
// editor frame, process data). Created by `create`, deleted by effClose; the module it came from
// must stay loaded until then.
//
// It is the record's face and delegates to its parts: the plug-in's objects (Vst3PluginParts),
// parameters and their queues (Vst3Parameters), set-up, lifecycle and blocks (Vst3Processing),
// chunks and settling (Vst3StateTransfer) and the editor (Vst3Editor).
//
// Threads: configuration opcodes and processing come from whichever thread owns the plug-in
// host at the time (the main thread, or the live worker), one at a time. The thread that made
// the bridge is its UI thread: editor opcodes, idle and everything that calls the controller
// belong there. The lifecycle lock (Vst3Processing) keeps reconfiguration, state loads and the
// editor's opcodes apart; steady processing takes no lock, and the controller is never called
// from it.
class Vst3Bridge final : private Vst3HandlerTarget, private Vst3ProcessingTarget {
  public:
    // Makes class `classId` of `factory` and opens it up to the point where it can be set up:
    // initialised, controller synchronised and connected, buses read and processing set up with
    // the defaults (it is not activated: that waits for the first block, see
    // vst3_processing_lifecycle.cpp). Null when the class cannot be made or initialised, or
    // anything it does throws. `vst2Id` becomes the record's unique id.
    static Vst3Bridge* create(Steinberg::IPluginFactory* factory, const Steinberg::TUID classId,
                              Steinberg::int32 vst2Id, audioMasterCallback hostCallback);
    ~Vst3Bridge();
    Vst3Bridge(const Vst3Bridge&) = delete;
    Vst3Bridge& operator=(const Vst3Bridge&) = delete;

    AEffect* getAEffect() { return &effect; }
    // The timers and descriptors the editor's view registered; the editor window waits on them.
    const Vst3RunLoop& editorRunLoop() const { return editor.runLoop(); }

    // For the settings code, on the UI thread.
    Steinberg::Vst::IComponent* component() const { return parts.component(); }
    Steinberg::Vst::IEditController* controller() const {
        return parts.controller();
    } // may be null
    const Steinberg::FUID& classId() const { return classUid; }
    // The controller hears the value now, the processor with the next block.
    void setParameterById(Steinberg::Vst::ParamID id, Steinberg::Vst::ParamValue value);
    // The VST 3 id behind a VST 2 parameter index; none for an index out of range.
    std::optional<Steinberg::Vst::ParamID> parameterId(Steinberg::int32 index) const;
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
    void dropQueuedValues() { parameters.dropPending(); }

  private:
    Vst3Bridge(audioMasterCallback hostCallback, Steinberg::int32 vst2Id);
    bool initialize(Steinberg::IPluginFactory& factory, const Steinberg::TUID id);
    void fillRecord();
    void tearDown() noexcept;
    intptr_t callHost(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr,
                      float opt = 0.0f);

    // The record's entry points; each finds its bridge through AEffect::object.
    static intptr_t dispatcherEntry(AEffect* effect, int32_t opcode, int32_t index, intptr_t value,
                                    void* ptr, float opt);
    static void processEntry(AEffect* effect, float** inputs, float** outputs, int32_t frames);
    static void processReplacingEntry(AEffect* effect, float** inputs, float** outputs,
                                      int32_t frames);
    static void processDoubleEntry(AEffect* effect, double** inputs, double** outputs,
                                   int32_t frames);
    static void setParameterEntry(AEffect* effect, int32_t index, float value);
    static float getParameterEntry(AEffect* effect, int32_t index);

    intptr_t dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt);
    intptr_t plugCategory() const;
    intptr_t canDo(const char* text) const;
    intptr_t setChunk(intptr_t length, void* ptr);

    // UI thread: meter values into the controller and, for the editor, its run loop's due
    // timers.
    intptr_t idle(bool editorIdle);
    bool onUiThread() const { return std::this_thread::get_id() == uiThread; }

    // Vst3HandlerTarget
    void beginEdit(Steinberg::Vst::ParamID id) override;
    void performEdit(Steinberg::Vst::ParamID id, Steinberg::Vst::ParamValue value) override;
    void endEdit(Steinberg::Vst::ParamID id) override;
    Steinberg::tresult restartComponent(Steinberg::int32 flags) override;
    // Vst3ProcessingTarget
    intptr_t hostProcessLevel() override;
    const VstTimeInfo* hostTime(intptr_t flags) override;
    void refreshLatency() override;
    void updatePinCounts() override;
    int32_t outputPins() const override { return effect.numOutputs; }

    audioMasterCallback hostCallback;
    AEffect effect{};
    const std::thread::id uiThread = std::this_thread::get_id();
    Vst3ClassInfo classInfo;
    Steinberg::FUID classUid;

    // Declared first of the plug-in side so that it goes last: editors unregister from its run
    // loop while their view is released.
    Vst3Editor editor{parts, processing, hostCallback, effect};
    Vst3PluginParts parts;
    Vst3Parameters parameters{parts};
    Vst3Processing processing{parts, parameters, *this};
    Vst3StateTransfer state{parts, processing, parameters};
};

} // namespace vst3
