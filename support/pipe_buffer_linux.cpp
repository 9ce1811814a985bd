#include "support/pipe_buffer.h"

#include <climits>
#include <fcntl.h>
#include <sys/stat.h>

namespace Vesk {

void enlargePipeBuffer(int fd, size_t bytes) {
    struct stat status {};
    if (fd < 0 || ::fstat(fd, &status) != 0 || !S_ISFIFO(status.st_mode) || bytes > INT_MAX)
        return;
    // Never shrinks: F_SETPIPE_SZ below the bytes already held fails, and a larger pipe set
    // by the parent is left alone.
    const int current = ::fcntl(fd, F_GETPIPE_SZ);
    if (current >= 0 && static_cast<size_t>(current) < bytes)
        ::fcntl(fd, F_SETPIPE_SZ, static_cast<int>(bytes));
}

} // namespace Vesk
