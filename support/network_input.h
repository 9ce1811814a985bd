#pragma once

#include "support/file_stream.h"

#include <memory>
#include <string>

// The response body of an HTTP or HTTPS GET, read as a stream.
namespace Vesk {

std::shared_ptr<fileIn> openNetworkInput(const std::string& url);

} // namespace Vesk
