#include "support/thread_abort.h"

#include "support/errors.h"
#include "support/waitable.h"

#include <utility>

namespace Vesk {
namespace {
thread_local aborter* current = nullptr;
} // namespace

int currentAbortDescriptor() noexcept {
    return current ? current->descriptor() : -1;
}

aborter* currentAborter() noexcept {
    return current;
}

void throwIfStopRequested() {
    if (current != nullptr && current->isSet())
        throw user_abort();
}

aborter* setCurrentAborter(aborter* stopper) noexcept {
    return std::exchange(current, stopper);
}

} // namespace Vesk
