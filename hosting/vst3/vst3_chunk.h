#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// The VST 2 chunk of a bridged VST 3 plug-in: little-endian int64 component size, int64
// controller size, then the component's state bytes and the controller's. Pure functions.
namespace vst3_chunk {

inline constexpr size_t headerBytes = 16;

std::vector<uint8_t> pack(std::span<const uint8_t> component, std::span<const uint8_t> controller);

struct Parts {
    std::span<const uint8_t> component;
    std::span<const uint8_t> controller;
};

// Empty when the bytes are too short or their sizes do not fit inside them. Bytes after the
// two parts are ignored.
std::optional<Parts> split(std::span<const uint8_t> chunk);

} // namespace vst3_chunk
