#pragma once

#include <string>
#include <string_view>

// Text from outside (paths, URLs) made safe to put in a one-line message.
namespace Vesk {

// `text` with every control character written as an escape (\n, \r, \t, \xHH), so that a name
// holding a line break cannot split a message or fake a line of its own.
std::string escapedForMessage(std::string_view text);

} // namespace Vesk
