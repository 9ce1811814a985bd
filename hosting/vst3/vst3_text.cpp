#include "hosting/vst3/vst3_text.h"

#include "support/wide_text.h"

#include <algorithm>
#include <cstring>

namespace vst3_text {

namespace {

constexpr char32_t replacement = 0xFFFD;

bool isHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// A UTF-8 continuation byte cannot start a character.
bool startsCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

} // namespace

std::string fromUtf16(const char16_t* text, size_t capacity) {
    std::wstring wide;
    for (size_t at = 0; at < capacity && text[at] != 0; ++at) {
        const char32_t unit = text[at];
        if (isHighSurrogate(unit) && at + 1 < capacity && isLowSurrogate(text[at + 1])) {
            wide.push_back(
                static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (text[at + 1] - 0xDC00)));
            ++at;
        } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
            wide.push_back(static_cast<wchar_t>(replacement));
        } else {
            wide.push_back(static_cast<wchar_t>(unit));
        }
    }
    return Vesk::toUtf8(wide);
}

void toUtf16(std::string_view text, char16_t* out, size_t capacity) {
    if (capacity == 0)
        return;
    size_t used = 0;
    for (const wchar_t character : Vesk::fromUtf8(text)) {
        const auto code = static_cast<char32_t>(character);
        const size_t units = code >= 0x10000 ? 2 : 1;
        if (used + units > capacity - 1)
            break;
        if (units == 2) {
            out[used++] = static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10));
            out[used++] = static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
        } else {
            out[used++] = static_cast<char16_t>(code);
        }
    }
    out[used] = 0;
}

std::string fromFixed(const char* text, size_t capacity) {
    return std::string(text, std::find(text, text + capacity, '\0'));
}

void copyCut(std::string_view text, char* out, size_t capacity) {
    if (capacity == 0)
        return;
    size_t length = std::min(text.size(), capacity - 1);
    if (length < text.size())
        while (length > 0 && !startsCharacter(text[length]))
            --length;
    std::memcpy(out, text.data(), length);
    out[length] = '\0';
}

} // namespace vst3_text
