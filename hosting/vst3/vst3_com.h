#pragma once

#include "pluginterfaces/base/funknown.h"

#include <atomic>

// Helpers for the host-side objects handed to VST 3 plug-ins.
namespace vst3_com {

// A reference count for a heap object plug-ins may keep. FUnknown has no virtual destructor, so
// the count deletes the concrete (final) type it belongs to. Starts at one: the creator's.
template <typename Self> class RefCount {
  public:
    Steinberg::uint32 add() { return ++count; }
    Steinberg::uint32 drop(Self* self) {
        const Steinberg::uint32 left = --count;
        if (left == 0)
            delete self;
        return left;
    }

  private:
    std::atomic<Steinberg::uint32> count{1};
};

// Answers a query for `Interface` with the counted reference the caller must release; false
// when `iid` names another interface.
template <typename Interface, typename Self>
bool offer(Self* self, const Steinberg::TUID iid, void** object) {
    if (!Steinberg::FUnknownPrivate::iidEqual(iid, Interface::iid))
        return false;
    self->addRef();
    *object = static_cast<Interface*>(self);
    return true;
}

// The same for FUnknown, reached through the object's first interface.
template <typename FirstInterface, typename Self>
bool offerUnknown(Self* self, const Steinberg::TUID iid, void** object) {
    if (!Steinberg::FUnknownPrivate::iidEqual(iid, Steinberg::FUnknown::iid))
        return false;
    self->addRef();
    *object = static_cast<Steinberg::FUnknown*>(static_cast<FirstInterface*>(self));
    return true;
}

// Refuses a query the way the interface asks: null out-pointer, kNoInterface.
inline Steinberg::tresult refuse(void** object) {
    *object = nullptr;
    return Steinberg::kNoInterface;
}

} // namespace vst3_com
