#include "support/thread_platform.h"

#include <algorithm>
#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace Vesk::threadPlatform {

// pipe2 sets close-on-exec atomically, so a fork in another thread cannot leak the ends.
bool createPipe(int fds[2]) {
    return ::pipe2(fds, O_CLOEXEC | O_NONBLOCK) == 0;
}

void prepareForThreads() {}

// The kernel's task comm field holds 16 bytes with the terminating zero.
size_t threadNameLimit() {
    return 15;
}

void setCurrentThreadName(const std::string& name) {
    ::pthread_setname_np(::pthread_self(), name.c_str());
}

void setSchedulingAttributes(pthread_attr_t&, uint32_t, int32_t, int, const sched_param&) {
    // Attributes cannot carry a nice value; the new thread applies it to itself, and the policy
    // with it (applySchedulingOnThread).
}

namespace {
int niceForClass(uint32_t qosClass) {
    switch (qosClass) {
    case qosUserInteractive:
        return -10;
    case qosUserInitiated:
        return -5;
    case qosUtility:
        return 10;
    case qosBackground:
        return 19;
    default:
        return 0;
    }
}

void applyQualityOfService(uint32_t qosClass, int32_t relativePriority) {
    if (qosClass == 0)
        return;
    if (qosClass == qosBackground) {
        sched_param none{};
        ::pthread_setschedparam(::pthread_self(), SCHED_IDLE, &none);
    }
    const int nice = std::clamp(niceForClass(qosClass) - std::min(relativePriority, 0), -20, 19);
    // On Linux the nice value belongs to the thread whose id is given. Raising priority needs
    // privileges; without them the thread keeps the nice value it inherited.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), nice);
}

} // namespace

void applySchedulingOnThread(uint32_t qosClass, int32_t relativePriority, int policy,
                             const sched_param& parameter) {
    applyQualityOfService(qosClass, relativePriority);
    // Set by the thread itself rather than through the attributes: glibc's attributes take only
    // SCHED_OTHER and the real-time policies, and a policy the caller may not use (EPERM) then
    // leaves the thread running with the inherited one instead of failing the start.
    if (policy >= 0)
        ::pthread_setschedparam(::pthread_self(), policy, &parameter);
}

uint32_t qualityOfServiceOfCallingThread(int32_t& relativePriority) {
    relativePriority = 0;
    return 0;
}

void runInReleaseScope(void (*body)(void*), void* context) {
    body(context);
}

} // namespace Vesk::threadPlatform
