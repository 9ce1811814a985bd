#include "support/network/curl_library.h"

namespace Vesk {

const char* const curlLibraryName = "libcurl.so.4";

} // namespace Vesk
