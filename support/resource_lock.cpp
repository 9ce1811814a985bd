#include "support/resource_lock.h"

#include "support/wait_for_any.h"

namespace Vesk {

resourceLock::resourceLock() {
    set();
}

void resourceLock::acquire() {
    wait(*this);
}

void resourceLock::release() {
    std::lock_guard lock(stateMutex());
    available = true;
    if (!pipe.test())
        pipe.signal();
}

bool resourceLock::onWake() {
    std::lock_guard lock(stateMutex());
    // Several waiters may see the same byte; the first to get here takes the lock and the
    // others go back to waiting on an empty pipe.
    if (!available)
        return false;
    available = false;
    if (pipe.test())
        pipe.consume();
    return true;
}

} // namespace Vesk
