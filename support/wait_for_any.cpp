#include "support/wait_for_any.h"

#include "support/descriptor_wait.h"
#include "support/errors.h"
#include "support/thread_abort.h"
#include "support/waitable.h"

#include <chrono>
#include <poll.h>
#include <vector>

namespace Vesk {

int waitForAny(waitable* const* objects, size_t count, double timeoutSeconds) {
    aborter* const stopper = currentAborter();
    std::vector<pollfd> set;
    set.reserve(count + 1);
    if (stopper)
        set.push_back({stopper->descriptor(), POLLIN, 0});
    for (size_t i = 0; i < count; ++i)
        set.push_back({objects[i]->descriptor(), POLLIN, 0});
    const size_t first = stopper ? 1 : 0;

    using clock = std::chrono::steady_clock;
    const auto start = clock::now();
    double remaining = timeoutSeconds;
    for (;;) {
        for (auto& entry : set)
            entry.revents = 0;
        // With nothing to watch, poll() is just the pause the caller asked for.
        const int result = ::poll(set.data(), set.size(), pollMilliseconds(remaining));
        if (result <= 0)
            return -1;
        for (size_t i = 0; i < set.size(); ++i) {
            if (!(set[i].revents & (POLLIN | POLLHUP | POLLERR)))
                continue;
            if (i < first) {
                if (stopper->onWake())
                    throw user_abort();
            } else if (objects[i - first]->onWake()) {
                return static_cast<int>(i - first);
            }
            // Only the first ready descriptor is asked; the rest are seen again on the next poll.
            break;
        }
        if (timeoutSeconds >= 0) {
            remaining =
                timeoutSeconds - std::chrono::duration<double>(clock::now() - start).count();
            // A wake-up that did not count must not turn a spent time-out into a busy loop.
            if (remaining <= 0)
                return -1;
        }
    }
}

void wait(waitable& object) {
    waitable* objects[] = {&object};
    waitForAny(objects, 1, -1.0);
}

bool waitFor(waitable& object, double timeoutSeconds) {
    waitable* objects[] = {&object};
    return waitForAny(objects, 1, timeoutSeconds) == 0;
}

void sleep(double seconds) {
    waitForAny(nullptr, 0, seconds);
}

} // namespace Vesk
