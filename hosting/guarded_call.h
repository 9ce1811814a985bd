#pragma once

#include "hosting/plugin_stage.h"

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

// Plug-in code whose failure ends the command: whatever it throws, of any type, comes back as
// PluginThrew naming the calling thread's stage, so that it is reported in one line and never
// reaches std::terminate through code that cannot know the plug-in's exception types.
template <typename Call> decltype(auto) callPlugin(Call&& call) {
    try {
        return std::forward<Call>(call)();
    } catch (...) {
        throw PluginThrew();
    }
}
