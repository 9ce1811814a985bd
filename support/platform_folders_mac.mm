#include "support/platform_folders.h"

#include "support/wide_text.h"

#include <cstdlib>
#include <unistd.h>

namespace Vesk::platformFolders {
namespace {

std::wstring withSeparator(std::wstring path) {
    if (path.empty() || path.back() != L'/')
        path += L'/';
    return path;
}

} // namespace

std::wstring systemTemporaryRoot() {
    // The per-user folder under /var/folders, which is also what $TMPDIR says in a login session.
    char buffer[1024];
    const size_t length = ::confstr(_CS_DARWIN_USER_TEMP_DIR, buffer, sizeof buffer);
    if (length > 0 && length <= sizeof buffer)
        return withSeparator(fromUtf8(buffer));
    return L"/tmp/";
}

std::wstring applicationDataRoot() {
    const char* home = std::getenv("HOME");
    return withSeparator(fromUtf8(home ? home : "") + L"/Library");
}

} // namespace Vesk::platformFolders
