#pragma once

#include "support/waitable.h"

#include <cstdint>

// A count that is signalled exactly while it is above 0. With auto-decrement on, every wait
// that returns this object has taken one from the count (a semaphore). Any thread.
namespace Vesk {

class waitableCounter : public waitable {
  public:
    explicit waitableCounter(uint32_t initial = 0, bool autoDecrement = false);

    uint32_t get() const;
    void set(uint32_t value);
    // Returns the new count.
    uint32_t increment();
    // Only a count of at least 1 is lowered; returns the count after.
    uint32_t decrement();
    bool tryDecrement();
    void setAutoDecrement(bool on);

    bool onWake() override;

  private:
    // Callers hold the state mutex.
    void matchSignalToCount();

    uint32_t count;
    bool autoDecrement;
};

} // namespace Vesk
