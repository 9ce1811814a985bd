// Calls the real-time sanitizer of LLVM 19 does not intercept, which a plug-in's audio thread
// must not make either: non-blocking lock attempts (they spin or fail under contention and
// mark a design that shares a lock with the audio thread), semaphores, plain descriptor I/O,
// polling, memory mapping and the clock sleep. Defined in the probe's executable, so that the
// dynamic linker binds plug-ins' calls here first; each passes through to the C library outside
// the window. What no interposer sees: system calls made directly, and allocators or locks
// linked statically into a plug-in.

#include "checks/realtime/realtime_window.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

namespace {

// The C library's definition that ours hides.
template <typename Function> Function* nextDefinition(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void refuseInsideWindow(const char* name) {
    if (insideRealtimeWindow())
        reportRealtimeViolation(name);
}

} // namespace

extern "C" {

int pthread_mutex_trylock(pthread_mutex_t* mutex) {
    refuseInsideWindow("pthread_mutex_trylock");
    static auto* const next = nextDefinition<int(pthread_mutex_t * mutex)>("pthread_mutex_trylock");
    return next(mutex);
}

int pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec* until) {
    refuseInsideWindow("pthread_mutex_timedlock");
    static auto* const next = nextDefinition<int(pthread_mutex_t * mutex, const timespec* until)>(
        "pthread_mutex_timedlock");
    return next(mutex, until);
}

int pthread_rwlock_tryrdlock(pthread_rwlock_t* lock) {
    refuseInsideWindow("pthread_rwlock_tryrdlock");
    static auto* const next =
        nextDefinition<int(pthread_rwlock_t * lock)>("pthread_rwlock_tryrdlock");
    return next(lock);
}

int pthread_rwlock_trywrlock(pthread_rwlock_t* lock) {
    refuseInsideWindow("pthread_rwlock_trywrlock");
    static auto* const next =
        nextDefinition<int(pthread_rwlock_t * lock)>("pthread_rwlock_trywrlock");
    return next(lock);
}

int pthread_rwlock_timedrdlock(pthread_rwlock_t* lock, const timespec* until) {
    refuseInsideWindow("pthread_rwlock_timedrdlock");
    static auto* const next = nextDefinition<int(pthread_rwlock_t * lock, const timespec* until)>(
        "pthread_rwlock_timedrdlock");
    return next(lock, until);
}

int pthread_rwlock_timedwrlock(pthread_rwlock_t* lock, const timespec* until) {
    refuseInsideWindow("pthread_rwlock_timedwrlock");
    static auto* const next = nextDefinition<int(pthread_rwlock_t * lock, const timespec* until)>(
        "pthread_rwlock_timedwrlock");
    return next(lock, until);
}

int sem_wait(sem_t* semaphore) {
    refuseInsideWindow("sem_wait");
    static auto* const next = nextDefinition<int(sem_t * semaphore)>("sem_wait");
    return next(semaphore);
}

int sem_timedwait(sem_t* semaphore, const timespec* until) {
    refuseInsideWindow("sem_timedwait");
    static auto* const next =
        nextDefinition<int(sem_t * semaphore, const timespec* until)>("sem_timedwait");
    return next(semaphore, until);
}

ssize_t read(int descriptor, void* bytes, size_t count) {
    refuseInsideWindow("read");
    static auto* const next =
        nextDefinition<ssize_t(int descriptor, void* bytes, size_t count)>("read");
    return next(descriptor, bytes, count);
}

ssize_t write(int descriptor, const void* bytes, size_t count) {
    refuseInsideWindow("write");
    static auto* const next =
        nextDefinition<ssize_t(int descriptor, const void* bytes, size_t count)>("write");
    return next(descriptor, bytes, count);
}

ssize_t pread64(int descriptor, void* bytes, size_t count, off64_t at) {
    refuseInsideWindow("pread64");
    static auto* const next =
        nextDefinition<ssize_t(int descriptor, void* bytes, size_t count, off64_t at)>("pread64");
    return next(descriptor, bytes, count, at);
}

ssize_t pwrite64(int descriptor, const void* bytes, size_t count, off64_t at) {
    refuseInsideWindow("pwrite64");
    static auto* const next =
        nextDefinition<ssize_t(int descriptor, const void* bytes, size_t count, off64_t at)>(
            "pwrite64");
    return next(descriptor, bytes, count, at);
}

ssize_t readv(int descriptor, const iovec* parts, int count) {
    refuseInsideWindow("readv");
    static auto* const next =
        nextDefinition<ssize_t(int descriptor, const iovec* parts, int count)>("readv");
    return next(descriptor, parts, count);
}

ssize_t writev(int descriptor, const iovec* parts, int count) {
    refuseInsideWindow("writev");
    static auto* const next =
        nextDefinition<ssize_t(int descriptor, const iovec* parts, int count)>("writev");
    return next(descriptor, parts, count);
}

int poll(pollfd* descriptors, nfds_t count, int milliseconds) {
    refuseInsideWindow("poll");
    static auto* const next =
        nextDefinition<int(pollfd * descriptors, nfds_t count, int milliseconds)>("poll");
    return next(descriptors, count, milliseconds);
}

int select(int count, fd_set* reads, fd_set* writes, fd_set* errors, timeval* limit) {
    refuseInsideWindow("select");
    static auto* const next = nextDefinition<int(int count, fd_set* reads, fd_set* writes,
                                                 fd_set* errors, timeval* limit)>("select");
    return next(count, reads, writes, errors, limit);
}

int epoll_wait(int descriptor, epoll_event* events, int count, int milliseconds) {
    refuseInsideWindow("epoll_wait");
    static auto* const next =
        nextDefinition<int(int descriptor, epoll_event* events, int count, int milliseconds)>(
            "epoll_wait");
    return next(descriptor, events, count, milliseconds);
}

void* mmap64(void* address, size_t size, int protection, int flags, int descriptor, off64_t at) {
    refuseInsideWindow("mmap64");
    static auto* const next =
        nextDefinition<void*(void* address, size_t size, int protection, int flags, int descriptor,
                             off64_t at)>("mmap64");
    return next(address, size, protection, flags, descriptor, at);
}

int munmap(void* address, size_t size) {
    refuseInsideWindow("munmap");
    static auto* const next = nextDefinition<int(void* address, size_t size)>("munmap");
    return next(address, size);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* wanted, timespec* left) {
    refuseInsideWindow("clock_nanosleep");
    static auto* const next =
        nextDefinition<int(clockid_t clock, int flags, const timespec* wanted, timespec* left)>(
            "clock_nanosleep");
    return next(clock, flags, wanted, left);
}

ssize_t pread(int descriptor, void* bytes, size_t count, off_t at) {
    return pread64(descriptor, bytes, count, at);
}

ssize_t pwrite(int descriptor, const void* bytes, size_t count, off_t at) {
    return pwrite64(descriptor, bytes, count, at);
}

void* mmap(void* address, size_t size, int protection, int flags, int descriptor, off_t at) {
    return mmap64(address, size, protection, flags, descriptor, at);
}

} // extern "C"
