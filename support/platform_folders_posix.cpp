#include "support/platform_folders.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace Vesk::platformFolders {

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home && *home)
        return home;
    if (const passwd* entry = ::getpwuid(::getuid()); entry && entry->pw_dir)
        return entry->pw_dir;
    return "/";
}

} // namespace Vesk::platformFolders
