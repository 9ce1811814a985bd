#include "hosting/vst3/vst3_chunk.h"

namespace vst3_chunk {

namespace {

void putSize(std::vector<uint8_t>& out, uint64_t size) {
    for (int byte = 0; byte < 8; ++byte)
        out.push_back(static_cast<uint8_t>(size >> (8 * byte)));
}

uint64_t getSize(std::span<const uint8_t> bytes) {
    uint64_t size = 0;
    for (int byte = 7; byte >= 0; --byte)
        size = (size << 8) | bytes[static_cast<size_t>(byte)];
    return size;
}

} // namespace

std::vector<uint8_t> pack(std::span<const uint8_t> component, std::span<const uint8_t> controller) {
    std::vector<uint8_t> chunk;
    chunk.reserve(headerBytes + component.size() + controller.size());
    putSize(chunk, component.size());
    putSize(chunk, controller.size());
    chunk.insert(chunk.end(), component.begin(), component.end());
    chunk.insert(chunk.end(), controller.begin(), controller.end());
    return chunk;
}

std::optional<Parts> split(std::span<const uint8_t> chunk) {
    if (chunk.size() < headerBytes)
        return std::nullopt;
    const uint64_t componentSize = getSize(chunk.subspan(0, 8));
    const uint64_t controllerSize = getSize(chunk.subspan(8, 8));
    const uint64_t room = chunk.size() - headerBytes;
    // Compared one at a time so that huge (or negative, read unsigned) sizes cannot wrap.
    if (componentSize > room || controllerSize > room - componentSize)
        return std::nullopt;
    const auto body = chunk.subspan(headerBytes);
    return Parts{body.subspan(0, componentSize), body.subspan(componentSize, controllerSize)};
}

} // namespace vst3_chunk
