#include "support/named_lock.h"

#include "support/errors.h"
#include "support/wide_text.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vesk {

XNamedLock::XNamedLock(const std::wstring& name) : lockPath("/tmp/xmutex-" + toUtf8(name)) {}

void XNamedLock::take() {
    lock(true);
}

bool XNamedLock::tryTake() {
    return lock(false);
}

bool XNamedLock::lock(bool wait) {
    if (held())
        return true;
    // Every user must be able to open the file that a first user created: no umask here.
    uniqueDescriptor opened(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!opened.valid())
        throwFileError();
    ::fchmod(opened.get(), 0666);
    int result;
    while ((result = ::flock(opened.get(), LOCK_EX | (wait ? 0 : LOCK_NB))) != 0 &&
           errno == EINTR) {
    }
    if (result != 0) {
        if (errno == EWOULDBLOCK)
            return false;
        throwFileError();
    }
    file = std::move(opened);
    return true;
}

void XNamedLock::remove() {
    ::unlink(lockPath.c_str());
}

} // namespace Vesk
