#pragma once

#include "hosting/vst2_abi.h"

#include <cstdint>

// Translation between speaker masks (WAVE extensible bits) and VST 2 arrangements.
namespace speaker_layout {

// The mask an arrangement type stands for; 0 for types without one.
uint32_t maskForArrangement(int32_t arrangementType);

// The arrangement for `channels` channels with `mask`: a known type when the mask matches one,
// else user-defined, with one speaker per set bit (at most 8; none for plain mono).
VstSpeakerArrangement arrangementForMask(uint32_t mask, uint32_t channels);

int bitCount(uint32_t mask);

} // namespace speaker_layout
