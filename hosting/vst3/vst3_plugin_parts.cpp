#include "hosting/vst3/vst3_plugin_parts.h"

#include "hosting/guarded_call.h"

#include "public.sdk/source/common/memorystream.h"

namespace vst3 {

using Steinberg::FUnknownPtr;
using Steinberg::IBStream;
using Steinberg::IPtr;
using Steinberg::kResultOk;
using Steinberg::kResultTrue;
using Steinberg::owned;
using Steinberg::TUID;
using Steinberg::Vst::IComponent;
using Steinberg::Vst::IConnectionPoint;
using Steinberg::Vst::IEditController;

bool Vst3PluginParts::make(Steinberg::IPluginFactory& factory, const TUID classId,
                           Vst3RunLoop* runLoop, Vst3HandlerTarget& handler) {
    hostApplication = owned(new Vst3HostApplication(runLoop));
    componentHandler = owned(new Vst3ComponentHandler(handler));

    IComponent* made = nullptr;
    if (factory.createInstance(classId, IComponent::iid, reinterpret_cast<void**>(&made)) !=
            kResultOk ||
        made == nullptr)
        return false;
    componentPart = owned(made);
    processorPart = FUnknownPtr<Steinberg::Vst::IAudioProcessor>(componentPart);
    if (!processorPart)
        return false;
    // A component whose initialize fails is released without terminate, as the interface asks.
    if (componentPart->initialize(hostApplication) != kResultOk)
        return false;
    componentInitialised = true;

    if (makeController(factory)) {
        controllerPart->setComponentHandler(componentHandler);
        connect();
        // Before any parameter is read: otherwise the controller shows its defaults, not what
        // the processor holds.
        synchroniseController();
    }
    return true;
}

bool Vst3PluginParts::makeController(Steinberg::IPluginFactory& factory) {
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

void Vst3PluginParts::connect() {
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

void Vst3PluginParts::synchroniseController() {
    IPtr<Steinberg::MemoryStream> state = owned(new Steinberg::MemoryStream);
    // An empty state tells the controller nothing, and some controllers complain about reading
    // from an empty stream.
    if (componentPart->getState(state) != kResultTrue || state->getSize() == 0)
        return;
    state->seek(0, IBStream::kIBSeekSet, nullptr);
    controllerPart->setComponentState(state);
}

void Vst3PluginParts::tearDown() noexcept {
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
    guardedCall([&] { processorPart = nullptr; });
    guardedCall([&] { componentPart = nullptr; });
    // Our own objects may still be held by the plug-in; they must not reach back into us.
    if (componentHandler)
        componentHandler->detach();
    if (hostApplication)
        hostApplication->detachRunLoop();
}

} // namespace vst3
