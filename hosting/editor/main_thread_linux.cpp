#include "hosting/editor/main_thread.h"
#include "hosting/editor/main_thread_queue_linux.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

MainThreadQueue& MainThreadQueue::instance() {
    static MainThreadQueue queue;
    return queue;
}

MainThreadQueue::MainThreadQueue() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        throw std::system_error(errno, std::generic_category(),
                                "Could not make the main thread's wake-up pipe");
    readEnd = ends[0];
    writeEnd = ends[1];
}

MainThreadQueue::~MainThreadQueue() {
    ::close(readEnd);
    ::close(writeEnd);
}

void MainThreadQueue::post(std::function<void()> function) {
    {
        std::lock_guard guard(lock);
        pending.push_back(std::move(function));
    }
    const char wake = 1;
    // EAGAIN: the pipe is full of wake-ups already, which is all that is needed.
    [[maybe_unused]] const auto written = ::write(writeEnd, &wake, 1);
}

void MainThreadQueue::runPending() {
    char drained[64];
    while (::read(readEnd, drained, sizeof drained) > 0) {
    }
    std::deque<std::function<void()>> batch;
    {
        std::lock_guard guard(lock);
        batch.swap(pending);
    }
    for (auto& function : batch)
        function();
}

void runOnMainThread(std::function<void()> function) {
    MainThreadQueue::instance().post(std::move(function));
}
