#pragma once

#include "hosting/vst2/vst2_abi.h"

#include <cstdint>
#include <optional>

// Translation between VST 2 speaker arrangements and VST 3 speaker bit masks. The VST 3 masks
// equal the WAVE channel masks of our format table, except mono (VST 3 has its own M speaker).
namespace vst3_speakers {

inline constexpr uint64_t monoMask = uint64_t{1} << 19; // VST 3 kSpeakerM

// The VST 3 arrangement a VST 2 caller asks for: the known types by table, any other type
// from its speaker list. Empty when the record cannot be read as one.
std::optional<uint64_t> fromVst2(const VstSpeakerArrangement& arrangement);

// The VST 2 arrangement type that describes a bus of `channels` channels with `mask`:
// mono and stereo by count (as VST 2 pin records say), the known surround types by mask,
// user-defined for the rest.
int32_t vst2Type(uint64_t mask, int32_t channels);

// A VST 2 record for a VST 3 mask: its type and one speaker per channel (at most 8).
VstSpeakerArrangement toVst2(uint64_t mask);

} // namespace vst3_speakers
