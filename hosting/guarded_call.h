#pragma once

#include <utility>

// The one guard where plug-in code and ours meet: runs plug-in code so that nothing it throws
// escapes into our own, and our answers to the plug-in so that nothing escapes back into it. An
// exception becomes a false result, and the caller decides what to report or answer.
template <typename Call> bool guardedCall(Call&& call) noexcept {
    try {
        std::forward<Call>(call)();
        return true;
    } catch (...) {
        return false;
    }
}
