#pragma once

#include "support/unique_descriptor.h"

#include <mutex>

// Objects a thread can wait for. Each is a self-pipe, so any number of them, the thread's
// aborter and stream descriptors can be waited for together with one poll(). Any thread may
// signal, reset or wait for any object; their state changes share one process-wide mutex.
namespace Vesk {

// The pipe pair behind a waitable: signalled exactly while the pipe holds a byte.
class waitableImpl {
  public:
    // Throws std::runtime_error("Pipe creation failure").
    waitableImpl();

    int readDescriptor() const { return readEnd.get(); }
    // Raw operations; callers hold the state mutex and keep at most one byte in the pipe.
    void signal();
    bool test() const;
    void consume();

  private:
    uniqueDescriptor readEnd;
    uniqueDescriptor writeEnd;
};

class waitable {
  public:
    waitable() = default;
    virtual ~waitable() = default;
    waitable(const waitable&) = delete;
    waitable& operator=(const waitable&) = delete;

    // Signals; an object already signalled is left as it is, so the pipe never fills.
    void set();
    // Takes the signal if there is one.
    void reset();
    bool isSet() const;
    int descriptor() const { return pipe.readDescriptor(); }

    // Asked after poll() found the pipe readable: whether the wake-up counts. Counting kinds
    // take their signal here.
    virtual bool onWake() { return true; }

  protected:
    // Guards the state of every waitable object; never held across a poll().
    static std::mutex& stateMutex();
    waitableImpl pipe;
};

// A stop request. A thread's current aborter ends its waits with user_abort.
class aborter : public waitable {};

} // namespace Vesk
