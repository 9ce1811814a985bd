#include "hosting/editor/poll_run_loop.h"

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

void PollRunLoop::addDynamicSource(DynamicSource source) {
    dynamicSources.push_back(std::move(source));
}

void PollRunLoop::run() {
    std::vector<pollfd> polled;
    std::vector<size_t> dynamicEnds; // where each dynamic source's descriptors end in `polled`
    while (!stopping) {
        fireDueTimers();
        if (stopping)
            break;
        polled.clear();
        for (const auto& watch : watches)
            polled.push_back({watch.fd, POLLIN, 0});
        const size_t watched = polled.size();
        int timeout = pollTimeoutMilliseconds();
        dynamicEnds.clear();
        for (const auto& source : dynamicSources) {
            for (const int fd : source.descriptors())
                polled.push_back({fd, POLLIN, 0});
            dynamicEnds.push_back(polled.size());
            const int next = source.millisecondsToNext();
            if (next >= 0)
                timeout = timeout < 0 ? next : std::min(timeout, next);
        }
        const int ready = ::poll(polled.data(), polled.size(), timeout);
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            throw std::system_error(errno, std::generic_category(),
                                    "Waiting for window events failed");
        }
        for (size_t at = 0; at < watched && !stopping; ++at) {
            const auto& entry = polled[at];
            if ((entry.revents & (POLLIN | POLLHUP | POLLERR)) == 0)
                continue;
            // Looked up again: an earlier handler may have removed or replaced this one.
            if (const auto handler = handlerFor(entry.fd))
                (*handler)();
        }
        size_t begin = watched;
        for (size_t index = 0; index < dynamicSources.size() && !stopping; ++index) {
            const auto first = polled.begin() + static_cast<std::ptrdiff_t>(begin);
            const auto last = polled.begin() + static_cast<std::ptrdiff_t>(dynamicEnds[index]);
            begin = dynamicEnds[index];
            const bool readable =
                std::any_of(first, last, [](const pollfd& entry) { return entry.revents != 0; });
            if (readable || dynamicSources[index].millisecondsToNext() == 0)
                dynamicSources[index].onReady();
        }
    }
}
