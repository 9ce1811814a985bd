#pragma once

#include "hosting/vst3/vst3_parameter_changes.h"
#include "hosting/vst3/vst3_parameter_map.h"
#include "hosting/vst3/vst3_plugin_parts.h"

#include "pluginterfaces/vst/ivstaudioprocessor.h"

#include <cstdint>
#include <optional>

namespace vst3 {

// The bridge's VST 2 parameters and programs over the controller's, and the queues that carry
// values between the threads: values set by the host or edited in the controller wait for the
// next block, values the processor reports wait for the UI thread. Owned by the bridge. The
// map is built on the UI thread at creation and read-only afterwards; values are set from the
// thread that owns the host or from the controller's; blocks hand over on the processing thread,
// and reported values reach the controller on the UI thread.
class Vst3Parameters {
  public:
    explicit Vst3Parameters(const Vst3PluginParts& parts) : parts(parts) {}

    // Reads the controller's parameters and the root unit's program list, and sizes the queues.
    // Calls plug-in code.
    void build();
    Steinberg::int32 count() const { return map.size(); }
    Steinberg::int32 programCount() const { return programs; }
    std::optional<Steinberg::int32> indexOf(Steinberg::Vst::ParamID id) const {
        return map.indexOf(id);
    }
    std::optional<Steinberg::Vst::ParamID> idAt(Steinberg::int32 index) const;

    // The controller hears the value now, the processor with the next block.
    void set(Steinberg::Vst::ParamID id, Steinberg::Vst::ParamValue value);
    // An edit the controller made: it holds the value already.
    void queueEdit(Steinberg::Vst::ParamID id, Steinberg::Vst::ParamValue value) {
        pending.push(id, value);
    }
    float value(Steinberg::int32 index) const;
    void setValue(Steinberg::int32 index, float value);

    // The VST 2 answers about parameter `index`, 0 when there is none.
    intptr_t text(int32_t opcode, Steinberg::int32 index, void* ptr) const;
    intptr_t properties(Steinberg::int32 index, void* ptr) const;
    intptr_t canBeAutomated(Steinberg::int32 index) const;
    intptr_t setProgram(intptr_t program);
    intptr_t program() const { return currentProgram; }
    intptr_t setBypass(bool on);

    // Processing thread: gives `data` this block's changes, in and out, and afterwards passes on
    // what the processor reported when it `processed`.
    void beginBlock(Steinberg::int32 frames, Steinberg::Vst::ProcessData& data);
    void endBlock(bool processed);
    // UI thread: the reported values into the controller.
    void drainOutputChanges();

    bool hasPending() const { return !pending.empty(); }
    // A loaded state replaces the values still queued.
    void dropPending() { pending.clear(); }

  private:
    const Vst3PluginParts& parts;
    Vst3ParameterMap map;
    Vst3ParameterChanges inputChanges;
    Vst3ParameterChanges outputChanges;
    Vst3PendingChanges pending;
    Vst3OutputChangeRing outputRing;
    Steinberg::int32 programs = 0;
    Steinberg::int32 currentProgram = 0;
};

} // namespace vst3
