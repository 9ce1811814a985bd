#include "support/waitable.h"

#include "support/thread_platform.h"

#include <cerrno>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

namespace Vesk {

waitableImpl::waitableImpl() {
    int fds[2];
    if (!threadPlatform::createPipe(fds))
        throw std::runtime_error("Pipe creation failure");
    readEnd.reset(fds[0]);
    writeEnd.reset(fds[1]);
}

void waitableImpl::signal() {
    const unsigned char zero = 0;
    // The pipe is empty whenever this is called, so the byte always fits.
    while (::write(writeEnd.get(), &zero, 1) < 0 && errno == EINTR) {
    }
}

bool waitableImpl::test() const {
    pollfd entry{readEnd.get(), POLLIN, 0};
    return ::poll(&entry, 1, 0) > 0 && (entry.revents & POLLIN);
}

void waitableImpl::consume() {
    unsigned char byte;
    while (::read(readEnd.get(), &byte, 1) < 0 && errno == EINTR) {
    }
}

std::mutex& waitable::stateMutex() {
    // Constructed on first use so that static waitables in other files may use it safely.
    static std::mutex mutex;
    return mutex;
}

void waitable::set() {
    std::lock_guard lock(stateMutex());
    if (!pipe.test())
        pipe.signal();
}

void waitable::reset() {
    std::lock_guard lock(stateMutex());
    if (pipe.test())
        pipe.consume();
}

bool waitable::isSet() const {
    return pipe.test();
}

} // namespace Vesk
