#pragma once

#include "pluginterfaces/vst/ivstparameterchanges.h"

#include <atomic>
#include <optional>
#include <utility>
#include <vector>

// Parameter changes between the host's threads and a VST 3 processor. Sized on the main thread;
// the processing side never allocates.

// One parameter's points within a block, ordered by sample offset.
class Vst3ParamValueQueue final : public Steinberg::Vst::IParamValueQueue {
  public:
    static constexpr Steinberg::int32 maxPoints = 16;

    void reset(Steinberg::Vst::ParamID id);
    Steinberg::Vst::ParamValue lastValue() const {
        return points[static_cast<size_t>(count - 1)].second;
    }

    Steinberg::Vst::ParamID PLUGIN_API getParameterId() override { return id; }
    Steinberg::int32 PLUGIN_API getPointCount() override { return count; }
    Steinberg::tresult PLUGIN_API getPoint(Steinberg::int32 index, Steinberg::int32& sampleOffset,
                                           Steinberg::Vst::ParamValue& value) override;
    Steinberg::tresult PLUGIN_API addPoint(Steinberg::int32 sampleOffset,
                                           Steinberg::Vst::ParamValue value,
                                           Steinberg::int32& index) override;

    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID iid, void** object) override;
    // Owned by the changes list for the bridge's life: the count is not used.
    Steinberg::uint32 PLUGIN_API addRef() override { return 1; }
    Steinberg::uint32 PLUGIN_API release() override { return 1; }

  private:
    Steinberg::Vst::ParamID id = Steinberg::Vst::kNoParamId;
    Steinberg::int32 count = 0;
    std::pair<Steinberg::int32, Steinberg::Vst::ParamValue> points[maxPoints]{};
};

// The changes of one block, in either direction, for at most `capacity` parameters.
class Vst3ParameterChanges final : public Steinberg::Vst::IParameterChanges {
  public:
    explicit Vst3ParameterChanges(Steinberg::int32 capacity = 0) { setCapacity(capacity); }
    // Main thread, never while a block is processed.
    void setCapacity(Steinberg::int32 capacity);
    void clear() { used = 0; }
    bool full() const { return used == static_cast<Steinberg::int32>(queues.size()); }
    // Adds one point at offset 0; false when no queue is left for a new id.
    bool add(Steinberg::Vst::ParamID id, Steinberg::Vst::ParamValue value);

    Steinberg::int32 PLUGIN_API getParameterCount() override { return used; }
    Steinberg::Vst::IParamValueQueue* PLUGIN_API getParameterData(Steinberg::int32 index) override;
    Steinberg::Vst::IParamValueQueue* PLUGIN_API addParameterData(const Steinberg::Vst::ParamID& id,
                                                                  Steinberg::int32& index) override;

    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID iid, void** object) override;
    Steinberg::uint32 PLUGIN_API addRef() override { return 1; }
    Steinberg::uint32 PLUGIN_API release() override { return 1; }

    // The queue with index `index` as our own type, for reading back what the plug-in wrote.
    Vst3ParamValueQueue& queue(Steinberg::int32 index) {
        return queues[static_cast<size_t>(index)];
    }

  private:
    std::vector<Vst3ParamValueQueue> queues;
    Steinberg::int32 used = 0;
};

// Values set on the main or UI thread (host edits, the controller's own edits, settings)
// waiting for the next block. Repeats of one id are merged: only the newest value counts.
// Writers wait for the flag; the processing side only tries, and leaves everything for the
// next block when a writer holds it. A flag, not a mutex: the processing side must not enter
// the system's locking at all, a try included.
class Vst3PendingChanges {
  public:
    void push(Steinberg::Vst::ParamID id, Steinberg::Vst::ParamValue value);
    std::optional<Steinberg::Vst::ParamValue> latest(Steinberg::Vst::ParamID id) const;
    // Drops everything queued: a loaded state replaces it.
    void clear();
    // Processing thread: moves what fits into `changes`; the rest waits for the next block.
    void moveInto(Vst3ParameterChanges& changes);
    // Processing thread: the same, but everything stays queued as well. For blocks of no
    // frames, which some plug-ins return from before reading their parameter changes.
    void copyInto(Vst3ParameterChanges& changes);
    bool empty() const;

  private:
    class Hold;
    mutable std::atomic_flag held;
    std::vector<std::pair<Steinberg::Vst::ParamID, Steinberg::Vst::ParamValue>> values;
};

// Values the processor reported (meters and the like), from the processing thread to the main
// thread, which hands them to the controller. One writer, one reader; when the reader falls
// behind, new values are dropped rather than waiting.
class Vst3OutputChangeRing {
  public:
    // Main thread, before processing starts.
    void setCapacity(size_t capacity);
    bool push(Steinberg::Vst::ParamID id, Steinberg::Vst::ParamValue value);
    bool pop(Steinberg::Vst::ParamID& id, Steinberg::Vst::ParamValue& value);

  private:
    std::vector<std::pair<Steinberg::Vst::ParamID, Steinberg::Vst::ParamValue>> slots;
    std::atomic<size_t> head{0}; // next to read
    std::atomic<size_t> tail{0}; // next to write
};
