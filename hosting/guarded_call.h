#pragma once

#include <utility>

// Runs plug-in code so that nothing it throws escapes into our own: an exception becomes a
// false result, and the caller decides what to report.
template <typename Call> bool guardedCall(Call&& call) noexcept {
    try {
        std::forward<Call>(call)();
        return true;
    } catch (...) {
        return false;
    }
}
