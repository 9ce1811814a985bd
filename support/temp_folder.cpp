#include "support/temp_folder.h"

#include "support/errors.h"
#include "support/file_paths.h"
#include "support/platform_folders.h"
#include "support/wide_text.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vesk {
namespace {

constexpr const char* locationVariable = "XTempFolderScope_Location";
constexpr const char* lockName = "XTempFolderLock";
// Past this many locked candidates something else is wrong (a root we cannot write).
constexpr int candidateLimit = 10000;

std::wstring candidateName(const std::wstring& root, const std::wstring& prefix, int i) {
    if (prefix.empty())
        return root + L"XTempFolder-" + std::to_wstring(i);
    std::wstring name = root + prefix + L"-temp";
    if (i > 0)
        name += L"-" + std::to_wstring(i);
    return name;
}

bool removeTree(const std::string& path) {
    struct stat info;
    if (::lstat(path.c_str(), &info) != 0)
        return errno == ENOENT;
    if (!S_ISDIR(info.st_mode))
        return ::unlink(path.c_str()) == 0;
    return removeFolderContents(path) && ::rmdir(path.c_str()) == 0;
}

} // namespace

bool removeFolderContents(const std::string& folder, const std::string& keep) {
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(folder.c_str()), &::closedir);
    if (!listing)
        return false;
    bool all = true;
    while (const dirent* entry = ::readdir(listing.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == ".." || name == keep)
            continue;
        all = removeTree(folder + "/" + name) && all;
    }
    return all;
}

XTempFolderScope::XTempFolderScope(const std::wstring& prefix) {
    if (const char* inherited = std::getenv(locationVariable); inherited && *inherited) {
        path = withTrailingSeparator(fromUtf8(inherited));
        return;
    }
    const std::wstring root = platformFolders::systemTemporaryRoot();
    for (int i = 0; i < candidateLimit; ++i) {
        const std::string candidate = toUtf8(candidateName(root, prefix, i));
        if (::mkdir(candidate.c_str(), 0700) != 0 && errno != EEXIST)
            throwFileError();
        uniqueDescriptor file(
            ::open((candidate + "/" + lockName).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        if (!file.valid() || ::flock(file.get(), LOCK_EX | LOCK_NB) != 0)
            continue;
        // Whoever held this folder before has died; what it left is nobody's.
        removeFolderContents(candidate, lockName);
        path = fromUtf8(candidate) + L'/';
        lock = std::move(file);
        ::setenv(locationVariable, candidate.c_str(), 1);
        return;
    }
    throw file_access_error();
}

XTempFolderScope::~XTempFolderScope() {
    if (!owned())
        return;
    // Still under the lock, so no other process can be starting to use the folder.
    std::string folder = toUtf8(path);
    folder.pop_back();
    removeFolderContents(folder, lockName);
    ::unlink((folder + "/" + lockName).c_str());
    ::rmdir(folder.c_str());
}

const std::wstring& tempFolder() {
    // Lives until exit: children started at any time must find the folder still locked.
    static const XTempFolderScope* scope = new XTempFolderScope();
    return scope->folder();
}

std::string uniqueTempTag() {
    // The pid keeps processes of one tree apart; the start time keeps a reused pid apart.
    static const std::string processTag = [] {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        return std::to_string(::getpid()) + "." +
               std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count() %
                              1000000000);
    }();
    static std::atomic<unsigned> counter{0};
    return processTag + "-" + std::to_string(++counter);
}

XFile createTempFile(const std::wstring& name, const std::wstring& extension) {
    const std::wstring folder = tempFolder();
    const std::wstring prefix = name.empty() ? std::wstring() : name + L"-";
    const std::wstring suffix = extension.empty() ? std::wstring(L".tmp") : extension;
    for (;;) {
        XFile file;
        const std::wstring path =
            folder + prefix + L"XTempFile-" + fromUtf8(uniqueTempTag()) + suffix;
        if (file.open(path, XFile::readWrite, XFile::createNew | XFile::noLock, false))
            return file;
        // Only a name already taken is worth another try.
        if (errno != EEXIST)
            throwFileError();
    }
}

} // namespace Vesk
