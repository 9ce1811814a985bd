#include "support/thread.h"

#include "support/errors.h"
#include "support/thread_abort.h"
#include "support/thread_platform.h"

#include <memory>
#include <mutex>
#include <utility>

namespace Vesk {

std::string platformThreadName(const std::string& name, size_t limit) {
    if (name.size() <= limit)
        return name;
    if (limit < 3)
        return name.substr(0, limit);
    auto isContinuation = [&](size_t i) {
        return (static_cast<unsigned char>(name[i]) & 0xC0) == 0x80;
    };
    size_t head = (limit - 1) / 2;
    while (head > 0 && isContinuation(head))
        --head;
    size_t tail = name.size() - (limit - 1 - head);
    while (tail < name.size() && isContinuation(tail))
        ++tail;
    return name.substr(0, head) + '~' + name.substr(tail);
}

thread::thread(std::string name) : threadName(std::move(name)) {}

thread::~thread() {
    stopAndJoin();
}

void thread::stopAndJoin() noexcept {
    if (!running)
        return;
    requestStop();
    ::pthread_join(handle, nullptr);
    running = false;
    failure = nullptr;
}

void thread::run(void*) {}

namespace {
struct startRecord {
    thread* owner;
    void* argument;
};
} // namespace

void thread::start(const threadScheduling& schedule, void* argument) {
    if (running)
        throw bug_check();
    static std::once_flag prepared;
    std::call_once(prepared, threadPlatform::prepareForThreads);

    // A stop request left over from an earlier run must not end this one at its first wait.
    stopper.reset();
    scheduling = schedule;
    failure = nullptr;

    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE);
    threadPlatform::setSchedulingAttributes(attributes, schedule.qosClass,
                                            schedule.relativePriority, schedule.policy,
                                            schedule.parameter);
    auto record = std::make_unique<startRecord>(startRecord{this, argument});
    // Set before the thread exists, so that its body may ask isCurrent() without a race.
    running = true;
    const int result = ::pthread_create(&handle, &attributes, &thread::entry, record.get());
    ::pthread_attr_destroy(&attributes);
    if (result != 0) {
        running = false;
        throw bug_check();
    }
    record.release();
}

void* thread::entry(void* raw) {
    const std::unique_ptr<startRecord> record(static_cast<startRecord*>(raw));
    record->owner->body(record->argument);
    return nullptr;
}

void thread::body(void* argument) {
    if (!threadName.empty())
        threadPlatform::setCurrentThreadName(
            platformThreadName(threadName, threadPlatform::threadNameLimit()));
    threadPlatform::applySchedulingOnThread(scheduling.qosClass, scheduling.relativePriority,
                                            scheduling.policy, scheduling.parameter);
    currentAborterScope abortScope(stopper);
    struct call {
        thread* self;
        void* argument;
    } context{this, argument};
    threadPlatform::runInReleaseScope(
        [](void* raw) {
            auto* c = static_cast<call*>(raw);
            // Kept for join(): an exception may not unwind through the platform's thread entry.
            try {
                c->self->run(c->argument);
            } catch (...) {
                c->self->failure = std::current_exception();
            }
        },
        &context);
}

void thread::join() {
    if (!running)
        return;
    ::pthread_join(handle, nullptr);
    handle = {};
    running = false;
    if (!failure)
        return;
    const std::exception_ptr caught = std::exchange(failure, nullptr);
    try {
        std::rethrow_exception(caught);
    } catch (const user_abort&) {
        if (!stopper.isSet())
            throw;
    }
}

bool thread::isCurrent() const {
    return running && ::pthread_equal(handle, ::pthread_self());
}

threadScheduling schedulingOfCallingThread() {
    threadScheduling scheduling;
    scheduling.qosClass =
        threadPlatform::qualityOfServiceOfCallingThread(scheduling.relativePriority);
    int policy = 0;
    if (::pthread_getschedparam(::pthread_self(), &policy, &scheduling.parameter) == 0)
        scheduling.policy = policy;
    return scheduling;
}

} // namespace Vesk
