#include "support/buffered_streams.h"

#include <algorithm>
#include <cstring>

namespace Vesk {

bufferedStreamOut::bufferedStreamOut(std::shared_ptr<streamOut> sink, size_t capacity)
    : sink(std::move(sink)), buffer(std::max<size_t>(capacity, 1)) {}

bufferedStreamOut::~bufferedStreamOut() {
    try {
        drain();
    } catch (...) {
        // A destructor must not throw; the explicit flush at the end of a run reports failures.
    }
}

void bufferedStreamOut::write(const void* data, uint64_t length) {
    // Nothing to copy; `data` may then be null (an empty vector's data()), which memcpy must
    // not be given even for zero bytes.
    if (length == 0)
        return;
    const auto* bytes = static_cast<const unsigned char*>(data);
    if (used + length > buffer.size())
        drain();
    // What fills the buffer by itself gains nothing from a copy.
    if (length >= buffer.size()) {
        sink->write(bytes, length);
        return;
    }
    std::memcpy(buffer.data() + used, bytes, length);
    used += length;
}

uint8_t* bufferedStreamOut::lendSpace(uint64_t length) {
    if (length == 0 || length >= buffer.size())
        return nullptr;
    if (used + length > buffer.size())
        drain();
    return buffer.data() + used;
}

void bufferedStreamOut::commitLent(uint64_t length) {
    used += length;
}

void bufferedStreamOut::flush() {
    drain();
    sink->flush();
}

void bufferedStreamOut::drain() {
    if (used == 0)
        return;
    // Forget the bytes before writing: after a failed write they are lost either way, and a
    // second attempt from the destructor would only fail again.
    const size_t count = used;
    used = 0;
    sink->write(buffer.data(), count);
}

bufferedStreamIn::bufferedStreamIn(std::shared_ptr<streamIn> source,
                                   std::shared_ptr<streamOut> linkedOutput, size_t capacity)
    : source(std::move(source)), linkedOutput(std::move(linkedOutput)),
      buffer(std::max<size_t>(capacity, 1)) {}

uint64_t bufferedStreamIn::take(unsigned char* destination, uint64_t length) {
    const uint64_t count = std::min<uint64_t>(length, end - start);
    if (count == 0)
        return 0;
    std::memcpy(destination, buffer.data() + start, count);
    start += count;
    return count;
}

void bufferedStreamIn::flushBeforeWaiting() {
    if (linkedOutput != nullptr && !source->isReady())
        linkedOutput->flush();
}

uint64_t bufferedStreamIn::refill(bool mayWait) {
    start = 0;
    end = 0;
    if (!mayWait && !source->isReady())
        return 0;
    if (mayWait)
        flushBeforeWaiting();
    end = source->readSome(buffer.data(), buffer.size());
    return end;
}

uint64_t bufferedStreamIn::read(void* data, uint64_t length) {
    auto* bytes = static_cast<unsigned char*>(data);
    uint64_t done = take(bytes, length);
    while (done < length) {
        // Large reads go straight into the caller's memory.
        if (length - done >= buffer.size()) {
            flushBeforeWaiting();
            const uint64_t got = source->readSome(bytes + done, length - done);
            if (got == 0)
                break;
            done += got;
            continue;
        }
        if (refill(true) == 0)
            break;
        done += take(bytes + done, length - done);
    }
    return done;
}

uint64_t bufferedStreamIn::readSome(void* data, uint64_t length) {
    if (length == 0)
        return 0;
    auto* bytes = static_cast<unsigned char*>(data);
    uint64_t done = take(bytes, length);
    if (done == 0) {
        if (refill(true) == 0)
            return 0;
        done = take(bytes, length);
    }
    // Top up with what the source has at hand, so runs stay long while data flows.
    while (done < length && refill(false) != 0)
        done += take(bytes + done, length - done);
    return done;
}

std::span<const uint8_t> bufferedStreamIn::lendSome() {
    return {buffer.data() + start, end - start};
}

void bufferedStreamIn::consumeLent(uint64_t count) {
    start += std::min<uint64_t>(count, end - start);
}

void bufferedStreamIn::waitReady() {
    if (start == end) {
        flushBeforeWaiting();
        source->waitReady();
    }
}

bool bufferedStreamIn::isReady() {
    return start < end || source->isReady();
}

} // namespace Vesk
