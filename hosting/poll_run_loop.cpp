#include "hosting/poll_run_loop.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <system_error>

void PollRunLoop::addDescriptor(int fd, Handler onReadable) {
    auto handler = std::make_shared<Handler>(std::move(onReadable));
    for (auto& watch : watches)
        if (watch.fd == fd) {
            watch.handler = std::move(handler);
            return;
        }
    watches.push_back({fd, std::move(handler)});
}

void PollRunLoop::removeDescriptor(int fd) {
    std::erase_if(watches, [fd](const Watch& watch) { return watch.fd == fd; });
}

PollRunLoop::TimerId PollRunLoop::addTimer(std::chrono::milliseconds interval, Handler onTick) {
    interval = std::max(interval, std::chrono::milliseconds(1));
    const TimerId id = nextTimer++;
    timers.push_back(
        {id, interval, Clock::now() + interval, std::make_shared<Handler>(std::move(onTick))});
    return id;
}

void PollRunLoop::removeTimer(TimerId id) {
    std::erase_if(timers, [id](const Timer& timer) { return timer.id == id; });
}

std::shared_ptr<PollRunLoop::Handler> PollRunLoop::handlerFor(int fd) const {
    for (const auto& watch : watches)
        if (watch.fd == fd)
            return watch.handler;
    return nullptr;
}

void PollRunLoop::fireDueTimers() {
    const auto now = Clock::now();
    std::vector<std::shared_ptr<Handler>> due;
    for (auto& timer : timers)
        if (timer.due <= now) {
            timer.due = now + timer.interval;
            due.push_back(timer.handler);
        }
    // Handlers are held by shared pointer: one may remove its own timer while it runs.
    for (const auto& handler : due) {
        if (stopping)
            return;
        (*handler)();
    }
}

int PollRunLoop::pollTimeoutMilliseconds() const {
    if (timers.empty())
        return -1;
    const auto next =
        std::min_element(timers.begin(), timers.end(), [](const Timer& a, const Timer& b) {
            return a.due < b.due;
        })->due;
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(wait, 0, 60000));
}

void PollRunLoop::run() {
    std::vector<pollfd> polled;
    while (!stopping) {
        fireDueTimers();
        if (stopping)
            break;
        polled.clear();
        for (const auto& watch : watches)
            polled.push_back({watch.fd, POLLIN, 0});
        const int ready = ::poll(polled.data(), polled.size(), pollTimeoutMilliseconds());
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            throw std::system_error(errno, std::generic_category(),
                                    "Waiting for window events failed");
        }
        for (const auto& entry : polled) {
            if (stopping)
                break;
            if ((entry.revents & (POLLIN | POLLHUP | POLLERR)) == 0)
                continue;
            // Looked up again: an earlier handler may have removed or replaced this one.
            if (const auto handler = handlerFor(entry.fd))
                (*handler)();
        }
    }
}
