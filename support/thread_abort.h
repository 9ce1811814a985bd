#pragma once

// The seam between blocking waits and the calling thread's aborter: waits add its descriptor to
// their poll set and stop with user_abort once it becomes readable. The current aborter lives
// in thread-local storage; Vesk::thread installs its own for the body's lifetime.
namespace Vesk {

class aborter;

// Descriptor that becomes readable when the calling thread is asked to stop; -1 without one.
int currentAbortDescriptor() noexcept;

// The calling thread's aborter, or null.
aborter* currentAborter() noexcept;
// Throws user_abort when the calling thread has been asked to stop; for loops that do not
// always wait (a wait notices the request by itself).
void throwIfStopRequested();

// Installs `stopper` (null removes it) for the calling thread and returns the previous one.
aborter* setCurrentAborter(aborter* stopper) noexcept;

// Installs an aborter for a scope and puts the previous one back at its end.
class currentAborterScope {
  public:
    explicit currentAborterScope(aborter& stopper) : previous(setCurrentAborter(&stopper)) {}
    ~currentAborterScope() { setCurrentAborter(previous); }
    currentAborterScope(const currentAborterScope&) = delete;
    currentAborterScope& operator=(const currentAborterScope&) = delete;

  private:
    aborter* previous;
};

} // namespace Vesk
