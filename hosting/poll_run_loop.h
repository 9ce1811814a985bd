#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <poll.h>
#include <vector>

// Descriptors and timers registered under a key, and the one place that decides which of them
// are due. The editor window waits in run(); the VST 3 bridge's run loop, which plug-in views
// register with, is turned by the editor's idle through dispatchDue(). Main thread only.
// Handlers may add and remove registrations, and stop the loop, while it dispatches.
class PollRunLoop {
  public:
    using Handler = std::function<void()>;
    // Who registered: a key's descriptors, or its timers, are removed together.
    using Key = const void*;

    // One handler per key and descriptor; the same pair again replaces the handler.
    void addDescriptor(Key key, int fd, Handler onReadable);
    // False when the key had no descriptor.
    bool removeDescriptors(Key key);
    // Runs every `interval` (at least 1 ms) until removed; a late tick is not repeated.
    void addTimer(Key key, std::chrono::milliseconds interval, Handler onTick);
    // False when the key had no timer.
    bool removeTimers(Key key);
    void clear();

    // Every registered descriptor, for a loop that waits on this one's behalf.
    std::vector<int> descriptors() const;
    // Milliseconds until the next timer is due, 0 when one is; negative when none is registered.
    int millisecondsToNextTimer() const;

    // Fires the handlers whose descriptors are readable, then the timers that are due, without
    // waiting.
    void dispatchDue();

    // Descriptors and a deadline that change while the loop runs (another registry that plug-in
    // views fill at will): asked before every wait; `onReady` runs when one of the descriptors
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
    using Serial = uint64_t;
    // Handlers are held by shared pointer: one may remove its own registration while it runs.
    struct Watch {
        Serial serial;
        Key key;
        int fd;
        std::shared_ptr<Handler> handler;
    };
    struct Timer {
        Serial serial;
        Key key;
        std::chrono::milliseconds interval;
        Clock::time_point due;
        std::shared_ptr<Handler> handler;
    };

    // Polls the registered descriptors, waiting up to `timeout` ms (negative: no limit) after
    // adding `extra` to the set, and runs the handlers of the readable ones still registered.
    // Leaves `polled` with the registered entries first, then `extra`'s, and their events; false
    // when a signal interrupted the wait.
    bool pollAndFire(std::vector<pollfd>& polled, const std::vector<int>& extra, int timeout);
    void fireDueTimers();

    std::vector<Watch> watches;
    std::vector<Timer> timers;
    std::vector<DynamicSource> dynamicSources;
    Serial nextSerial = 1;
    bool stopping = false;
};
