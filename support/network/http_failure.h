#pragma once

#include <curl/curl.h>

#include <string>

// Turns a failed transfer into the request's exception classes. Private to the network client.
namespace Vesk {

// Throws the httpRequest error for `code`. `status` is the final HTTP status (0 before one
// arrived), `detail` the library's own text for the failure, `shownUrl` the URL as messages
// show it.
[[noreturn]] void throwTransferFailure(CURLcode code, long status, const std::string& detail,
                                       const std::string& shownUrl);

} // namespace Vesk
