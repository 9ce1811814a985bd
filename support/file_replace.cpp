#include "support/file_replace.h"

#include "support/errors.h"
#include "support/unique_descriptor.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Vesk {
namespace {

constexpr size_t largestTransfer = size_t{1} << 30;
constexpr size_t copyPiece = size_t{1} << 16;
// As the system's own path lookup gives up on a loop of links.
constexpr int mostLinks = 40;

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The file at the end of a chain of links, whether or not it exists yet, so that a link, even a
// dangling one, is written through and never replaced by a plain file.
std::string linkTarget(std::string path) {
    for (int links = 0; links < mostLinks; ++links) {
        struct stat info {};
        if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode))
            return path;
        char target[PATH_MAX];
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0)
            throwFileError();
        if (static_cast<size_t>(length) == sizeof target)
            throw file_access_error(ENAMETOOLONG);
        const std::string next(target, static_cast<size_t>(length));
        path = next.starts_with('/') ? next : folderOf(path) + "/" + next;
    }
    throw file_access_error(ELOOP);
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

void check(bool succeeded) {
    if (!succeeded)
        throwFileError();
}

// Makes `to` hold exactly what `from` holds, on disk.
void copyContents(int from, int to) {
    check(::lseek(from, 0, SEEK_SET) == 0 && ::lseek(to, 0, SEEK_SET) == 0);
    std::vector<uint8_t> piece(copyPiece);
    off_t copied = 0;
    for (;;) {
        const ssize_t got = ::read(from, piece.data(), piece.size());
        if (got < 0 && errno == EINTR)
            continue;
        check(got >= 0);
        if (got == 0)
            break;
        writeAll(to, {piece.data(), static_cast<size_t>(got)});
        copied += got;
    }
    check(::ftruncate(to, copied) == 0 && ::fsync(to) == 0);
}

void writeOver(int fd, std::span<const uint8_t> bytes) {
    check(::lseek(fd, 0, SEEK_SET) == 0);
    writeAll(fd, bytes);
    check(::ftruncate(fd, static_cast<off_t>(bytes.size())) == 0 && ::fsync(fd) == 0);
}

// Removes the temporary file unless the rename took it or it must stay.
struct temporaryFile {
    std::string path;
    bool keep = false;
    ~temporaryFile() {
        if (!keep)
            ::unlink(path.c_str());
    }
};

// Only root may give a file away: without that right the old file is written over in place, as
// careful editors do, so that its owner never changes. Its old contents are first copied to
// `copy` and synced; a failed write puts them back, and only when even that fails does the copy
// stay for the user.
void rewriteInPlace(const std::string& target, temporaryFile& temporary, int copy,
                    std::span<const uint8_t> bytes) {
    const uniqueDescriptor original(::open(target.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY));
    check(original.valid());
    copyContents(original.get(), copy);
    try {
        writeOver(original.get(), bytes);
    } catch (...) {
        try {
            copyContents(copy, original.get());
        } catch (...) {
            temporary.keep = true;
        }
        throw;
    }
}

} // namespace

void replaceFileContents(const std::string& path, std::span<const uint8_t> bytes) {
    const std::string target = linkTarget(path);
    struct stat old {};
    const bool existed = ::stat(target.c_str(), &old) == 0;

    temporaryFile temporary{target + ".p" + std::to_string(::getpid()) + ".rewrite.tmp"};
    // A leftover of an earlier process with our number is ours to replace.
    ::unlink(temporary.path.c_str());
    uniqueDescriptor file(
        ::open(temporary.path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!file.valid()) {
        temporary.keep = true; // nothing of ours to remove
        throwFileError();
    }
    struct stat made {};
    check(::fstat(file.get(), &made) == 0);
    const bool sameOwner = !existed || (made.st_uid == old.st_uid && made.st_gid == old.st_gid);
    if (!sameOwner && ::fchown(file.get(), old.st_uid, old.st_gid) != 0) {
        check(::fchmod(file.get(), old.st_mode & 0777) == 0);
        rewriteInPlace(target, temporary, file.get(), bytes);
        return;
    }
    // After the owner: changing it clears the set-user and set-group bits.
    if (existed)
        check(::fchmod(file.get(), old.st_mode & 07777) == 0);
    writeAll(file.get(), bytes);
    check(::fsync(file.get()) == 0);
    check(::close(file.release()) == 0);
    check(::rename(temporary.path.c_str(), target.c_str()) == 0);
    temporary.keep = true;
    // The rename itself reaches the disk with the folder; a file system that cannot sync a
    // folder has still renamed.
    uniqueDescriptor folder(::open(folderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.valid())
        ::fsync(folder.get());
}

} // namespace Vesk
