#include "audio/settings_spool.h"

#include "support/errors.h"

#include <cerrno>

namespace {

void put(std::FILE* file, const void* data, uint64_t length) {
    if (length != 0 && std::fwrite(data, 1, length, file) != length)
        throw Vesk::file_access_error(errno);
}

bool get(std::FILE* file, void* data, uint64_t length) {
    return length == 0 || std::fread(data, 1, length, file) == length;
}

} // namespace

void SettingsSpool::append(const uint8_t* data, uint64_t length) {
    if (file == nullptr) {
        file.reset(std::tmpfile());
        if (file == nullptr)
            throw Vesk::file_access_error(errno);
    }
    put(file.get(), &length, sizeof length);
    put(file.get(), data, length);
}

void SettingsSpool::replay(const std::function<void(const uint8_t*, uint64_t)>& take) {
    if (file == nullptr)
        return;
    // Written and read back by the same stream: only a failing disk can make the lengths lie.
    if (std::fflush(file.get()) != 0 || std::fseek(file.get(), 0, SEEK_SET) != 0)
        throw Vesk::file_access_error(errno);
    std::vector<uint8_t> message;
    uint64_t length = 0;
    while (get(file.get(), &length, sizeof length)) {
        message.resize(length);
        if (!get(file.get(), message.data(), length))
            throw Vesk::file_access_error(errno);
        take(message.data(), length);
    }
    if (std::ferror(file.get()) != 0)
        throw Vesk::file_access_error(errno);
    // Further messages go after the ones kept.
    std::fseek(file.get(), 0, SEEK_END);
}
