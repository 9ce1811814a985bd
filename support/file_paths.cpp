#include "support/file_paths.h"

#include "support/errors.h"
#include "support/platform_folders.h"
#include "support/wide_text.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fnmatch.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Vesk {

void renameFile(const std::wstring& from, const std::wstring& to, uint32_t flags) {
    const std::string target = toUtf8(to);
    struct stat existing;
    if (!(flags & renameOverwrite) && ::lstat(target.c_str(), &existing) == 0)
        throw file_already_exists();
    if (::rename(toUtf8(from).c_str(), target.c_str()) != 0)
        throwFileError();
}

std::wstring readLink(const std::wstring& path) {
    const std::string name = toUtf8(path);
    std::vector<char> buffer(1024);
    for (;;) {
        const ssize_t length = ::readlink(name.c_str(), buffer.data(), buffer.size());
        if (length < 0)
            throw file_access_error();
        // A result that fills the buffer may have been cut short.
        if (static_cast<size_t>(length) < buffer.size())
            return fromUtf8(std::string_view(buffer.data(), static_cast<size_t>(length)));
        buffer.resize(buffer.size() * 2);
    }
}

std::wstring appDataFolder() {
    std::wstring folder;
    if (const char* override = std::getenv("_APPDATA_OVERRIDE"))
        folder = fromUtf8(override);
    else
        folder = platformFolders::applicationDataRoot();
    return withTrailingSeparator(std::move(folder));
}

std::wstring withTrailingSeparator(std::wstring path) {
    if (path.empty() || path.back() != L'/')
        path += L'/';
    return path;
}

bool createFolderPath(const std::wstring& path, unsigned mode) {
    const std::string full = toUtf8(path);
    size_t end = 0;
    while (end < full.size()) {
        end = full.find('/', end + 1);
        if (end == std::string::npos)
            end = full.size();
        const std::string component = full.substr(0, end);
        if (component.empty() || component == "/Volumes" || component == "/Network")
            continue;
        const bool mountPoint =
            component.rfind("/Volumes/", 0) == 0 || component.rfind("/Network/", 0) == 0;
        if (mountPoint && component.find('/', 9) == std::string::npos) {
            // Creating a missing volume's folder would quietly write to the start-up disk.
            if (::access(component.c_str(), R_OK) != 0)
                return false;
            continue;
        }
        if (::mkdir(component.c_str(), static_cast<mode_t>(mode)) != 0 && errno != EEXIST)
            return false;
    }
    return true;
}

bool isHousekeepingFolder(const std::wstring& path) {
    static constexpr std::array<std::wstring_view, 7> names = {
        L"@Recycle", L"#recycle",           L"$RECYCLE.BIN", L"@tmp",
        L"@eaDir",   L"@Recently-Snapshot", L"_gsdata_"};
    std::wstring_view last = path;
    while (!last.empty() && last.back() == L'/')
        last.remove_suffix(1);
    if (const size_t slash = last.rfind(L'/'); slash != std::wstring_view::npos)
        last.remove_prefix(slash + 1);
    for (std::wstring_view name : names)
        if (last == name)
            return true;
    return false;
}

std::wstring rewriteTempPath(const std::wstring& target, uint32_t number) {
    std::wstring path = target + L".p" + std::to_wstring(::getpid());
    if (number != 0)
        path += L"." + std::to_wstring(number);
    return path + L".rewrite.tmp";
}

size_t removeRewriteLeftovers(const std::wstring& folder) {
    std::string base = toUtf8(folder);
    if (base.empty() || base.back() != '/')
        base += '/';
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(base.c_str()), &::closedir);
    if (!listing)
        return 0;
    size_t removed = 0;
    while (const dirent* entry = ::readdir(listing.get())) {
        if (::fnmatch("*.rewrite.tmp", entry->d_name, 0) == 0 &&
            ::unlink((base + entry->d_name).c_str()) == 0)
            ++removed;
    }
    return removed;
}

} // namespace Vesk
