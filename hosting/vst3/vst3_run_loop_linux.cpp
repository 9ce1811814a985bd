#include "hosting/poll_run_loop.h"
#include "hosting/vst3/vst3_com.h"
#include "hosting/vst3/vst3_run_loop.h"

#include "pluginterfaces/gui/iplugview.h"

#include <algorithm>
#include <chrono>

namespace {

using namespace Steinberg;

// The IRunLoop object itself: registrations go to one registry, keyed by the plug-in's handler.
// Plug-ins may keep a reference past the bridge, so it is counted; the bridge's owner drops
// every registration when it goes.
class RunLoopObject final : public Linux::IRunLoop {
  public:
    tresult PLUGIN_API registerEventHandler(Linux::IEventHandler* handler,
                                            Linux::FileDescriptor fd) override {
        if (handler == nullptr || fd < 0)
            return kInvalidArgument;
        registry.addDescriptor(handler, fd, [handler = IPtr<Linux::IEventHandler>(handler), fd] {
            handler->onFDIsSet(fd);
        });
        return kResultTrue;
    }
    tresult PLUGIN_API unregisterEventHandler(Linux::IEventHandler* handler) override {
        return registry.removeDescriptors(handler) ? kResultTrue : kResultFalse;
    }
    tresult PLUGIN_API registerTimer(Linux::ITimerHandler* handler,
                                     Linux::TimerInterval milliseconds) override {
        if (handler == nullptr)
            return kInvalidArgument;
        // Kept far from the clock's range: an interval of days is as good as never.
        const auto interval =
            std::chrono::milliseconds(std::min<Linux::TimerInterval>(milliseconds, 1'000'000'000));
        registry.addTimer(handler, interval,
                          [handler = IPtr<Linux::ITimerHandler>(handler)] { handler->onTimer(); });
        return kResultTrue;
    }
    tresult PLUGIN_API unregisterTimer(Linux::ITimerHandler* handler) override {
        return registry.removeTimers(handler) ? kResultTrue : kResultFalse;
    }

    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override {
        if (vst3_com::offerUnknown<Linux::IRunLoop>(this, iid, object) ||
            vst3_com::offer<Linux::IRunLoop>(this, iid, object))
            return kResultOk;
        return vst3_com::refuse(object);
    }
    uint32 PLUGIN_API addRef() override { return refs.add(); }
    uint32 PLUGIN_API release() override { return refs.drop(this); }

    PollRunLoop registry;

  private:
    vst3_com::RefCount<RunLoopObject> refs;
};

class LinuxRunLoop final : public Vst3RunLoop {
  public:
    LinuxRunLoop() : object(owned(new RunLoopObject)) {}
    ~LinuxRunLoop() override { object->registry.clear(); }

    bool query(const TUID iid, void** result) override {
        return vst3_com::offer<Linux::IRunLoop>(object.get(), iid, result);
    }
    void dispatchDue() override { object->registry.dispatchDue(); }
    std::vector<int> descriptors() const override { return object->registry.descriptors(); }
    int millisecondsToNextTimer() const override {
        return object->registry.millisecondsToNextTimer();
    }

  private:
    IPtr<RunLoopObject> object;
};

} // namespace

std::unique_ptr<Vst3RunLoop> Vst3RunLoop::create() {
    return std::make_unique<LinuxRunLoop>();
}

const char* vst3EditorPlatformType() {
    return kPlatformTypeX11EmbedWindowID;
}
