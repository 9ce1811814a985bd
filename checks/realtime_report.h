#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The first call the real-time probe caught, read from its standard error: the real-time
// sanitizer's report or our interceptors' (the same frame layout).
struct RealtimeViolation {
    std::string call;                   // "malloc", "pthread_mutex_lock", "read"...
    std::string origin;                 // "function (module)": the first caller outside the
                                        // C and C++ runtimes, which only pass calls on
    std::string library;                // that caller's module (or source file)
    std::vector<std::string> backtrace; // "function (module)", from the caller outwards
};

// Null when the text holds no report.
std::optional<RealtimeViolation> readRealtimeViolation(std::string_view text);
