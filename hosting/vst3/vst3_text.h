#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Text between VST 3 fields (UTF-16 or NUL-padded bytes) and the UTF-8 the rest of the program
// and VST 2 callers use. Pure functions.
namespace vst3_text {

// A UTF-16 field of `capacity` code units, up to its first NUL. Broken surrogates become U+FFFD.
std::string fromUtf16(const char16_t* text, size_t capacity);

// Writes `text` as UTF-16 into `out`, cut to `capacity` - 1 code units and NUL-terminated.
void toUtf16(std::string_view text, char16_t* out, size_t capacity);

// A NUL-padded byte field that need not be terminated.
std::string fromFixed(const char* text, size_t capacity);

// Copies `text` into a C buffer of `capacity` bytes, NUL-terminated, cut before a UTF-8
// sequence that would not fit whole. Nothing is written when `capacity` is 0.
void copyCut(std::string_view text, char* out, size_t capacity);

} // namespace vst3_text
