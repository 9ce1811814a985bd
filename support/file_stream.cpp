#include "support/file_stream.h"

#include "support/errors.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vesk {
namespace {
constexpr uint64_t largestTransfer = 1u << 30;
}

bool fileIn::queryProperty(const std::string&, std::string&) {
    return false;
}

fileInOutImpl_posix::~fileInOutImpl_posix() {
    close();
}

void fileInOutImpl_posix::close() {
    if (descriptor >= 0)
        ::close(descriptor);
    descriptor = -1;
}

void fileInOutImpl_posix::open(const std::string& path, int flags) {
    close();
    const int fd = ::open(path.c_str(), flags | O_CLOEXEC, 0644);
    if (fd < 0)
        throwFileError();
    descriptor = fd;
}

void fileInOutImpl_posix::openForReading(const std::string& path) {
    open(path, O_RDONLY);
}

void fileInOutImpl_posix::openForWriting(const std::string& path) {
    open(path, O_RDWR | O_CREAT | O_TRUNC);
}

void fileInOutImpl_posix::openForUpdate(const std::string& path) {
    open(path, O_RDWR | O_CREAT);
}

int fileInOutImpl_posix::checkedDescriptor() const {
    if (descriptor < 0)
        throw bug_check();
    return descriptor;
}

uint64_t fileInOutImpl_posix::read(void* buffer, uint64_t length) {
    const int fd = checkedDescriptor();
    auto* bytes = static_cast<unsigned char*>(buffer);
    uint64_t done = 0;
    // Loop so that a pipe or device opened by name still fills whole frames.
    while (done < length) {
        const ssize_t got =
            ::read(fd, bytes + done, static_cast<size_t>(std::min(length - done, largestTransfer)));
        if (got < 0) {
            if (errno == EINTR)
                continue;
            throwFileError();
        }
        if (got == 0)
            break;
        done += static_cast<uint64_t>(got);
    }
    return done;
}

void fileInOutImpl_posix::seek(uint64_t position) {
    if (::lseek(checkedDescriptor(), static_cast<off_t>(position), SEEK_SET) < 0)
        throwFileError();
}

uint64_t fileInOutImpl_posix::tell() {
    const off_t position = ::lseek(checkedDescriptor(), 0, SEEK_CUR);
    if (position < 0)
        throwFileError();
    return static_cast<uint64_t>(position);
}

uint64_t fileInOutImpl_posix::size() {
    const uint64_t remembered = tell();
    const off_t end = ::lseek(descriptor, 0, SEEK_END);
    if (end < 0)
        throwFileError();
    seek(remembered);
    return static_cast<uint64_t>(end);
}

void fileInOutImpl_posix::setLength(uint64_t length) {
    const int fd = checkedDescriptor();
    if (::ftruncate(fd, static_cast<off_t>(length)) == 0)
        return;
    // Some file systems refuse to extend by truncation; writing the last byte extends instead.
    if (length > 0 && errno == EIO) {
        struct stat info {};
        if (::fstat(fd, &info) == 0 && static_cast<uint64_t>(info.st_size) < length) {
            const unsigned char zero = 0;
            (void)!::pwrite(fd, &zero, 1, static_cast<off_t>(length - 1));
        }
    }
}

void fileInOutImpl_posix::write(const void* buffer, uint64_t length) {
    const int fd = checkedDescriptor();
    const auto* bytes = static_cast<const unsigned char*>(buffer);
    uint64_t done = 0;
    while (done < length) {
        const ssize_t put = ::write(fd, bytes + done,
                                    static_cast<size_t>(std::min(length - done, largestTransfer)));
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            throwFileError();
        done += static_cast<uint64_t>(put);
    }
}

bool isNetworkName(const std::string& name) {
    return ::strncasecmp(name.c_str(), "http://", 7) == 0 ||
           ::strncasecmp(name.c_str(), "https://", 8) == 0;
}

std::shared_ptr<fileIn> openFileForReading(const std::string& name) {
    auto file = std::make_shared<fileInOutImpl_posix>();
    file->openForReading(name);
    return file;
}

std::shared_ptr<fileInOut> openFileForWriting(const std::string& name) {
    auto file = std::make_shared<fileInOutImpl_posix>();
    file->openForWriting(name);
    return file;
}

std::shared_ptr<fileInOut> openFileForUpdate(const std::string& name) {
    auto file = std::make_shared<fileInOutImpl_posix>();
    file->openForUpdate(name);
    return file;
}

} // namespace Vesk
