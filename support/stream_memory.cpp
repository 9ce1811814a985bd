#include "support/stream_memory.h"

#include "support/errors.h"

#include <algorithm>
#include <cstring>

namespace Vesk {

uint64_t streamInMemRef::read(void* buffer, uint64_t length) {
    const uint64_t count = std::min(size - position, length);
    if (count > 0)
        std::memcpy(buffer, base + position, count);
    position += count;
    return count;
}

uint64_t streamInMemRef::skip(uint64_t count) {
    const uint64_t done = std::min(size - position, count);
    position += done;
    return done;
}

uint64_t streamInRepeat::read(void* buffer, uint64_t length) {
    if (patternLength == 0)
        return 0;
    auto* out = static_cast<unsigned char*>(buffer);
    uint64_t done = 0;
    while (done < length) {
        const uint64_t piece = std::min(patternLength - next, length - done);
        std::memcpy(out + done, pattern + next, piece);
        done += piece;
        next = (next + piece) % patternLength;
    }
    return done;
}

uint64_t fileInMemRef::read(void* buffer, uint64_t count) {
    const uint64_t done = std::min(length - position, count);
    if (done > 0)
        std::memcpy(buffer, base + position, done);
    position += done;
    return done;
}

uint64_t fileInMemRef::skip(uint64_t count) {
    const uint64_t done = std::min(length - position, count);
    position += done;
    return done;
}

void fileInMemRef::seek(uint64_t target) {
    if (target > length)
        throw invalid_input();
    position = target;
}

} // namespace Vesk
