#include "hosting/vst3/vst3_com.h"
#include "hosting/vst3/vst3_run_loop.h"

#include "pluginterfaces/gui/iplugview.h"

#include <algorithm>
#include <chrono>
#include <poll.h>

namespace {

using namespace Steinberg;
using Clock = std::chrono::steady_clock;

// The IRunLoop object itself. Plug-ins may keep a reference past the bridge, so it is counted;
// the bridge's owner drops every registration when it goes.
class RunLoopObject final : public Linux::IRunLoop {
  public:
    tresult PLUGIN_API registerEventHandler(Linux::IEventHandler* handler,
                                            Linux::FileDescriptor fd) override {
        if (handler == nullptr || fd < 0)
            return kInvalidArgument;
        handlers.push_back({IPtr<Linux::IEventHandler>(handler), fd});
        return kResultTrue;
    }
    tresult PLUGIN_API unregisterEventHandler(Linux::IEventHandler* handler) override {
        return eraseAll(handlers, handler) ? kResultTrue : kResultFalse;
    }
    tresult PLUGIN_API registerTimer(Linux::ITimerHandler* handler,
                                     Linux::TimerInterval milliseconds) override {
        if (handler == nullptr)
            return kInvalidArgument;
        const auto interval =
            std::chrono::milliseconds(std::max<Linux::TimerInterval>(milliseconds, 1));
        timers.push_back({IPtr<Linux::ITimerHandler>(handler), interval, Clock::now() + interval});
        return kResultTrue;
    }
    tresult PLUGIN_API unregisterTimer(Linux::ITimerHandler* handler) override {
        return eraseAll(timers, handler) ? kResultTrue : kResultFalse;
    }

    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override {
        if (vst3_com::offerUnknown<Linux::IRunLoop>(this, iid, object) ||
            vst3_com::offer<Linux::IRunLoop>(this, iid, object))
            return kResultOk;
        return vst3_com::refuse(object);
    }
    uint32 PLUGIN_API addRef() override { return refs.add(); }
    uint32 PLUGIN_API release() override { return refs.drop(this); }

    void dispatchDue() {
        if (!handlers.empty())
            dispatchReadable();
        const auto now = Clock::now();
        // Copies: a callback may unregister itself or others.
        const auto dueTimers = timers;
        for (const auto& timer : dueTimers) {
            if (timer.due > now || !isRegistered(timers, timer.handler.get()))
                continue;
            for (auto& registered : timers)
                if (registered.handler == timer.handler)
                    registered.due = now + registered.interval;
            timer.handler->onTimer();
        }
    }

    std::vector<int> descriptors() const {
        std::vector<int> result;
        for (const auto& handler : handlers)
            result.push_back(handler.fd);
        return result;
    }

    int millisecondsToNextTimer() const {
        if (timers.empty())
            return -1;
        const auto next =
            std::min_element(timers.begin(), timers.end(), [](const auto& a, const auto& b) {
                return a.due < b.due;
            })->due;
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
        return static_cast<int>(std::max<decltype(wait)>(wait, 0));
    }

    void clear() {
        handlers.clear();
        timers.clear();
    }

  private:
    struct Handler {
        IPtr<Linux::IEventHandler> handler;
        int fd;
    };
    struct Timer {
        IPtr<Linux::ITimerHandler> handler;
        std::chrono::milliseconds interval;
        Clock::time_point due;
    };

    template <typename Entry, typename Interface>
    static bool eraseAll(std::vector<Entry>& entries, Interface* handler) {
        return std::erase_if(entries, [handler](const Entry& entry) {
                   return entry.handler.get() == handler;
               }) > 0;
    }
    template <typename Entry, typename Interface>
    static bool isRegistered(const std::vector<Entry>& entries, Interface* handler) {
        return std::any_of(entries.begin(), entries.end(), [handler](const Entry& entry) {
            return entry.handler.get() == handler;
        });
    }

    void dispatchReadable() {
        std::vector<pollfd> watched;
        for (const auto& handler : handlers)
            watched.push_back({handler.fd, POLLIN, 0});
        if (::poll(watched.data(), watched.size(), 0) <= 0)
            return;
        const auto snapshot = handlers;
        for (size_t at = 0; at < watched.size(); ++at) {
            if (watched[at].revents == 0 || !isRegistered(handlers, snapshot[at].handler.get()))
                continue;
            snapshot[at].handler->onFDIsSet(snapshot[at].fd);
        }
    }

    vst3_com::RefCount<RunLoopObject> refs;
    std::vector<Handler> handlers;
    std::vector<Timer> timers;
};

class LinuxRunLoop final : public Vst3RunLoop {
  public:
    LinuxRunLoop() : object(owned(new RunLoopObject)) {}
    ~LinuxRunLoop() override { object->clear(); }

    bool query(const TUID iid, void** result) override {
        return vst3_com::offer<Linux::IRunLoop>(object.get(), iid, result);
    }
    void dispatchDue() override { object->dispatchDue(); }
    std::vector<int> descriptors() const override { return object->descriptors(); }
    int millisecondsToNextTimer() const override { return object->millisecondsToNextTimer(); }

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
