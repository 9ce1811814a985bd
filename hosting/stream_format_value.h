#pragma once

#include <cstdint>

// Rate, channel counts and speaker masks of the audio streams: what the plug-in is set up with
// and what the stream code reads and writes. A plain value; any thread.
struct StreamFormat {
    uint32_t sampleRate = 0;
    uint32_t inputChannels = 0;
    uint32_t inputChannelMask = 0;
    uint32_t outputChannels = 0;
    uint32_t outputChannelMask = 0;

    friend bool operator==(const StreamFormat&, const StreamFormat&) = default;
};
