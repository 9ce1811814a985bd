#pragma once

#include "hosting/plugin.h"
#include "hosting/plugin_kind_ops.h"
#include "hosting/vst2/vst2_abi.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

class ModuleLibrary;
class EditorWindow;
class PollRunLoop;
class Vst3Module;

// Owns the one loaded plug-in for the whole run of a command and is the only way the rest of
// the program reaches it: callers above hosting/ see it as a `Plugin`; the loaders, the host
// callback, the editor session and the kind-specific code (hosting/vst2, hosting/vst3) use the
// record-level members below. Closing suspends, closes the editor and the plug-in, then unloads
// its code; destruction closes what is still open. What the plug-in throws outside loading,
// resume and suspend comes back as PluginThrew.
//
// Threads, by group:
// - Loading and teardown, identity, the editor group and idling: the main thread.
// - Configuration (rate, precision, format, suspend/resume), processing and settings: the thread
//   that runs audio, one at a time: the main thread, or in configure-live the live worker while
//   the main thread keeps the editor; settings loaded by the worker leave the editor's size
//   watch to the main thread.
// - Transport and the idle request: any of the plug-in's threads (the host callback).
class PluginHost final : public Plugin {
  public:
    // Keeps the plug-in suspended while it is configured: VST 2 plug-ins take rate, block size,
    // precision and speaker arrangements only then, and many apply them only when resumed.
    // Resumes on leaving if it was resumed on entry; nested scopes share one suspension.
    class Reconfiguration {
      public:
        explicit Reconfiguration(PluginHost& host);
        ~Reconfiguration();
        Reconfiguration(const Reconfiguration&) = delete;
        Reconfiguration& operator=(const Reconfiguration&) = delete;

      private:
        PluginHost& host;
    };

    // The rate the host reports until one is set.
    static constexpr int32_t defaultSampleRate = 44100;
    // Plug-ins with more pins than this are refused: nothing real has them, and every pin costs
    // calls and buffers.
    static constexpr int32_t mostPins = 1024;

    PluginHost();
    ~PluginHost() override;
    PluginHost(const PluginHost&) = delete;
    PluginHost& operator=(const PluginHost&) = delete;
    // Closes the plug-in as destruction does, once; throws PluginThrew when the plug-in threw,
    // after every step has run.
    void close();

    // Plugin
    PluginIdentity identity() const override;
    int32_t inputCount() const override;
    int32_t outputCount() const override;
    PinProperties pin(PinSide side, int32_t index) const override;
    int32_t parameterCount() const override;
    uint32_t parameterNumber(int32_t index) const override;
    std::string parameterName(int32_t index) const override;
    std::string parameterDisplay(int32_t index) const override;
    std::string parameterUnit(int32_t index) const override;
    float parameterValue(int32_t index) const override;
    void setParameterValue(int32_t index, float value) override;
    bool hasEditor() const override;
    void loadState(std::span<const uint8_t> bytes) override;
    std::vector<uint8_t> saveState() override;
    int32_t latency() const override;
    intptr_t tailSize() const override;
    bool canProcessFloat() const override;
    bool canProcessDouble() const override;
    bool configure(bool useDouble, StreamFormat& format) override;
    void suspend() override;
    void resume() override;
    bool processFloat(float** inputs, float** outputs, int32_t frames) override;
    bool processDouble(double** inputs, double** outputs, int32_t frames) override;
    int32_t sampleRate() const override { return transport.sampleRate; }
    bool readsRateOnlyWhenOpening() const override;
    bool wouldLearnRateByReopening(uint32_t rate) const override;

    // The record. Set by the loaders (plugin_loading.cpp) on the main thread before anything
    // else reaches the plug-in.
    AEffect* effect() const { return loaded.effect; }
    // All arguments default to zero, as the plug-in expects for calls that take none.
    intptr_t dispatch(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr,
                      float opt = 0.0f) const;
    // The text an opcode writes into the buffer it is given (names, labels, vendor).
    std::string dispatchText(int32_t opcode, int32_t index = 0) const;
    VstPluginMainProc entryPoint() const { return loaded.entryPoint; }
    const std::shared_ptr<ModuleLibrary>& library() const { return loaded.library; }
    const std::shared_ptr<Vst3Module>& vst3Module() const { return loaded.vst3Module; }
    // The rate the plug-in could learn while it opened; some read it only then.
    int32_t rateAtOpen() const { return loaded.rateAtOpen; }
    // Takes `effect` as the plug-in (its `user` becomes this host) and notes the rate it can
    // learn while it opens; nullptr forgets a record that is gone.
    void adoptEffect(AEffect* effect);
    void adoptVst2Code(VstPluginMainProc entryPoint, std::shared_ptr<ModuleLibrary> library);
    void adoptVst3Module(std::shared_ptr<Vst3Module> module);
    // What this kind of plug-in does its own way; nullptr forgets it with its record.
    void adoptKind(std::unique_ptr<PluginKindOps> kind) { loaded.kind = std::move(kind); }
    bool pinCountsWithinLimits() const;

    // Configuration and processing, on the thread that runs audio.
    // Sent when an effect exists; always remembered, which is how a rate given before loading
    // reaches the plug-in right after it opens.
    void setSampleRate(int32_t rate);
    // Tells the plug-in 32- or 64-bit samples; true when it agreed. Asking again for the
    // precision in force sends nothing.
    bool setProcessPrecision(bool useDouble);
    // Applies a stream format: rate, speaker arrangements, pins in use. May lower the record's
    // channel counts and rewrite its masks; false when the plug-in cannot be used. The same
    // request again, with nothing changed meanwhile, sends nothing and gives the same answer.
    bool setFormat(StreamFormat& format);
    // The plug-in's pins may have changed: the next format is worked out afresh.
    void forgetFormat() { applied.request.reset(); }
    // One empty block, so that plug-ins which settle state on their first process call do so.
    void prime();
    // The pins in use since the last format applied, and whether one was.
    uint32_t inputsUsed() const { return applied.inputsUsed; }
    uint32_t outputsUsed() const { return applied.outputsUsed; }
    bool formatSet() const { return applied.set; }
    // Offline unless set before opening; read by the host callback.
    int32_t processLevel() const { return precision.processLevel; }
    void setProcessLevel(int32_t level) { precision.processLevel = level; }
    // The precision last asked for with setProcessPrecision.
    bool doublePrecision() const { return precision.useDouble; }

    // The editor, main thread.
    // Editor size from the plug-in, 100 x 100 when it gives none or has no editor.
    void editorSize(int& width, int& height) const;
    // Opens the plug-in's editor on `window` once; nothing without an editor.
    void openEditor(EditorWindow& window);
    // Closes an open editor, which may then be opened again (on another window).
    void closeEditor();
    // What the editor's event loop waits on besides the window, for this kind of plug-in.
    void watchEditorEvents(PollRunLoop& loop, std::function<void()> idle) const;
    // Runs the plug-in's idle and editor idle as the host callback's editor-idle asks.
    void editorIdle();
    // One pass of host idling: the plug-in's own idle when it asked for it, the editor's idle,
    // and the delayed size check after a settings change.
    void idleStep();
    void resizeEditorWindow(int width, int height);

    // Transport as the host callback reports it, on any of the plug-in's threads.
    bool isActive() const { return transport.active; }
    float tempo() const { return transport.tempo; }
    // Numerator in the high 16 bits, the denominator's power of two in the low 5.
    uint32_t timeSignature() const { return transport.timeSignature; }
    // The plug-in asked to be idled (`audioMasterNeedIdle`, any thread); the idle loop clears
    // it when the plug-in's idle answers 0.
    void requestIdle() { needIdle = true; }
    bool idleRequested() const { return needIdle; }
    // Two idle passes at the plug-in's request, leaving its own idle request as it was.
    void idleOnRequest();
    // Requests for the main thread's work that arrive on another thread: noted (the first is
    // kept), and their work left to the main thread's next idle step.
    bool onMainThread() const { return std::this_thread::get_id() == mainThread; }
    void noteOffThreadRequest(const char* what);
    void deferEditorSize(int width, int height);
    void deferEditorIdle() { deferredEditorIdle = true; }
    std::string offThreadRequest() const override;

  private:
    // The editor, opened and idled by the editor session and watched by the settings code.
    // Main thread.
    struct EditorState {
        // Read by the live worker when it loads settings.
        std::atomic<bool> open{false};
        EditorWindow* window = nullptr;
        // Idle steps left in which a size change after new settings resizes the window, and
        // the size it is compared with.
        int32_t resizeCountdown = 0;
        int32_t baselineWidth = 0;
        int32_t baselineHeight = 0;
    };

    bool applyFormat(StreamFormat& format);
    // Around loading settings into the plug-in: its size before, then an idle pass and a watch
    // over the next idle steps for a size change the new settings cause. Nothing while closed.
    void rememberEditorSize();
    void letEditorCatchUp();
    void sendSpeakerArrangements(const StreamFormat& format);
    // Every pin of the plug-in: the caller's first `inputsLive` / `outputsLive` channels, silent
    // scratch for the rest.
    // The pin table and the silent channels for the pins past the live ones.
    void sizePinBuffers(uint32_t inputsLive, uint32_t outputsLive);
    template <typename Sample>
    Sample** pinArray(Sample** inputs, Sample** outputs, uint32_t inputsLive, uint32_t outputsLive);
    void callProcessFloat(float** inputs, float** outputs, int32_t frames);
    void callProcessDouble(double** inputs, double** outputs, int32_t frames);

    // The plug-in's record, its code and the module it came from. Main thread.
    struct Loaded {
        AEffect* effect = nullptr;
        VstPluginMainProc entryPoint = nullptr;
        std::shared_ptr<ModuleLibrary> library;
        // A VST 3 plug-in's module; released last, after `effClose` has deleted the bridge.
        std::shared_ptr<Vst3Module> vst3Module;
        std::unique_ptr<PluginKindOps> kind;
        int32_t rateAtOpen = defaultSampleRate;
    };
    // Read by the host callback on the plug-in's own threads, while the live worker may set them.
    struct Transport {
        std::atomic<bool> active{false};
        std::atomic<int32_t> sampleRate{0};
        float tempo = 120.0f;
        uint32_t timeSignature = (4u << 16) | 2u;
    };
    // Sample precision and process level. Main thread, or the processing thread that owns the
    // plug-in; the process level is read by the host callback, set before opening only.
    struct Precision {
        int32_t processLevel = kVstProcessLevelOffline;
        bool useDouble = false;
        std::optional<bool> sent;
        bool accepted = false;
    };
    // The stream format applied: pins in use, and the last request with what it gave. Same
    // threads as the precision.
    struct AppliedFormat {
        uint32_t inputsUsed = 0;
        uint32_t outputsUsed = 0;
        bool set = false;
        std::optional<StreamFormat> request;
        StreamFormat answer;
        bool accepted = false;
    };

    // The thread that made the host: the main thread, where the editor lives.
    const std::thread::id mainThread = std::this_thread::get_id();
    Loaded loaded;
    Transport transport;
    // Set by the host callback on any thread, cleared by the idle loop.
    std::atomic<bool> needIdle{false};
    std::atomic<bool> deferredEditorIdle{false};
    std::atomic<uint32_t> deferredEditorSize{0}; // width << 16 | height; 0 for none
    std::atomic<const char*> firstOffThreadRequest{nullptr};
    Precision precision;
    AppliedFormat applied;
    EditorState editor;
    std::vector<void*> pins;
    std::vector<double> scratch; // silent channels for unused pins, sized for either precision
    int reconfigurationDepth = 0;
    bool resumeAfterReconfiguration = false;
};
