#pragma once

#include <cstdint>
#include <cstring>
#include <string>

// Builds the chunked framing's input messages, as a parent writes them.
namespace testing_support {

inline std::string chunk(uint32_t code, const std::string& payload) {
    std::string bytes(8, '\0');
    std::memcpy(bytes.data(), &code, 4);
    const auto length = static_cast<uint32_t>(payload.size());
    std::memcpy(bytes.data() + 4, &length, 4);
    return bytes + payload;
}

inline std::string formatRecord(uint32_t rate, uint32_t in, uint32_t inMask, uint32_t out,
                                uint32_t outMask) {
    const uint32_t fields[5] = {rate, in, inMask, out, outMask};
    return std::string(reinterpret_cast<const char*>(fields), sizeof fields);
}

} // namespace testing_support
