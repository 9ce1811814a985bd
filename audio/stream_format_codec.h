#pragma once

#include "hosting/stream_format_value.h"

#include <array>
#include <cstdint>
#include <optional>

// The option numbers a format is built from, as the front end read them (absent = 0).
struct StreamFormatOptions {
    int rate = 0;
    int channels = 0;
    int channelsOutput = 0;
    int chanmask = 0;
    int chanmaskOutput = 0;
};

constexpr uint32_t streamFormatBytes = 20;

// The speaker mask that goes into the record for `channels` when `mask` was asked for.
uint32_t effectiveMask(uint32_t channels, uint32_t mask);

// The record, or nothing when rate or a channel count is out of range.
std::optional<StreamFormat> buildStreamFormat(const StreamFormatOptions& options);

// Whether a record's rate and channel counts lie within what the command line accepts.
bool withinStreamLimits(const StreamFormat& format);

// The 20-byte little-endian form that travels on the chunked streams.
std::array<uint8_t, streamFormatBytes> encodeStreamFormat(const StreamFormat& format);
StreamFormat decodeStreamFormat(const uint8_t* bytes);
