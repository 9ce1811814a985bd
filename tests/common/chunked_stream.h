#pragma once

#include <cstdint>
#include <cstring>
#include <string>

// Building the input of "process --protocol chunked" in tests that run the adapter binary.
namespace testing_support {

// One message: code, payload length (both 32-bit little-endian), payload.
inline std::string chunk(uint32_t code, const std::string& payload) {
    std::string bytes(8, '\0');
    std::memcpy(bytes.data(), &code, 4);
    const auto length = static_cast<uint32_t>(payload.size());
    std::memcpy(bytes.data() + 4, &length, 4);
    return bytes + payload;
}

// The 20-byte format record: rate, input channels and mask, output channels and mask.
inline std::string formatRecord(uint32_t rate, uint32_t in, uint32_t inMask, uint32_t out,
                                uint32_t outMask) {
    const uint32_t fields[5] = {rate, in, inMask, out, outMask};
    return std::string(reinterpret_cast<const char*>(fields), sizeof fields);
}

// A 32-bit little-endian number at `offset` of a reply.
inline uint32_t readU32(const std::string& bytes, size_t offset) {
    uint32_t value = 0;
    std::memcpy(&value, bytes.data() + offset, 4);
    return value;
}

} // namespace testing_support
