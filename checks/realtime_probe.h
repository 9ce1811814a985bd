#pragma once

#include "checks/check.h"

#include <cstdint>

// The helper program of the realtime-safety check: its process is linked with a runtime that
// stops it at the first allocation, lock or blocking call made inside a marked window. The
// portable part is here; the window's markers are the platform's.
struct RealtimeMarkers {
    void (*enter)();
    void (*leave)();
};

// Opens the plug-in as the checks do, processes `warmUpCalls` blocks unmarked, then
// `markedCalls` blocks each inside the window (parameters change between some of them, outside
// it). Returns the seconds the marked calls took (the watch's cost shows against the speed
// check); throws std::runtime_error when the plug-in cannot be opened or set up.
double probeRealtimeSafety(const CheckTarget& target, uint32_t warmUpCalls, uint32_t markedCalls,
                           const RealtimeMarkers& markers);
