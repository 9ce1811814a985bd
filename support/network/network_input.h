#pragma once

#include "support/file_stream.h"
#include "support/network/http_request.h"

#include <memory>
#include <string>

// The response body of an HTTP or HTTPS GET, read as a stream.
namespace Vesk {

// Sends the request and returns once the body begins; failures throw httpRequest errors. The
// stream reads like a file: `read` returns fewer bytes than asked only at the end of the body,
// and a body that ends any other way (cut short, broken, stalled) throws instead of ending.
// It cannot seek; `size` is the Content-Length, when the server sent one.
std::shared_ptr<fileIn> openNetworkInput(const std::string& url,
                                         const networkTimeouts& timeouts = {});

// Opens a network resource for names that isNetworkName accepts, a local file otherwise.
std::shared_ptr<fileIn> openInput(const std::string& name);

} // namespace Vesk
