// The realtime-safety check's helper, started by that check's child only:
//   vst-adapter-realtime-probe probe --vst PATH --level N --vst-version V --warm-up N --calls N
//                              [--watch 0]
// Linked with LLVM's real-time sanitizer runtime and our own interceptors (checks/realtime/), so
// the first allocation, lock or blocking call inside a marked process call ends it with status 1
// and a report on standard error. Status 0 (the marked calls' seconds on standard output) when
// none did; 2 with one line on standard error when the plug-in could not be run.

#include "app/arguments.h"
#include "checks/realtime/realtime_window.h"

#include <cstdio>
#include <exception>

namespace {

constexpr int unusable = 2;

void unwatched() {}

// "--watch 0" runs the same calls unwatched: what the watch costs, for the benchmarks.
RealtimeMarkers markersFor(const ArgumentMap& arguments) {
    const auto watch = findArgument(arguments, "--watch");
    return watch && *watch == "0" ? RealtimeMarkers{unwatched, unwatched} : realtimeWindowMarkers();
}

uint32_t count(const ArgumentMap& arguments, const char* key) {
    const int value = getIntOption(arguments, key);
    return value < 0 ? 0 : static_cast<uint32_t>(value);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc % 2 != 0) {
        std::fputs("vst-adapter-realtime-probe: the realtime-safety check's helper\n", stderr);
        return unusable;
    }
    try {
        const ArgumentMap arguments = argumentsFromCommandLine(argc, argv);
        const auto path = findArgument(arguments, "--vst");
        if (!path) {
            std::fputs("no --vst\n", stderr);
            return unusable;
        }
        const CheckTarget target{*path,
                                 getIntOption(arguments, "--vst-version"),
                                 getIntOption(arguments, "--level"),
                                 {}};
        const double seconds =
            probeRealtimeSafety(target, count(arguments, "--warm-up"), count(arguments, "--calls"),
                                markersFor(arguments));
        std::printf("%.9f\n", seconds);
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return unusable;
    }
}
