#include "support/x_file.h"

#include "support/wide_text.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace Vesk {
namespace {

int creationFlags(uint32_t mode) {
    switch (mode & 7) {
    case XFile::createNew:
        return O_CREAT | O_EXCL;
    case XFile::createOrTruncate:
        return O_CREAT | O_TRUNC;
    case XFile::openOrCreate:
        return O_CREAT;
    case XFile::truncateExisting:
        return O_TRUNC;
    default:
        return 0;
    }
}

int lockFile(int fd, bool shared, bool wait) {
    const int operation = (shared ? LOCK_SH : LOCK_EX) | (wait ? 0 : LOCK_NB);
    int result;
    // A blocking lock is retried when a signal interrupts it.
    while ((result = ::flock(fd, operation)) != 0 && errno == EINTR) {
    }
    return result;
}

} // namespace

bool XFile::open(const std::wstring& path, uint32_t access, uint32_t mode, bool reportFailures,
                 bool shared) {
    close();
    filePath = path;
    report = reportFailures;
    const int flags = ((access & readWrite) ? O_RDWR : O_RDONLY) | O_CLOEXEC | creationFlags(mode);
    uniqueDescriptor opened(::open(toUtf8(path).c_str(), flags, 0666));
    if (!opened.valid()) {
        reportFailure(L"Unable to open '");
        return false;
    }
    if (!(mode & noLock) && lockFile(opened.get(), shared, mode & waitForLock) != 0) {
        // Only a lock held elsewhere fails the open; a file system without locks still opens.
        if (errno == EWOULDBLOCK && !(mode & ignoreLockFailure)) {
            reportFailure(L"Unable to open '");
            return false;
        }
    }
    descriptor = std::move(opened);
    return true;
}

bool XFile::seek(int origin) {
    if (origin == fromStart)
        return ::lseek(descriptor.get(), 0, SEEK_SET) >= 0;
    if (origin == fromEnd)
        return ::lseek(descriptor.get(), 0, SEEK_END) >= 0;
    return true;
}

uint64_t XFile::read(void* buffer, uint64_t count, int origin, bool* failed) {
    ssize_t got = -1;
    if (isOpen() && seek(origin))
        got = ::read(descriptor.get(), buffer, static_cast<uint32_t>(count));
    if (failed)
        *failed = got < 0;
    if (got < 0) {
        reportFailure(L"Unable to read from '");
        return 0;
    }
    return static_cast<uint64_t>(got);
}

bool XFile::write(const void* buffer, uint64_t count, int origin, uint64_t* written) {
    if (!buffer) {
        if (count == 0)
            return true;
        std::puts("Error writing a NULL buffer to file");
        return false;
    }
    ssize_t put = -1;
    if (isOpen() && seek(origin))
        put = ::write(descriptor.get(), buffer, count);
    const bool ok = written ? put >= 0 : put >= 0 && static_cast<uint64_t>(put) == count;
    if (!ok) {
        reportFailure(L"Unable to write to '");
        return false;
    }
    if (written)
        *written = static_cast<uint64_t>(put);
    return true;
}

void XFile::reportFailure(const wchar_t* prefix) const {
    if (report)
        std::puts(toUtf8(prefix + filePath + L"'").c_str());
}

} // namespace Vesk
