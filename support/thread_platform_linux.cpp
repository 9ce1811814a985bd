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

void setQualityOfService(pthread_attr_t&, uint32_t, int32_t) {
    // Attributes cannot carry a nice value; the new thread applies it to itself.
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
} // namespace

void applyQualityOfServiceOnThread(uint32_t qosClass, int32_t relativePriority) {
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

uint32_t qualityOfServiceOfCallingThread(int32_t& relativePriority) {
    relativePriority = 0;
    return 0;
}

void runInReleaseScope(void (*body)(void*), void* context) {
    body(context);
}

} // namespace Vesk::threadPlatform
