#include "support/file_replace.h"

#include "support/errors.h"
#include "support/unique_descriptor.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vesk {
namespace {

constexpr size_t largestTransfer = size_t{1} << 30;

// The file a link names, so that the link itself survives; the path itself when there is no
// file yet.
std::string resolved(const std::string& path) {
    char* real = ::realpath(path.c_str(), nullptr);
    if (real == nullptr)
        return path;
    std::string result(real);
    std::free(real);
    return result;
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

void writeAll(int fd, std::span<const uint8_t> bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t put =
            ::write(fd, bytes.data() + done, std::min(bytes.size() - done, largestTransfer));
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            throwFileError();
        if (put == 0)
            throw file_access_error(ENOSPC);
        done += static_cast<size_t>(put);
    }
}

// Removes the temporary file unless the rename took it.
struct temporaryFile {
    std::string path;
    bool renamed = false;
    ~temporaryFile() {
        if (!renamed)
            ::unlink(path.c_str());
    }
};

} // namespace

void replaceFileContents(const std::string& path, std::span<const uint8_t> bytes) {
    const std::string target = resolved(path);
    struct stat old {};
    const bool existed = ::stat(target.c_str(), &old) == 0;

    temporaryFile temporary{target + ".p" + std::to_string(::getpid()) + ".rewrite.tmp"};
    // A leftover of an earlier process with our number is ours to replace.
    ::unlink(temporary.path.c_str());
    uniqueDescriptor file(
        ::open(temporary.path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!file.valid()) {
        temporary.renamed = true; // nothing of ours to remove
        throwFileError();
    }
    if (existed && ::fchmod(file.get(), old.st_mode & 07777) != 0)
        throwFileError();
    writeAll(file.get(), bytes);
    if (::fsync(file.get()) != 0)
        throwFileError();
    if (::close(file.release()) != 0)
        throwFileError();
    if (::rename(temporary.path.c_str(), target.c_str()) != 0)
        throwFileError();
    temporary.renamed = true;
    // The rename itself reaches the disk with the folder; a file system that cannot sync a
    // folder has still renamed.
    uniqueDescriptor folder(::open(folderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.valid())
        ::fsync(folder.get());
}

} // namespace Vesk
