#include "support/network/curl_library.h"

#include "support/errors.h"

#include <dlfcn.h>
#include <optional>

namespace Vesk {
namespace {

template <typename Function> void find(void* library, const char* name, Function& slot, bool& ok) {
    slot = reinterpret_cast<Function>(::dlsym(library, name));
    ok = ok && slot != nullptr;
}

std::optional<curlFunctions> open() {
    // Never closed: libcurl's global state must outlive every handle.
    void* library = ::dlopen(curlLibraryName, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr)
        return std::nullopt;
    curlFunctions f{};
    bool ok = true;
    find(library, "curl_global_init", f.globalInit, ok);
    find(library, "curl_easy_init", f.easyInit, ok);
    find(library, "curl_easy_cleanup", f.easyCleanup, ok);
    find(library, "curl_easy_setopt", f.easySetopt, ok);
    find(library, "curl_easy_getinfo", f.easyGetinfo, ok);
    find(library, "curl_easy_header", f.easyHeader, ok);
    find(library, "curl_easy_pause", f.easyPause, ok);
    find(library, "curl_easy_strerror", f.easyStrerror, ok);
    find(library, "curl_multi_init", f.multiInit, ok);
    find(library, "curl_multi_cleanup", f.multiCleanup, ok);
    find(library, "curl_multi_add_handle", f.multiAddHandle, ok);
    find(library, "curl_multi_remove_handle", f.multiRemoveHandle, ok);
    find(library, "curl_multi_perform", f.multiPerform, ok);
    find(library, "curl_multi_poll", f.multiPoll, ok);
    find(library, "curl_multi_info_read", f.multiInfoRead, ok);
    find(library, "curl_multi_strerror", f.multiStrerror, ok);
    if (!ok)
        return std::nullopt;
    return f;
}

} // namespace

const curlFunctions* openCurlLibrary() {
    static const std::optional<curlFunctions> functions = open();
    return functions ? &*functions : nullptr;
}

const curlFunctions& curlLibrary() {
    const curlFunctions* functions = openCurlLibrary();
    if (functions == nullptr)
        throw bug_check();
    return *functions;
}

} // namespace Vesk
