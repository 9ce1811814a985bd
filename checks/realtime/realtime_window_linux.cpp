#include "checks/realtime/realtime_window.h"

#include <cstdlib>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

// The real-time sanitizer's runtime, linked into the probe only.
extern "C" void __rtsan_realtime_enter();
extern "C" void __rtsan_realtime_exit();

namespace {

// Per thread, as the sanitizer's own context is: only the probe's processing thread is marked.
thread_local bool inWindow = false;

void enterWindow() {
    inWindow = true;
    __rtsan_realtime_enter();
}

void leaveWindow() {
    __rtsan_realtime_exit();
    inWindow = false;
}

} // namespace

RealtimeMarkers realtimeWindowMarkers() {
    return {enterWindow, leaveWindow};
}

bool insideRealtimeWindow() {
    return inWindow;
}

void reportRealtimeViolation(const char* function) {
    // Our line names the call; the stack comes from the sanitizer, whose symbolizer reads the
    // modules' full symbol tables: an allocation made here, still inside the window, ends the
    // process with its report. The line goes out by the system call itself, past the
    // interceptors.
    for (const std::string_view part :
         {std::string_view("real-time probe: `"), std::string_view(function),
          std::string_view("` called inside the real-time window\n")})
        syscall(SYS_write, STDERR_FILENO, part.data(), part.size());
    void* volatile reported = std::malloc(1);
    std::free(reported);
    _exit(1);
}
