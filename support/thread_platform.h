#pragma once

#include <cstddef>
#include <cstdint>
#include <pthread.h>
#include <string>

// The operating-system side of threads and waitables: one implementation file per platform
// (thread_platform_linux.cpp, thread_platform_mac.mm).
//
// Quality-of-service classes keep their macOS numbers so that a scheduling record means the
// same everywhere. macOS applies them natively. Linux has no such classes; a new thread maps
// them onto its own nice value (per thread on Linux) and, for background, SCHED_IDLE:
//   user-interactive  nice -10    (only with CAP_SYS_NICE or RLIMIT_NICE, else left at 0)
//   user-initiated    nice -5     (same)
//   default           nice 0
//   utility           nice 10
//   background        SCHED_IDLE, nice 19
// The relative priority (0 to -15, lower within the class) is added as a positive nice
// offset, up to 19. An explicit scheduling policy in the record is applied after this.
namespace Vesk::threadPlatform {

constexpr uint32_t qosUserInteractive = 0x21;
constexpr uint32_t qosUserInitiated = 0x19;
constexpr uint32_t qosDefault = 0x15;
constexpr uint32_t qosUtility = 0x11;
constexpr uint32_t qosBackground = 0x09;

// pipe() with both ends close-on-exec; false (errno set) on failure.
bool createPipe(int fds[2]);

// Runs once before the first thread is created.
void prepareForThreads();

// Longest thread name, in bytes, that the platform keeps.
size_t threadNameLimit();

// Sets the calling thread's name; `name` already fits threadNameLimit().
void setCurrentThreadName(const std::string& name);

// Quality of service, then the policy and its parameter when `policy` is not negative: macOS
// puts them into the new thread's attributes, Linux applies them on the new thread itself.
void setSchedulingAttributes(pthread_attr_t& attributes, uint32_t qosClass,
                             int32_t relativePriority, int policy, const sched_param& parameter);
void applySchedulingOnThread(uint32_t qosClass, int32_t relativePriority, int policy,
                             const sched_param& parameter);

// The calling thread's class, to start another thread like it. Linux answers 0 (inherit): a
// new thread starts with its creator's nice value anyway.
uint32_t qualityOfServiceOfCallingThread(int32_t& relativePriority);

// Runs body(context) inside an autorelease scope where the platform has one. Objects the scope
// collects are freed only when the body returns normally: bodies catch their own exceptions.
void runInReleaseScope(void (*body)(void*), void* context);

template <typename Body> void inReleaseScope(Body& body) {
    runInReleaseScope([](void* context) { (*static_cast<Body*>(context))(); }, &body);
}

} // namespace Vesk::threadPlatform
