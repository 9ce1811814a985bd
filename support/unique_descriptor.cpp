#include "support/unique_descriptor.h"

#include <unistd.h>

namespace Vesk {

void uniqueDescriptor::reset(int fd) noexcept {
    // close() may fail with EINTR, but the descriptor is gone either way on Linux and macOS, so
    // it is never retried (a retry could close a descriptor another thread just got).
    if (descriptor >= 0)
        ::close(descriptor);
    descriptor = fd;
}

} // namespace Vesk
