#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// Building and reading the chunked protocol's bytes in tests.
namespace chunked_messages {

inline std::string message(uint32_t code, const std::string& payload) {
    std::string bytes(8, '\0');
    std::memcpy(bytes.data(), &code, 4);
    const auto length = static_cast<uint32_t>(payload.size());
    std::memcpy(bytes.data() + 4, &length, 4);
    return bytes + payload;
}

inline std::string format(uint32_t rate, uint32_t in, uint32_t inMask, uint32_t out,
                          uint32_t outMask) {
    const uint32_t fields[5] = {rate, in, inMask, out, outMask};
    return message(3, std::string(reinterpret_cast<const char*>(fields), sizeof fields));
}

inline uint32_t wordAt(const std::string& bytes, size_t offset) {
    uint32_t word = 0;
    std::memcpy(&word, bytes.data() + offset, 4);
    return word;
}

// Id/value records as the settings file carries them.
inline std::string records(const std::vector<std::pair<uint32_t, double>>& values) {
    std::string bytes;
    for (const auto& [id, value] : values) {
        bytes.append(reinterpret_cast<const char*>(&id), 4);
        bytes.append(reinterpret_cast<const char*>(&value), 8);
    }
    return bytes;
}

} // namespace chunked_messages
