#pragma once

#include <cstdint>
#include <span>
#include <string>

// The layout of a VST 3 preset image: "VST3", an int32 version, the class id as 32 ASCII
// characters, an int64 offset of the chunk list; there "List", an int32 entry count and entries
// of a 4-byte id, an int64 offset and an int64 size. Pure functions over untrusted bytes.
namespace vst3_preset_layout {

inline constexpr uint64_t headerBytes = 48;
inline constexpr uint64_t classIdBytes = 32;

// Whether the SDK's preset reader can walk the header and every entry it will read without
// leaving `bytes`: the list and each entry lie wholly inside, and there is a component state.
bool isSound(std::span<const uint8_t> bytes);

// The class id characters of the header; `bytes` must be at least headerBytes long.
std::string classIdText(std::span<const uint8_t> bytes);

} // namespace vst3_preset_layout
