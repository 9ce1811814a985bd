#include "hosting/vst3/vst3_speakers.h"

#include <array>
#include <bit>

namespace vst3_speakers {

namespace {

struct KnownType {
    int32_t type;
    uint64_t mask;
};

constexpr std::array<KnownType, 5> knownTypes{{
    {kSpeakerArrMono, monoMask},
    {kSpeakerArrStereo, 0x3},
    {kSpeakerArr40Music, 0x33},
    {kSpeakerArr51, 0x3F},
    {kSpeakerArr71Music, 0x63F},
}};

// VST 2 speaker n (L = 1, R, C, Lfe, Ls, Rs, Lc, Rc, ...) is VST 3 bit n - 1; VST 2's own
// mono speaker (0) is VST 3's M.
std::optional<uint64_t> speakerBit(int32_t vst2Speaker) {
    if (vst2Speaker == kSpeakerM)
        return monoMask;
    if (vst2Speaker >= 1 && vst2Speaker <= 64)
        return uint64_t{1} << (vst2Speaker - 1);
    return std::nullopt;
}

} // namespace

std::optional<uint64_t> fromVst2(const VstSpeakerArrangement& arrangement) {
    if (arrangement.type == kSpeakerArrEmpty)
        return 0;
    for (const auto& known : knownTypes)
        if (known.type == arrangement.type)
            return known.mask;
    if (arrangement.numChannels < 1 || arrangement.numChannels > kSpeakerArrMaxSpeakers)
        return std::nullopt;
    uint64_t mask = 0;
    for (int32_t channel = 0; channel < arrangement.numChannels; ++channel) {
        const auto bit = speakerBit(arrangement.speakers[channel].type);
        if (!bit || (mask & *bit))
            return std::nullopt; // unknown or repeated speaker: no arrangement says that
        mask |= *bit;
    }
    return mask;
}

int32_t vst2Type(uint64_t mask, int32_t channels) {
    if (channels == 1)
        return kSpeakerArrMono;
    if (channels == 2)
        return kSpeakerArrStereo;
    for (const auto& known : knownTypes)
        if (known.mask == mask)
            return known.type;
    return kSpeakerArrUserDefined;
}

VstSpeakerArrangement toVst2(uint64_t mask) {
    VstSpeakerArrangement arrangement{};
    const int channels = std::popcount(mask);
    arrangement.numChannels = channels;
    arrangement.type = vst2Type(mask, channels);
    int speaker = 0;
    for (int bit = 0; bit < 64 && speaker < kSpeakerArrMaxSpeakers; ++bit) {
        const uint64_t value = uint64_t{1} << bit;
        if ((mask & value) == 0)
            continue;
        arrangement.speakers[speaker++].type = value == monoMask ? kSpeakerM : bit + 1;
    }
    return arrangement;
}

} // namespace vst3_speakers
