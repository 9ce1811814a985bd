#pragma once

#include <deque>
#include <functional>
#include <mutex>

// The functions waiting for the main thread, and the descriptor that wakes its poll loop when
// one arrives. One per process, as there is one main thread.
class MainThreadQueue {
  public:
    static MainThreadQueue& instance();

    // Any thread; never blocks (a wake-up already pending is enough when the pipe is full).
    void post(std::function<void()> function);
    // Readable while functions wait.
    int wakeDescriptor() const { return readEnd; }
    // Main thread: runs what was posted up to now, in order.
    void runPending();

  private:
    MainThreadQueue();
    ~MainThreadQueue();

    std::mutex lock;
    std::deque<std::function<void()>> pending;
    int readEnd = -1;
    int writeEnd = -1;
};
