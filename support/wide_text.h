#pragma once

#include <string>
#include <string_view>

// File names are built as wide (UTF-32) text and converted to UTF-8 at the system boundary.
namespace Vesk {

std::string toUtf8(std::wstring_view text);
// Invalid sequences become U+FFFD so that any byte string still names something printable.
std::wstring fromUtf8(std::string_view text);

} // namespace Vesk
