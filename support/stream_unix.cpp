#include "support/stream_unix.h"

#include "support/descriptor_wait.h"
#include "support/errors.h"
#include "support/thread_abort.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <unistd.h>

namespace Vesk {
namespace {
// One system call moves at most this much, so counts always fit ssize_t.
constexpr uint64_t largestTransfer = 1u << 30;
} // namespace

uint64_t streamInAsync::read(void* buffer, uint64_t length) {
    auto* bytes = static_cast<unsigned char*>(buffer);
    uint64_t done = 0;
    while (done < length) {
        waitReady();
        const uint64_t got = readSome(bytes + done, length - done);
        if (got == 0)
            break;
        done += got;
    }
    return done;
}

uint64_t streamInAsync::skip(uint64_t count) {
    uint64_t done = 0;
    while (done < count) {
        waitReady();
        const uint64_t got = skipSome(count - done);
        if (got == 0)
            break;
        done += got;
    }
    return done;
}

void streamOutAsync::write(const void* buffer, uint64_t length) {
    const auto* bytes = static_cast<const unsigned char*>(buffer);
    uint64_t done = 0;
    while (done < length) {
        waitReady();
        const uint64_t put = writeSome(bytes + done, length - done);
        if (put == 0)
            throw file_access_error();
        done += put;
    }
}

namespace {
// Without a time-out or an aborter a readiness wait cannot change the outcome, so the blocking
// system call alone does the job with half the system calls.
bool waitsAreNeeded(double timeout) {
    return timeout >= 0 || currentAbortDescriptor() >= 0;
}
} // namespace

uint64_t streamInUnix::read(void* buffer, uint64_t length) {
    if (waitsAreNeeded(timeout))
        return streamInAsync::read(buffer, length);
    auto* bytes = static_cast<unsigned char*>(buffer);
    uint64_t done = 0;
    while (done < length) {
        const uint64_t got = readSome(bytes + done, length - done);
        if (got == 0)
            break;
        done += got;
    }
    return done;
}

uint64_t streamInUnix::readSome(void* buffer, uint64_t length) {
    const size_t piece = static_cast<size_t>(std::min(length, largestTransfer));
    for (;;) {
        const ssize_t got = ::read(descriptor, buffer, piece);
        if (got >= 0)
            return static_cast<uint64_t>(got);
        if (errno == EINTR)
            continue;
        // A non-blocking descriptor with nothing to give yet: wait for it instead of ending.
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            waitReady();
            continue;
        }
        throw file_access_error(errno);
    }
}

void streamInUnix::waitReady() {
    waitForDescriptor(descriptor, waitDirection::read, timeout);
}

bool streamInUnix::isReady() {
    return descriptorReady(descriptor, waitDirection::read);
}

void streamOutUnix::write(const void* buffer, uint64_t length) {
    if (waitsAreNeeded(timeout)) {
        streamOutAsync::write(buffer, length);
        return;
    }
    const auto* bytes = static_cast<const unsigned char*>(buffer);
    uint64_t done = 0;
    while (done < length) {
        const uint64_t put = writeSome(bytes + done, length - done);
        if (put == 0)
            throw file_access_error();
        done += put;
    }
}

uint64_t streamOutUnix::writeSome(const void* buffer, uint64_t length) {
    const size_t piece = static_cast<size_t>(std::min(length, largestTransfer));
    for (;;) {
        const ssize_t put = ::write(descriptor, buffer, piece);
        if (put >= 0)
            return static_cast<uint64_t>(put);
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            waitReady();
            continue;
        }
        // EPIPE included: the reader went away, which the caller must hear about.
        throw file_access_error(errno);
    }
}

void streamOutUnix::waitReady() {
    waitForDescriptor(descriptor, waitDirection::write, timeout);
}

bool streamOutUnix::isReady() {
    return descriptorReady(descriptor, waitDirection::write);
}

} // namespace Vesk
