#pragma once

#include "hosting/vst2/vst2_abi.h"

#include <cstdint>
#include <vector>

// Translation between speaker masks (WAVE extensible bits) and VST 2 arrangements.
namespace speaker_layout {

// The mask an arrangement type stands for; 0 for types without one.
uint32_t maskForArrangement(int32_t arrangementType);

// A speaker arrangement with room for as many speakers as it claims: plug-ins read
// `numChannels` entries, while the record itself has room for 8. Zeroed past the filled ones.
class SpeakerArrangementRecord {
  public:
    // Counts above this are told as this many: no plug-in has that many pins.
    static constexpr uint32_t maximumChannels = 4096;

    explicit SpeakerArrangementRecord(uint32_t channels);
    // Moves keep the storage, and with it the record's address; copies would not.
    SpeakerArrangementRecord(SpeakerArrangementRecord&&) noexcept = default;
    SpeakerArrangementRecord(const SpeakerArrangementRecord&) = delete;
    SpeakerArrangementRecord& operator=(const SpeakerArrangementRecord&) = delete;
    VstSpeakerArrangement& get() { return *arrangement; }

  private:
    std::vector<uint64_t> storage;
    VstSpeakerArrangement* arrangement;
};

// The arrangement for `channels` channels with `mask`: a known type when the mask matches one,
// else user-defined, with one speaker per set bit (at most 8; none for plain mono).
SpeakerArrangementRecord arrangementForMask(uint32_t mask, uint32_t channels);

int bitCount(uint32_t mask);

} // namespace speaker_layout
