#include "hosting/vst3/vst3_preset_layout.h"

#include <algorithm>
#include <cstring>

namespace vst3_preset_layout {

namespace {

constexpr uint64_t classIdAt = 8;
constexpr uint64_t listOffsetAt = 40;
constexpr uint64_t listHeadBytes = 8; // "List" and the entry count
constexpr uint64_t entryBytes = 20;
// The reader keeps this many entries and ignores the rest.
constexpr int64_t readerEntryLimit = 128;

// Little-endian, as the reader reads them on the machines we build for.
int64_t signedAt(std::span<const uint8_t> bytes, uint64_t at, unsigned width) {
    uint64_t value = 0;
    for (unsigned byte = width; byte-- > 0;)
        value = (value << 8) | bytes[at + byte];
    if (width < 8 && (value >> (8 * width - 1)) != 0)
        value |= ~uint64_t{0} << (8 * width);
    return static_cast<int64_t>(value);
}

bool idIs(std::span<const uint8_t> bytes, uint64_t at, const char (&id)[5]) {
    return std::memcmp(bytes.data() + at, id, 4) == 0;
}

// Offsets and sizes come from the file: compared in unsigned 64 bits, one at a time, so that
// nothing can wrap.
bool fitsInside(int64_t offset, int64_t size, uint64_t total) {
    return offset >= 0 && size >= 0 && static_cast<uint64_t>(offset) <= total &&
           static_cast<uint64_t>(size) <= total - static_cast<uint64_t>(offset);
}

} // namespace

bool isSound(std::span<const uint8_t> bytes) {
    const uint64_t total = bytes.size();
    if (total < headerBytes || !idIs(bytes, 0, "VST3"))
        return false;
    const int64_t listOffset = signedAt(bytes, listOffsetAt, 8);
    if (listOffset < static_cast<int64_t>(headerBytes) ||
        !fitsInside(listOffset, static_cast<int64_t>(listHeadBytes), total))
        return false;
    const auto list = static_cast<uint64_t>(listOffset);
    if (!idIs(bytes, list, "List"))
        return false;
    // The reader stops at the first entry the bytes cannot hold; those before it are used.
    const int64_t declared = signedAt(bytes, list + 4, 4);
    const uint64_t room = (total - list - listHeadBytes) / entryBytes;
    const uint64_t entries =
        static_cast<uint64_t>(std::min(std::max<int64_t>(declared, 0), readerEntryLimit));
    const uint64_t read = std::min(entries, room);
    bool hasComponentState = false;
    for (uint64_t index = 0; index < read; ++index) {
        const uint64_t at = list + listHeadBytes + index * entryBytes;
        if (!fitsInside(signedAt(bytes, at + 4, 8), signedAt(bytes, at + 12, 8), total))
            return false;
        hasComponentState = hasComponentState || idIs(bytes, at, "Comp");
    }
    return hasComponentState;
}

std::string classIdText(std::span<const uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data() + classIdAt), classIdBytes};
}

} // namespace vst3_preset_layout
