#include "hosting/vst3/vst3_host_objects.h"

#include "hosting/guarded_call.h"
#include "hosting/host_callback.h"
#include "hosting/vst3/vst3_run_loop.h"
#include "hosting/vst3/vst3_text.h"

#include "public.sdk/source/vst/hosting/hostclasses.h"

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

constexpr size_t nameCapacity = 128; // String128, NUL included

// Nothing a plug-in calls may throw back into it.
template <typename Call> tresult answered(Call&& call) noexcept {
    tresult result = kInternalError;
    guardedCall([&] { result = call(); });
    return result;
}

} // namespace

Vst3HostApplication::Vst3HostApplication(Vst3RunLoop* runLoop)
    : support(owned(new PlugInterfaceSupport)), runLoop(runLoop) {}

void Vst3HostApplication::detachRunLoop() {
    runLoop = nullptr;
}

tresult PLUGIN_API Vst3HostApplication::getName(String128 name) {
    return answered([&]() -> tresult {
        vst3_text::toUtf16(hostProductName(), name, nameCapacity);
        return kResultOk;
    });
}

tresult PLUGIN_API Vst3HostApplication::createInstance(TUID classId, TUID iid, void** object) {
    return answered([&]() -> tresult {
        // Editors made with some frameworks send dozens of messages a second through their
        // connection points; each is one of these.
        const FUID wantedClass = FUID::fromTUID(classId);
        const FUID wantedInterface = FUID::fromTUID(iid);
        if (wantedClass == IMessage::iid && wantedInterface == IMessage::iid) {
            *object = static_cast<IMessage*>(new HostMessage);
            return kResultTrue;
        }
        if (wantedClass == IAttributeList::iid && wantedInterface == IAttributeList::iid) {
            *object = static_cast<IAttributeList*>(new HostAttributeList);
            return kResultTrue;
        }
        *object = nullptr;
        return kResultFalse;
    });
}

tresult PLUGIN_API Vst3HostApplication::queryInterface(const TUID iid, void** object) {
    return answered([&]() -> tresult {
        if (vst3_com::offerUnknown<IHostApplication>(this, iid, object) ||
            vst3_com::offer<IHostApplication>(this, iid, object))
            return kResultOk;
        if (FUnknownPrivate::iidEqual(iid, IPlugInterfaceSupport::iid))
            return support->queryInterface(iid, object);
        if (Vst3RunLoop* loop = runLoop.load(); loop != nullptr && loop->query(iid, object))
            return kResultOk;
        return vst3_com::refuse(object);
    });
}

tresult PLUGIN_API Vst3ComponentHandler::beginEdit(ParamID id) {
    return answered([&]() -> tresult {
        if (auto* to = target.load())
            to->beginEdit(id);
        return kResultOk;
    });
}

tresult PLUGIN_API Vst3ComponentHandler::performEdit(ParamID id, ParamValue value) {
    return answered([&]() -> tresult {
        if (auto* to = target.load())
            to->performEdit(id, value);
        return kResultOk;
    });
}

tresult PLUGIN_API Vst3ComponentHandler::endEdit(ParamID id) {
    return answered([&]() -> tresult {
        if (auto* to = target.load())
            to->endEdit(id);
        return kResultOk;
    });
}

tresult PLUGIN_API Vst3ComponentHandler::restartComponent(int32 flags) {
    return answered([&]() -> tresult {
        auto* to = target.load();
        return to != nullptr ? to->restartComponent(flags) : kResultOk;
    });
}

tresult PLUGIN_API Vst3ComponentHandler::queryInterface(const TUID iid, void** object) {
    return answered([&]() -> tresult {
        if (vst3_com::offerUnknown<IComponentHandler>(this, iid, object) ||
            vst3_com::offer<IComponentHandler>(this, iid, object) ||
            vst3_com::offer<IComponentHandler2>(this, iid, object) ||
            vst3_com::offer<IUnitHandler>(this, iid, object))
            return kResultOk;
        return vst3_com::refuse(object);
    });
}

tresult PLUGIN_API Vst3PlugFrame::resizeView(IPlugView* view, ViewRect* size) {
    return answered([&]() -> tresult {
        if (view == nullptr || size == nullptr)
            return kInvalidArgument;
        return target != nullptr ? target->resizeView(view, *size) : kResultFalse;
    });
}

tresult PLUGIN_API Vst3PlugFrame::queryInterface(const TUID iid, void** object) {
    return answered([&]() -> tresult {
        if (vst3_com::offerUnknown<IPlugFrame>(this, iid, object) ||
            vst3_com::offer<IPlugFrame>(this, iid, object))
            return kResultOk;
        if (runLoop != nullptr && runLoop->query(iid, object))
            return kResultOk;
        return vst3_com::refuse(object);
    });
}

tresult PLUGIN_API Vst3EmptyEventList::queryInterface(const TUID iid, void** object) {
    if (vst3_com::offerUnknown<IEventList>(this, iid, object) ||
        vst3_com::offer<IEventList>(this, iid, object))
        return kResultOk;
    return vst3_com::refuse(object);
}
