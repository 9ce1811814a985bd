#include "support/platform_folders.h"

#include "support/file_paths.h"
#include "support/wide_text.h"

#include <cstdlib>

namespace Vesk::platformFolders {

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
