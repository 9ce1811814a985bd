#include "hosting/speaker_layout.h"

#include <array>
#include <bit>

namespace speaker_layout {
namespace {

struct KnownArrangement {
    int32_t type;
    uint32_t mask;
};

constexpr std::array<KnownArrangement, 5> knownArrangements{{
    {kSpeakerArrMono, 0x4},
    {kSpeakerArrStereo, 0x3},
    {kSpeakerArr40Music, 0x33},
    {kSpeakerArr51, 0x3F},
    {kSpeakerArr71Music, 0x63F},
}};

constexpr uint32_t monoMask = 0x4;
constexpr int maximumSpeakers = 8;

} // namespace

int bitCount(uint32_t mask) {
    return std::popcount(mask);
}

uint32_t maskForArrangement(int32_t arrangementType) {
    for (const auto& known : knownArrangements)
        if (known.type == arrangementType)
            return known.mask;
    return 0;
}

VstSpeakerArrangement arrangementForMask(uint32_t mask, uint32_t channels) {
    VstSpeakerArrangement arrangement{};
    arrangement.numChannels = static_cast<int32_t>(channels);
    arrangement.type = kSpeakerArrUserDefined;
    for (const auto& known : knownArrangements)
        if (known.mask == mask)
            arrangement.type = known.type;
    if (mask == monoMask)
        return arrangement;
    int speaker = 0;
    for (int bit = 0; bit < 32 && speaker < maximumSpeakers; ++bit) {
        if (mask & (1u << bit))
            arrangement.speakers[speaker++].type = bit + 1;
    }
    return arrangement;
}

} // namespace speaker_layout
