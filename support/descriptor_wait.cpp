#include "support/descriptor_wait.h"

#include "support/errors.h"
#include "support/thread_abort.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <poll.h>

namespace Vesk {

int pollMilliseconds(double timeoutSeconds) {
    if (timeoutSeconds < 0)
        return -1;
    if (timeoutSeconds == 0)
        return 0;
    const double millis = std::floor(timeoutSeconds * 1000.0 + 0.5);
    if (millis >= static_cast<double>(INT_MAX))
        return INT_MAX;
    return millis < 1 ? 1 : static_cast<int>(millis);
}

namespace {

short eventsFor(waitDirection direction) {
    return direction == waitDirection::read ? POLLIN : POLLOUT;
}

} // namespace

void waitForDescriptor(int fd, waitDirection direction, double timeoutSeconds) {
    pollfd set[2] = {{fd, eventsFor(direction), 0}, {currentAbortDescriptor(), POLLIN, 0}};
    const nfds_t count = set[1].fd >= 0 ? 2 : 1;
    const int result = ::poll(set, count, pollMilliseconds(timeoutSeconds));
    if (result < 0) {
        if (errno == EINTR)
            throw function_interrupted();
        throw network_error();
    }
    if (result == 0)
        throw network_error_timeout();
    if (count == 2 && (set[1].revents & POLLIN))
        throw user_abort();
    // A hung-up pipe still reads its remaining bytes and then end of stream: only POLLERR fails.
    if (set[0].revents & POLLERR) {
        // For a pipe we write to, the error condition means its reader went away.
        throw file_access_error(direction == waitDirection::write ? EPIPE : EIO);
    }
}

bool descriptorReady(int fd, waitDirection direction) {
    pollfd entry{fd, eventsFor(direction), 0};
    const int result = ::poll(&entry, 1, 0);
    return result > 0;
}

} // namespace Vesk
