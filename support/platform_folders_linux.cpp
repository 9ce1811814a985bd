#include "support/platform_folders.h"

#include "support/file_paths.h"
#include "support/wide_text.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace Vesk::platformFolders {
namespace {

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home && *home)
        return home;
    // Services started without a login environment still have an entry in the user database.
    if (const passwd* entry = ::getpwuid(::getuid()); entry && entry->pw_dir)
        return entry->pw_dir;
    return "/";
}

} // namespace

std::wstring systemTemporaryRoot() {
    const char* tmp = std::getenv("TMPDIR");
    return withTrailingSeparator(fromUtf8(tmp && *tmp ? tmp : "/tmp"));
}

std::wstring applicationDataRoot() {
    // The XDG rules ignore a relative value as if it were unset.
    if (const char* data = std::getenv("XDG_DATA_HOME"); data && data[0] == '/')
        return withTrailingSeparator(fromUtf8(data));
    return withTrailingSeparator(fromUtf8(homeFolder()) + L"/.local/share");
}

} // namespace Vesk::platformFolders
