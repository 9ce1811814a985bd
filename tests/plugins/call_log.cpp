#include "tests/plugins/call_log.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <fcntl.h>
#include <unistd.h>

namespace test_effect {

void writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        text.remove_prefix(static_cast<size_t>(written));
    }
}

void CallLog::line(std::string_view text) const {
    if (path.empty())
        return;
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (file < 0)
        return;
    writeAll(file, std::string(text) + '\n');
    ::close(file);
}

std::string number(double value) {
    // The sign of a NaN depends on how it was made; tests only care that it is one.
    if (std::isnan(value))
        return "nan";
    char text[32];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

} // namespace test_effect
