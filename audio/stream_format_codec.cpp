#include "audio/stream_format_codec.h"

#include <bit>

namespace {

constexpr uint32_t lowestRate = 100;
constexpr uint32_t highestRate = 10'000'000;
constexpr int mostChannels = 32;

uint32_t defaultMask(uint32_t channels) {
    switch (channels) {
    case 1:
        return 0x4;
    case 2:
        return 0x3;
    case 4:
        return 0x33;
    case 6:
        return 0x3F;
    default:
        // Three and five channels go to the plug-in without a layout on purpose.
        return 0;
    }
}

bool channelCountValid(int channels) {
    return channels >= 1 && channels <= mostChannels;
}

uint32_t readLittle32(const uint8_t* bytes) {
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
           uint32_t{bytes[3]} << 24;
}

void writeLittle32(uint8_t* bytes, uint32_t value) {
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<uint8_t>(value >> (8 * i));
}

} // namespace

uint32_t effectiveMask(uint32_t channels, uint32_t mask) {
    if (channels == 0)
        return 0;
    // The bit count is compared with the mask itself, not with the channel count: in effect only
    // a requested mask of 1 survives. Parents rely on exactly this.
    if (mask != 0 && static_cast<uint32_t>(std::popcount(mask)) == mask)
        return mask;
    return defaultMask(channels);
}

std::optional<StreamFormat> buildStreamFormat(const StreamFormatOptions& options) {
    const int outputChannels =
        options.channelsOutput != 0 ? options.channelsOutput : options.channels;
    // One unsigned comparison: negative rates wrap above the top bound.
    const bool rateValid =
        static_cast<uint32_t>(options.rate) - lowestRate <= highestRate - lowestRate;
    if (!rateValid || !channelCountValid(options.channels) || !channelCountValid(outputChannels))
        return std::nullopt;

    StreamFormat format;
    format.sampleRate = static_cast<uint32_t>(options.rate);
    format.inputChannels = static_cast<uint32_t>(options.channels);
    format.inputChannelMask =
        effectiveMask(format.inputChannels, static_cast<uint32_t>(options.chanmask));
    format.outputChannels = static_cast<uint32_t>(outputChannels);
    // Without its own channel count the output mirrors the input, its mask option included.
    format.outputChannelMask =
        options.channelsOutput != 0
            ? effectiveMask(format.outputChannels, static_cast<uint32_t>(options.chanmaskOutput))
            : format.inputChannelMask;
    return format;
}

bool withinStreamLimits(const StreamFormat& format) {
    const auto channelsValid = [](uint32_t channels) {
        return channels >= 1 && channels <= static_cast<uint32_t>(mostChannels);
    };
    return format.sampleRate >= lowestRate && format.sampleRate <= highestRate &&
           channelsValid(format.inputChannels) && channelsValid(format.outputChannels);
}

std::array<uint8_t, streamFormatBytes> encodeStreamFormat(const StreamFormat& format) {
    std::array<uint8_t, streamFormatBytes> bytes{};
    const uint32_t fields[] = {format.sampleRate, format.inputChannels, format.inputChannelMask,
                               format.outputChannels, format.outputChannelMask};
    for (size_t i = 0; i < std::size(fields); ++i)
        writeLittle32(bytes.data() + 4 * i, fields[i]);
    return bytes;
}

StreamFormat decodeStreamFormat(const uint8_t* bytes) {
    StreamFormat format;
    format.sampleRate = readLittle32(bytes);
    format.inputChannels = readLittle32(bytes + 4);
    format.inputChannelMask = readLittle32(bytes + 8);
    format.outputChannels = readLittle32(bytes + 12);
    format.outputChannelMask = readLittle32(bytes + 16);
    return format;
}
