#include "hosting/vst2/speaker_layout.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <new>

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

SpeakerArrangementRecord::SpeakerArrangementRecord(uint32_t channels) {
    channels = std::min(channels, maximumChannels);
    const size_t speakers = std::max<size_t>(channels, maximumSpeakers);
    const size_t bytes =
        offsetof(VstSpeakerArrangement, speakers) + speakers * sizeof(VstSpeakerProperties);
    storage.assign((bytes + sizeof(uint64_t) - 1) / sizeof(uint64_t), 0);
    arrangement = new (storage.data()) VstSpeakerArrangement{};
    arrangement->numChannels = static_cast<int32_t>(channels);
}

SpeakerArrangementRecord arrangementForMask(uint32_t mask, uint32_t channels) {
    SpeakerArrangementRecord record(channels);
    VstSpeakerArrangement& arrangement = record.get();
    arrangement.type = kSpeakerArrUserDefined;
    for (const auto& known : knownArrangements)
        if (known.mask == mask)
            arrangement.type = known.type;
    if (mask == monoMask)
        return record;
    int speaker = 0;
    for (int bit = 0; bit < 32 && speaker < maximumSpeakers; ++bit) {
        if (mask & (1u << bit))
            arrangement.speakers[speaker++].type = bit + 1;
    }
    return record;
}

} // namespace speaker_layout
