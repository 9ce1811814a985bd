#include "support/stream.h"

#include "support/errors.h"

#include <algorithm>

namespace Vesk {
namespace {
constexpr uint64_t skipPiece = 256;
}

uint64_t streamIn::readExact(void* buffer, uint64_t length) {
    const uint64_t count = read(buffer, length);
    if (count != length)
        throw invalid_input();
    return count;
}

uint64_t streamIn::skip(uint64_t count) {
    unsigned char scratch[skipPiece];
    uint64_t done = 0;
    while (done < count) {
        const uint64_t piece = std::min(skipPiece, count - done);
        const uint64_t got = read(scratch, piece);
        done += got;
        if (got < piece)
            break;
    }
    return done;
}

uint64_t streamIn::skipExact(uint64_t count) {
    const uint64_t done = skip(count);
    if (done != count)
        throw invalid_input();
    return done;
}

uint64_t streamIn::readSome(void* buffer, uint64_t length) {
    return read(buffer, length);
}

uint64_t streamIn::skipSome(uint64_t count) {
    unsigned char scratch[skipPiece];
    uint64_t done = 0;
    while (done < count) {
        const uint64_t piece = std::min(skipPiece, count - done);
        const uint64_t got = readSome(scratch, piece);
        done += got;
        if (got < piece)
            break;
    }
    return done;
}

uint64_t streamOut::writeSome(const void* buffer, uint64_t length) {
    write(buffer, length);
    return length;
}

void writeInt32(streamOut& out, uint32_t value) {
    unsigned char bytes[4] = {
        static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
        static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
    out.write(bytes, sizeof bytes);
}

} // namespace Vesk
