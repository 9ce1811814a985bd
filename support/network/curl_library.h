#pragma once

#include <curl/curl.h>

// libcurl is opened on the first network input rather than linked: linked, it and the ~30
// libraries it needs were loaded and relocated at every start of the adapter, more than the
// rest of a typical `test` run. Any thread; the table is filled once and never changes.
namespace Vesk {

struct curlFunctions {
    decltype(&curl_global_init) globalInit;
    decltype(&curl_easy_init) easyInit;
    decltype(&curl_easy_cleanup) easyCleanup;
    decltype(&curl_easy_setopt) easySetopt;
    decltype(&curl_easy_getinfo) easyGetinfo;
    decltype(&curl_easy_header) easyHeader;
    decltype(&curl_easy_pause) easyPause;
    decltype(&curl_easy_strerror) easyStrerror;
    decltype(&curl_multi_init) multiInit;
    decltype(&curl_multi_cleanup) multiCleanup;
    decltype(&curl_multi_add_handle) multiAddHandle;
    decltype(&curl_multi_remove_handle) multiRemoveHandle;
    decltype(&curl_multi_perform) multiPerform;
    decltype(&curl_multi_poll) multiPoll;
    decltype(&curl_multi_info_read) multiInfoRead;
    decltype(&curl_multi_strerror) multiStrerror;
};

// The library's functions, or null when it cannot be opened (the first call opens it).
const curlFunctions* openCurlLibrary();
// The same, once openCurlLibrary has succeeded; throws bug_check otherwise.
const curlFunctions& curlLibrary();

// The file name the system's loader knows libcurl by (one per platform).
extern const char* const curlLibraryName;

} // namespace Vesk
