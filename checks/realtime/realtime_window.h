#pragma once

#include "checks/realtime_probe.h"

// The real-time window of the probe's process: entering it arms the real-time sanitizer's
// interceptors and ours for the calling thread; leaving disarms them.
RealtimeMarkers realtimeWindowMarkers();
bool insideRealtimeWindow();

// Called by an interceptor of ours inside the window: writes the report (the call, then the
// stack) on standard error and ends the process with status 1.
[[noreturn]] void reportRealtimeViolation(const char* function);
