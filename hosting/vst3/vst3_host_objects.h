#pragma once

#include "hosting/vst3/vst3_com.h"

#include "pluginterfaces/gui/iplugview.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"
#include "pluginterfaces/vst/ivstevents.h"
#include "pluginterfaces/vst/ivsthostapplication.h"
#include "pluginterfaces/vst/ivstunits.h"
#include "public.sdk/source/vst/hosting/pluginterfacesupport.h"

#include <atomic>

class Vst3RunLoop;

// The host as VST 3 plug-ins see it through initialize() and the factory: our name, message
// and attribute-list objects for their connection points, the interface-support list and, while
// the bridge lives, its run loop. Plug-ins keep references past teardown (every zam plug-in
// keeps two), so it is counted and simply outlives the bridge when they do.
class Vst3HostApplication final : public Steinberg::Vst::IHostApplication {
  public:
    explicit Vst3HostApplication(Vst3RunLoop* runLoop = nullptr);
    // The run loop is about to go; later queries for it are refused.
    void detachRunLoop();

    Steinberg::tresult PLUGIN_API getName(Steinberg::Vst::String128 name) override;
    Steinberg::tresult PLUGIN_API createInstance(Steinberg::TUID classId, Steinberg::TUID iid,
                                                 void** object) override;
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID iid, void** object) override;
    Steinberg::uint32 PLUGIN_API addRef() override { return refs.add(); }
    Steinberg::uint32 PLUGIN_API release() override { return refs.drop(this); }

  private:
    vst3_com::RefCount<Vst3HostApplication> refs;
    Steinberg::IPtr<Steinberg::Vst::PlugInterfaceSupport> support;
    std::atomic<Vst3RunLoop*> runLoop;
};

// What the bridge hears from its plug-in's controller, on whatever thread the controller uses.
class Vst3HandlerTarget {
  public:
    virtual void beginEdit(Steinberg::Vst::ParamID id) = 0;
    virtual void performEdit(Steinberg::Vst::ParamID id, Steinberg::Vst::ParamValue value) = 0;
    virtual void endEdit(Steinberg::Vst::ParamID id) = 0;
    virtual Steinberg::tresult restartComponent(Steinberg::int32 flags) = 0;

  protected:
    ~Vst3HandlerTarget() = default;
};

// The component handler given to the controller. Counted like the host application; once
// detached (the bridge is gone) it answers without passing anything on.
class Vst3ComponentHandler final : public Steinberg::Vst::IComponentHandler,
                                   public Steinberg::Vst::IComponentHandler2,
                                   public Steinberg::Vst::IUnitHandler {
  public:
    explicit Vst3ComponentHandler(Vst3HandlerTarget& target) : target(&target) {}
    void detach() { target = nullptr; }

    Steinberg::tresult PLUGIN_API beginEdit(Steinberg::Vst::ParamID id) override;
    Steinberg::tresult PLUGIN_API performEdit(Steinberg::Vst::ParamID id,
                                              Steinberg::Vst::ParamValue value) override;
    Steinberg::tresult PLUGIN_API endEdit(Steinberg::Vst::ParamID id) override;
    Steinberg::tresult PLUGIN_API restartComponent(Steinberg::int32 flags) override;

    Steinberg::tresult PLUGIN_API setDirty(Steinberg::TBool) override {
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API requestOpenEditor(Steinberg::FIDString) override {
        return Steinberg::kNotImplemented;
    }
    Steinberg::tresult PLUGIN_API startGroupEdit() override { return Steinberg::kResultOk; }
    Steinberg::tresult PLUGIN_API finishGroupEdit() override { return Steinberg::kResultOk; }

    Steinberg::tresult PLUGIN_API notifyUnitSelection(Steinberg::Vst::UnitID) override {
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API notifyProgramListChange(Steinberg::Vst::ProgramListID,
                                                          Steinberg::int32) override {
        return Steinberg::kResultOk;
    }

    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID iid, void** object) override;
    Steinberg::uint32 PLUGIN_API addRef() override { return refs.add(); }
    Steinberg::uint32 PLUGIN_API release() override { return refs.drop(this); }

  private:
    vst3_com::RefCount<Vst3ComponentHandler> refs;
    std::atomic<Vst3HandlerTarget*> target;
};

// What the bridge hears from its editor's frame. UI thread.
class Vst3FrameTarget {
  public:
    virtual Steinberg::tresult resizeView(Steinberg::IPlugView* view,
                                          Steinberg::ViewRect& size) = 0;

  protected:
    ~Vst3FrameTarget() = default;
};

// The frame an editor view lives in. Also answers the run loop, which some editors ask the
// frame for during setFrame or attached.
class Vst3PlugFrame final : public Steinberg::IPlugFrame {
  public:
    Vst3PlugFrame(Vst3FrameTarget& target, Vst3RunLoop& runLoop)
        : target(&target), runLoop(&runLoop) {}
    void detach() {
        target = nullptr;
        runLoop = nullptr;
    }

    Steinberg::tresult PLUGIN_API resizeView(Steinberg::IPlugView* view,
                                             Steinberg::ViewRect* size) override;
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID iid, void** object) override;
    Steinberg::uint32 PLUGIN_API addRef() override { return refs.add(); }
    Steinberg::uint32 PLUGIN_API release() override { return refs.drop(this); }

  private:
    vst3_com::RefCount<Vst3PlugFrame> refs;
    Vst3FrameTarget* target;
    Vst3RunLoop* runLoop;
};

// Handed to plug-ins that have event buses. We host effects only and the host drops MIDI, so
// it stays empty. Owned by the bridge for its whole life: the count is not used.
class Vst3EmptyEventList final : public Steinberg::Vst::IEventList {
  public:
    Steinberg::int32 PLUGIN_API getEventCount() override { return 0; }
    Steinberg::tresult PLUGIN_API getEvent(Steinberg::int32, Steinberg::Vst::Event&) override {
        return Steinberg::kInvalidArgument;
    }
    Steinberg::tresult PLUGIN_API addEvent(Steinberg::Vst::Event&) override {
        return Steinberg::kResultFalse;
    }
    Steinberg::tresult PLUGIN_API queryInterface(const Steinberg::TUID iid, void** object) override;
    Steinberg::uint32 PLUGIN_API addRef() override { return 1; }
    Steinberg::uint32 PLUGIN_API release() override { return 1; }
};
