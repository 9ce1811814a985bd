#pragma once

#include "support/waitable.h"

#include <cstdint>
#include <exception>
#include <functional>
#include <pthread.h>
#include <sched.h>
#include <string>

// A thread with a name, scheduling and its own aborter. The owner starts, stops and joins it;
// the body runs on the new thread with the aborter installed, so each of its waits (stream
// waits included) throws user_abort once the owner asks it to stop.
namespace Vesk {

// How a new thread is scheduled. The quality-of-service classes are those of
// support/thread_platform.h; 0 and a negative policy leave the inherited setting.
struct threadScheduling {
    uint32_t qosClass = 0;
    int32_t relativePriority = 0;
    int32_t policy = -1;
    sched_param parameter{};
};

// The calling thread's quality of service, policy and priority, so that a thread started
// with it runs like its creator.
threadScheduling schedulingOfCallingThread();

// The name the platform will show: names past its limit keep their head and their tail (where
// numbers usually are) around a '~', cut at UTF-8 character boundaries.
std::string platformThreadName(const std::string& name, size_t limit);

class thread {
  public:
    explicit thread(std::string name = {});
    // A running thread is asked to stop and joined; its failure, if any, is dropped. Subclasses
    // whose body uses their own members call stopAndJoin() in their destructor.
    virtual ~thread();
    thread(const thread&) = delete;
    thread& operator=(const thread&) = delete;

    // Throws bug_check when the thread cannot be created (or is already running).
    void start(const threadScheduling& scheduling = {}, void* argument = nullptr);
    // Signals the thread's aborter.
    void requestStop() { stopper.set(); }
    // Waits for the body to end and rethrows what left it, except the user_abort that
    // answered requestStop.
    void join();
    bool isRunning() const { return running; }
    bool isCurrent() const;
    const std::string& name() const { return threadName; }

  protected:
    // The body; runs on the new thread.
    virtual void run(void* argument);
    void stopAndJoin() noexcept;

  private:
    static void* entry(void* record);
    void body(void* argument);

    pthread_t handle{};
    bool running = false;
    aborter stopper;
    std::string threadName;
    threadScheduling scheduling;
    std::exception_ptr failure;
};

// A thread whose body is a function object. An empty one throws std::bad_function_call on the
// new thread (carried to join).
class threadEx : private thread {
  public:
    explicit threadEx(std::function<void(void*)> function, std::string name = {})
        : thread(std::move(name)), function(std::move(function)) {}
    ~threadEx() override { stopAndJoin(); }

    using thread::isCurrent;
    using thread::isRunning;
    using thread::join;
    using thread::name;
    using thread::requestStop;
    using thread::start;

  protected:
    void run(void* argument) override { function(argument); }

  private:
    std::function<void(void*)> function;
};

} // namespace Vesk
