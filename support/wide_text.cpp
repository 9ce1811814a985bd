#include "support/wide_text.h"

namespace Vesk {

std::string toUtf8(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t wide : text) {
        auto code = static_cast<char32_t>(wide);
        if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            code = 0xFFFD;
        if (code < 0x80) {
            out.push_back(static_cast<char>(code));
        } else if (code < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (code >> 6)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else if (code < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (code >> 12)));
            out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (code >> 18)));
            out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        }
    }
    return out;
}

std::wstring fromUtf8(std::string_view text) {
    constexpr char32_t replacement = 0xFFFD;
    std::wstring out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        int extra = 0;
        char32_t code = 0;
        char32_t minimum = 0;
        if (lead < 0x80) {
            code = lead;
        } else if ((lead & 0xE0) == 0xC0) {
            extra = 1, code = lead & 0x1F, minimum = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            extra = 2, code = lead & 0x0F, minimum = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            extra = 3, code = lead & 0x07, minimum = 0x10000;
        } else {
            out.push_back(static_cast<wchar_t>(replacement));
            ++i;
            continue;
        }
        size_t next = i + 1;
        bool valid = true;
        for (int k = 0; k < extra; ++k, ++next) {
            if (next >= text.size() || (static_cast<unsigned char>(text[next]) & 0xC0) != 0x80) {
                valid = false;
                break;
            }
            code = (code << 6) | (static_cast<unsigned char>(text[next]) & 0x3F);
        }
        if (!valid || code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
            out.push_back(static_cast<wchar_t>(replacement));
            i = valid ? next : i + 1;
            continue;
        }
        out.push_back(static_cast<wchar_t>(code));
        i = next;
    }
    return out;
}

} // namespace Vesk
