#include "hosting/vst3/vst3_parameter_changes.h"

#include "hosting/vst3/vst3_com.h"

#include <algorithm>
#include <thread>

using namespace Steinberg;
using namespace Steinberg::Vst;

void Vst3ParamValueQueue::reset(ParamID newId) {
    id = newId;
    count = 0;
}

tresult PLUGIN_API Vst3ParamValueQueue::getPoint(int32 index, int32& sampleOffset,
                                                 ParamValue& value) {
    if (index < 0 || index >= count)
        return kInvalidArgument;
    sampleOffset = points[index].first;
    value = points[index].second;
    return kResultOk;
}

tresult PLUGIN_API Vst3ParamValueQueue::addPoint(int32 sampleOffset, ParamValue value,
                                                 int32& index) {
    // Points stay ordered by offset; a second point at one offset replaces the first.
    int32 at = 0;
    while (at < count && points[at].first < sampleOffset)
        ++at;
    if (at < count && points[at].first == sampleOffset) {
        points[at].second = value;
        index = at;
        return kResultOk;
    }
    if (count == maxPoints)
        return kResultFalse;
    std::move_backward(points + at, points + count, points + count + 1);
    points[at] = {sampleOffset, value};
    ++count;
    index = at;
    return kResultOk;
}

tresult PLUGIN_API Vst3ParamValueQueue::queryInterface(const TUID iid, void** object) {
    if (vst3_com::offerUnknown<IParamValueQueue>(this, iid, object) ||
        vst3_com::offer<IParamValueQueue>(this, iid, object))
        return kResultOk;
    return vst3_com::refuse(object);
}

void Vst3ParameterChanges::setCapacity(int32 capacity) {
    queues.resize(static_cast<size_t>(std::max(capacity, 0)));
    used = 0;
}

bool Vst3ParameterChanges::add(ParamID id, ParamValue value) {
    int32 index = 0;
    IParamValueQueue* queue = addParameterData(id, index);
    if (queue == nullptr)
        return false;
    int32 point = 0;
    queue->addPoint(0, value, point);
    return true;
}

IParamValueQueue* PLUGIN_API Vst3ParameterChanges::getParameterData(int32 index) {
    if (index < 0 || index >= used)
        return nullptr;
    return &queues[static_cast<size_t>(index)];
}

IParamValueQueue* PLUGIN_API Vst3ParameterChanges::addParameterData(const ParamID& id,
                                                                    int32& index) {
    for (int32 at = 0; at < used; ++at) {
        if (queues[static_cast<size_t>(at)].getParameterId() == id) {
            index = at;
            return &queues[static_cast<size_t>(at)];
        }
    }
    if (full())
        return nullptr;
    index = used++;
    auto& queue = queues[static_cast<size_t>(index)];
    queue.reset(id);
    return &queue;
}

tresult PLUGIN_API Vst3ParameterChanges::queryInterface(const TUID iid, void** object) {
    if (vst3_com::offerUnknown<IParameterChanges>(this, iid, object) ||
        vst3_com::offer<IParameterChanges>(this, iid, object))
        return kResultOk;
    return vst3_com::refuse(object);
}

// The flag held for a scope: waited for (writers) or only tried (the processing side).
class Vst3PendingChanges::Hold {
  public:
    enum class Wait { yes, no };
    Hold(std::atomic_flag& flag, Wait wait) : flag(flag) {
        taken = !flag.test_and_set(std::memory_order_acquire);
        while (!taken && wait == Wait::yes) {
            std::this_thread::yield();
            taken = !flag.test_and_set(std::memory_order_acquire);
        }
    }
    ~Hold() {
        if (taken)
            flag.clear(std::memory_order_release);
    }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;
    bool owns() const { return taken; }

  private:
    std::atomic_flag& flag;
    bool taken = false;
};

void Vst3PendingChanges::push(ParamID id, ParamValue value) {
    const Hold hold(held, Hold::Wait::yes);
    for (auto& entry : values) {
        if (entry.first == id) {
            entry.second = value;
            return;
        }
    }
    values.emplace_back(id, value);
}

std::optional<ParamValue> Vst3PendingChanges::latest(ParamID id) const {
    const Hold hold(held, Hold::Wait::yes);
    for (const auto& entry : values)
        if (entry.first == id)
            return entry.second;
    return std::nullopt;
}

void Vst3PendingChanges::clear() {
    const Hold hold(held, Hold::Wait::yes);
    values.clear();
}

void Vst3PendingChanges::moveInto(Vst3ParameterChanges& changes) {
    const Hold hold(held, Hold::Wait::no);
    if (!hold.owns())
        return;
    size_t moved = 0;
    while (moved < values.size() && changes.add(values[moved].first, values[moved].second))
        ++moved;
    values.erase(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(moved));
}

void Vst3PendingChanges::copyInto(Vst3ParameterChanges& changes) {
    const Hold hold(held, Hold::Wait::no);
    if (!hold.owns())
        return;
    for (const auto& [id, value] : values)
        if (!changes.add(id, value))
            return;
}

bool Vst3PendingChanges::empty() const {
    const Hold hold(held, Hold::Wait::yes);
    return values.empty();
}

void Vst3OutputChangeRing::setCapacity(size_t capacity) {
    // One slot stays empty to tell a full ring from an empty one.
    slots.assign(capacity + 1, {});
    head = 0;
    tail = 0;
}

bool Vst3OutputChangeRing::push(ParamID id, ParamValue value) {
    if (slots.empty())
        return false;
    const size_t at = tail.load(std::memory_order_relaxed);
    const size_t next = (at + 1) % slots.size();
    if (next == head.load(std::memory_order_acquire))
        return false;
    slots[at] = {id, value};
    tail.store(next, std::memory_order_release);
    return true;
}

bool Vst3OutputChangeRing::pop(ParamID& id, ParamValue& value) {
    const size_t at = head.load(std::memory_order_relaxed);
    if (at == tail.load(std::memory_order_acquire))
        return false;
    id = slots[at].first;
    value = slots[at].second;
    head.store((at + 1) % slots.size(), std::memory_order_release);
    return true;
}
