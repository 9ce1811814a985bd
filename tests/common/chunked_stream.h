#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

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

// VST 3 settings as (parameter id, normalised value) records, as a settings file carries them.
inline std::string idValueRecords(const std::vector<std::pair<uint32_t, double>>& values) {
    std::string bytes;
    for (const auto& [id, value] : values) {
        bytes.append(reinterpret_cast<const char*>(&id), 4);
        bytes.append(reinterpret_cast<const char*>(&value), 8);
    }
    return bytes;
}

} // namespace testing_support
