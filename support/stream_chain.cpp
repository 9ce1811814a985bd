#include "support/stream_chain.h"

namespace Vesk {

uint64_t streamInChain::readSome(void* buffer, uint64_t length) {
    auto* out = static_cast<unsigned char*>(buffer);
    uint64_t done = 0;
    if (holdsLookAhead && length > 0) {
        out[done++] = lookAhead;
        holdsLookAhead = false;
    }
    while (done < length && !sources.empty() && sources.front()->isReady()) {
        const uint64_t got = sources.front()->readSome(out + done, length - done);
        if (got == 0)
            sources.pop_front();
        done += got;
    }
    return done;
}

uint64_t streamInChain::skipSome(uint64_t count) {
    uint64_t done = 0;
    if (holdsLookAhead && count > 0) {
        ++done;
        holdsLookAhead = false;
    }
    while (done < count && !sources.empty() && sources.front()->isReady()) {
        const uint64_t got = sources.front()->skipSome(count - done);
        if (got == 0)
            sources.pop_front();
        done += got;
    }
    return done;
}

bool streamInChain::isReady() {
    if (holdsLookAhead || sources.empty())
        return true;
    for (;;) {
        if (!sources.front()->isReady())
            return false;
        if (sources.front()->readSome(&lookAhead, 1) == 1) {
            holdsLookAhead = true;
            return true;
        }
        sources.pop_front();
        if (sources.empty())
            return true;
    }
}

void streamInChain::waitReady() {
    if (holdsLookAhead || sources.empty())
        return;
    for (;;) {
        sources.front()->waitReady();
        if (sources.front()->readSome(&lookAhead, 1) == 1) {
            holdsLookAhead = true;
            return;
        }
        sources.pop_front();
        if (sources.empty())
            return;
    }
}

} // namespace Vesk
