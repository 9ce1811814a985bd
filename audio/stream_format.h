#pragma once

#include <cstdint>

// Rate and channel layout of the audio streams; 20 bytes little-endian on the wire.
struct StreamFormat {
    uint32_t sampleRate = 0;
    uint32_t inputChannels = 0;
    uint32_t inputChannelMask = 0;
    uint32_t outputChannels = 0;
    uint32_t outputChannelMask = 0;
};
