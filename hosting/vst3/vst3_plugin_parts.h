#pragma once

#include "hosting/vst3/vst3_host_objects.h"

#include "pluginterfaces/base/ipluginbase.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"
#include "pluginterfaces/vst/ivstmessage.h"

class Vst3RunLoop;

namespace vst3 {

// The plug-in's own objects - component, processor and controller (one object for
// single-component plug-ins: initialised, connected and terminated once), the connection between
// them - and the host objects they are given. Owned by the bridge, which makes and takes them
// down on its UI thread; its other parts only read the pointers in between.
class Vst3PluginParts {
  public:
    Vst3PluginParts() = default;
    Vst3PluginParts(const Vst3PluginParts&) = delete;
    Vst3PluginParts& operator=(const Vst3PluginParts&) = delete;

    // Makes and initialises the component of class `classId`: false when it cannot be made, is
    // no audio processor or refuses to initialise. Then the controller where one can be made:
    // given `handler`, connected to the component and told its state; otherwise it stays null.
    bool make(Steinberg::IPluginFactory& factory, const Steinberg::TUID classId,
              Vst3RunLoop* runLoop, Vst3HandlerTarget& handler);
    // Terminates and releases whatever was made. Plug-ins may keep our host objects past this;
    // they stay valid but no longer reach back into the bridge.
    void tearDown() noexcept;

    Steinberg::Vst::IComponent* component() const { return componentPart.get(); }
    Steinberg::Vst::IAudioProcessor* processor() const { return processorPart.get(); }
    Steinberg::Vst::IEditController* controller() const { return controllerPart.get(); }

  private:
    bool makeController(Steinberg::IPluginFactory& factory);
    void connect();
    void synchroniseController();

    Steinberg::IPtr<Vst3HostApplication> hostApplication;
    Steinberg::IPtr<Vst3ComponentHandler> componentHandler;
    Steinberg::IPtr<Steinberg::Vst::IComponent> componentPart;
    Steinberg::IPtr<Steinberg::Vst::IAudioProcessor> processorPart;
    Steinberg::IPtr<Steinberg::Vst::IEditController> controllerPart;
    Steinberg::IPtr<Steinberg::Vst::IConnectionPoint> componentConnection;
    Steinberg::IPtr<Steinberg::Vst::IConnectionPoint> controllerConnection;
    bool componentInitialised = false;
    bool controllerInitialised = false; // a separate controller of ours to terminate
    bool connected = false;
};

} // namespace vst3
