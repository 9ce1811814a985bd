#pragma once

#include "hosting/plugin.h"
#include "hosting/vst2/vst2_abi.h"
#include "hosting/vst3/vst3_buses.h"
#include "hosting/vst3/vst3_host_objects.h"
#include "hosting/vst3/vst3_parameters.h"
#include "hosting/vst3/vst3_plugin_parts.h"

#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstprocesscontext.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>

namespace vst3 {

// What the processing side needs of the bridge: the host's answers, and the record, which
// carries the pin counts and the latency.
class Vst3ProcessingTarget {
  public:
    virtual intptr_t hostProcessLevel() = 0;
    virtual const VstTimeInfo* hostTime(intptr_t flags) = 0;
    virtual void refreshLatency() = 0;
    // The bus table was read again.
    virtual void updatePinCounts() = 0;
    virtual int32_t outputPins() const = 0;

  protected:
    ~Vst3ProcessingTarget() = default;
};

// The processor's set-up, lifecycle and blocks: the bus table, what the host asked for, the
// state the plug-in runs in and the process data. Owned by the bridge. VST 3 allows bus
// arrangements and processing set-up only while the component is inactive, so what the host
// wants is kept apart from what the plug-in runs with (vst3_processing_lifecycle.cpp).
//
// Threads: set-up and processing come from whichever thread owns the plug-in host at the time
// (the main thread, or the live worker), one at a time. The lifecycle lock keeps
// reconfiguration, state loads and the editor's opcodes apart; steady processing takes no lock,
// and the controller is never called from it.
class Vst3Processing {
  public:
    Vst3Processing(const Vst3PluginParts& parts, Vst3Parameters& parameters,
                   Vst3ProcessingTarget& target)
        : parts(parts), parameters(parameters), target(target) {}

    // At creation, once the parts are made: picks the default precision, reads the latency and
    // applies the default set-up, leaving the plug-in inactive. Calls plug-in code.
    void open();
    // Inactive again, for teardown.
    void bringDown();
    std::mutex& lifecycleLock() { return lifecycle; }
    bool canDoublePrecision() const { return canDouble; }
    const Vst3BusTable& busTable() const { return buses; }

    // The set-up opcodes, answered as VST 2 would.
    intptr_t setMains(bool on);
    intptr_t setSampleRate(float rate);
    intptr_t setBlockSize(intptr_t frames);
    intptr_t setProcessPrecision(intptr_t precision);
    intptr_t setSpeakerArrangement(VstSpeakerArrangement* input, VstSpeakerArrangement* output);
    intptr_t getSpeakerArrangement(VstSpeakerArrangement** input, VstSpeakerArrangement** output);
    intptr_t startProcess();
    intptr_t stopProcess();

    template <typename Sample>
    void processBlock(Sample** inputs, Sample** outputs, Steinberg::int32 frames);
    // One frame of silence into scratch, in the precision set up.
    void processSilentFrame();

    // From restartComponent, which may come from inside setActive, process or a state load:
    // only flags here, the next block does the work.
    void ioChanged() { setupDirty = true; }
    void latencyChanged();
    bool onProcessingThread() const {
        return processingThread.load() == std::this_thread::get_id();
    }

  private:
    enum class Running { inactive, active, processing };

    // What the host asked for; applied to the plug-in only while it is inactive.
    struct Setup {
        double sampleRate = 44100.0;
        Steinberg::int32 blockSize = Plugin::blockFrames;
        Steinberg::int32 sampleSize = Steinberg::Vst::kSample32;
    };

    // These expect the lifecycle lock.
    void bringDownLocked();
    void applySetupLocked();
    void bringUpLocked(bool startProcessing);
    void applyNowLocked();

    template <typename Sample> void silence(Sample** outputs, Steinberg::int32 frames) const;
    void fillProcessContext();

    const Vst3PluginParts& parts;
    Vst3Parameters& parameters;
    Vst3ProcessingTarget& target;
    bool canDouble = false;

    Vst3BusTable buses;
    Vst3EmptyEventList eventList;
    Steinberg::Vst::ProcessData processData;
    Steinberg::Vst::ProcessContext processContext{};
    Steinberg::Vst::TSamples projectTime = 0;

    std::mutex lifecycle;
    Setup wanted;
    Steinberg::int32 processMode = Steinberg::Vst::kRealtime;
    bool mainsOn = false;
    std::atomic<Running> running{Running::inactive};
    std::atomic<bool> setupDirty{true};
    std::atomic<bool> restartPending{false};
    std::atomic<std::thread::id> processingThread{};

    VstSpeakerArrangement inputArrangement{};
    VstSpeakerArrangement outputArrangement{};
};

} // namespace vst3
