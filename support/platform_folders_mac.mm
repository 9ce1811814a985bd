#include "support/platform_folders.h"

#include "support/file_paths.h"
#include "support/wide_text.h"

#include <unistd.h>

namespace Vesk::platformFolders {

std::wstring systemTemporaryRoot() {
    // The per-user folder under /var/folders, which is also what $TMPDIR says in a login session.
    char buffer[1024];
    const size_t length = ::confstr(_CS_DARWIN_USER_TEMP_DIR, buffer, sizeof buffer);
    if (length > 0 && length <= sizeof buffer)
        return withTrailingSeparator(fromUtf8(buffer));
    return L"/tmp/";
}

std::wstring applicationDataRoot() {
    return withTrailingSeparator(fromUtf8(homeFolder()) + L"/Library");
}

} // namespace Vesk::platformFolders
