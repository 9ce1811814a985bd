#include "support/network/curl_library.h"

namespace Vesk {

const char* const curlLibraryName = "/usr/lib/libcurl.4.dylib";

} // namespace Vesk
