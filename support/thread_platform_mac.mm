#include "support/thread_platform.h"

#import <Foundation/Foundation.h>
#include <fcntl.h>
#include <pthread/qos.h>
#include <unistd.h>

namespace Vesk::threadPlatform {

// macOS has no pipe2. A fork-and-exec in another thread between the calls could leak the ends;
// the adapter starts no programs, so the short window is accepted.
bool createPipe(int fds[2]) {
    if (::pipe(fds) != 0)
        return false;
    for (int i = 0; i < 2; ++i) {
        ::fcntl(fds[i], F_SETFD, FD_CLOEXEC);
        ::fcntl(fds[i], F_SETFL, ::fcntl(fds[i], F_GETFL) | O_NONBLOCK);
    }
    return true;
}

void prepareForThreads() {
    // Cocoa switches to multithreaded mode once any NSThread has been started; this one has
    // nothing to do. A running thread keeps itself alive, so our reference can go at once.
    if (![NSThread isMultiThreaded]) {
        NSThread* nothing = [[NSThread alloc] init];
        [nothing start];
        [nothing release];
    }
}

// MAXTHREADNAMESIZE less the terminating zero.
size_t threadNameLimit() {
    return 63;
}

void setCurrentThreadName(const std::string& name) {
    @autoreleasepool {
        [[NSThread currentThread] setName:[NSString stringWithUTF8String:name.c_str()]];
    }
}

void setSchedulingAttributes(pthread_attr_t& attributes, uint32_t qosClass,
                             int32_t relativePriority, int policy, const sched_param& parameter) {
    if (qosClass != 0)
        ::pthread_attr_set_qos_class_np(&attributes, static_cast<qos_class_t>(qosClass),
                                        relativePriority);
    if (policy >= 0) {
        ::pthread_attr_setschedpolicy(&attributes, policy);
        ::pthread_attr_setschedparam(&attributes, &parameter);
    }
}

void applySchedulingOnThread(uint32_t, int32_t, int, const sched_param&) {}

uint32_t qualityOfServiceOfCallingThread(int32_t& relativePriority) {
    qos_class_t qosClass = QOS_CLASS_UNSPECIFIED;
    int relative = 0;
    if (::pthread_get_qos_class_np(::pthread_self(), &qosClass, &relative) != 0)
        return 0;
    relativePriority = relative;
    return static_cast<uint32_t>(qosClass);
}

void runInReleaseScope(void (*body)(void*), void* context) {
    @autoreleasepool {
        body(context);
    }
}

} // namespace Vesk::threadPlatform
