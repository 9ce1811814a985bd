#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

// The main thread's event loop where the system offers none to share: one poll() over the
// descriptors that the window system and plug-in views register, plus timers. Main thread
// only. Handlers may add and remove entries, and stop the loop, while it dispatches.
class PollRunLoop {
  public:
    using Handler = std::function<void()>;
    using TimerId = uint64_t;

    // One handler per descriptor; adding it again replaces the handler.
    void addDescriptor(int fd, Handler onReadable);
    void removeDescriptor(int fd);
    // Runs every `interval` (at least 1 ms) until removed; a late tick is not repeated.
    TimerId addTimer(std::chrono::milliseconds interval, Handler onTick);
    void removeTimer(TimerId id);

    // Descriptors and a deadline that change while the loop runs (plug-in views register and
    // drop theirs at will): asked before every wait; `onReady` runs when one of the descriptors
    // is readable or the deadline (milliseconds from now, negative for none) has passed.
    struct DynamicSource {
        std::function<std::vector<int>()> descriptors;
        std::function<int()> millisecondsToNext;
        Handler onReady;
    };
    void addDynamicSource(DynamicSource source);

    // Dispatches until stop() is called; at once when it was called before, as a handler run
    // ahead of the loop may do.
    void run();
    void stop() { stopping = true; }

  private:
    using Clock = std::chrono::steady_clock;
    struct Watch {
        int fd;
        std::shared_ptr<Handler> handler;
    };
    struct Timer {
        TimerId id;
        std::chrono::milliseconds interval;
        Clock::time_point due;
        std::shared_ptr<Handler> handler;
    };

    void fireDueTimers();
    int pollTimeoutMilliseconds() const;
    std::shared_ptr<Handler> handlerFor(int fd) const;

    std::vector<Watch> watches;
    std::vector<Timer> timers;
    std::vector<DynamicSource> dynamicSources;
    TimerId nextTimer = 1;
    bool stopping = false;
};
