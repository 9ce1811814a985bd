#include "support/errors.h"

#include "support/wide_text.h"

#include <cerrno>
#include <cstring>

namespace Vesk {

file_access_error::file_access_error(int code)
    : std::runtime_error(code == 0 ? std::string("file access error")
                                   : std::string("file access error: ") + std::strerror(code)) {}

void throwFileError() {
    const int code = errno;
    if (code == ENOTEMPTY)
        throw directory_not_empty();
    if (code == EEXIST)
        throw file_already_exists();
    if (code != ENOENT)
        throw file_access_error(code);
    throw file_not_found();
}

std::wstring errnoDescription(int code) {
    std::wstring text = fromUtf8(std::strerror(code));
    if (text.size() >= 2)
        text += L' ';
    text += L"(errno:" + std::to_wstring(code) + L")";
    return text;
}

std::wstring errnoDescription() {
    return errnoDescription(errno);
}

std::wstring openErrorMessage(const std::wstring& path) {
    if (path.empty())
        return L"No file specified!";
    const int code = errno;
    std::wstring message =
        L"Error opening file '" + path + L"', check no other program has it open.";
    // A system text too short to say anything is left out together with its number.
    if (std::strlen(std::strerror(code)) >= 2)
        message += L' ' + errnoDescription(code);
    return message;
}

} // namespace Vesk
