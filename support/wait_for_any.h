#pragma once

#include <cstddef>

// Waits for waitable objects. Time-outs are seconds; negative waits without limit. Every wait
// also watches the calling thread's current aborter and throws user_abort when it fires; the
// aborter wins over objects that became ready at the same moment.
namespace Vesk {

class waitable;

// Index of the object whose signal was taken, or -1 when the time ran out. A failing poll()
// (EINTR included) counts as the time running out.
int waitForAny(waitable* const* objects, size_t count, double timeoutSeconds);

// Waits without limit.
void wait(waitable& object);
// True when the object was taken, false on time-out.
bool waitFor(waitable& object, double timeoutSeconds);
// An abortable pause.
void sleep(double seconds);

} // namespace Vesk
