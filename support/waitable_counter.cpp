#include "support/waitable_counter.h"

namespace Vesk {

waitableCounter::waitableCounter(uint32_t initial, bool autoDecrement)
    : count(initial), autoDecrement(autoDecrement) {
    std::lock_guard lock(stateMutex());
    matchSignalToCount();
}

void waitableCounter::matchSignalToCount() {
    const bool signalled = pipe.test();
    if (count > 0 && !signalled)
        pipe.signal();
    else if (count == 0 && signalled)
        pipe.consume();
}

uint32_t waitableCounter::get() const {
    std::lock_guard lock(stateMutex());
    return count;
}

void waitableCounter::set(uint32_t value) {
    std::lock_guard lock(stateMutex());
    count = value;
    matchSignalToCount();
}

uint32_t waitableCounter::increment() {
    std::lock_guard lock(stateMutex());
    ++count;
    matchSignalToCount();
    return count;
}

uint32_t waitableCounter::decrement() {
    std::lock_guard lock(stateMutex());
    if (count >= 1)
        --count;
    matchSignalToCount();
    return count;
}

bool waitableCounter::tryDecrement() {
    std::lock_guard lock(stateMutex());
    if (count == 0)
        return false;
    --count;
    matchSignalToCount();
    return true;
}

void waitableCounter::setAutoDecrement(bool on) {
    std::lock_guard lock(stateMutex());
    autoDecrement = on;
}

bool waitableCounter::onWake() {
    std::lock_guard lock(stateMutex());
    const bool available = count > 0;
    if (available && autoDecrement) {
        --count;
        matchSignalToCount();
    }
    return available;
}

} // namespace Vesk
