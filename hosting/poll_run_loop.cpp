#include "hosting/poll_run_loop.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

template <typename Entry>
std::shared_ptr<PollRunLoop::Handler> registered(const std::vector<Entry>& entries,
                                                 uint64_t serial) {
    for (const auto& entry : entries)
        if (entry.serial == serial)
            return entry.handler;
    return nullptr;
}

bool ready(const pollfd& entry) {
    return (entry.revents & (POLLIN | POLLHUP | POLLERR)) != 0;
}

} // namespace

void PollRunLoop::addDescriptor(Key key, int fd, Handler onReadable) {
    auto handler = std::make_shared<Handler>(std::move(onReadable));
    for (auto& watch : watches)
        if (watch.key == key && watch.fd == fd) {
            watch.handler = std::move(handler);
            return;
        }
    watches.push_back({nextSerial++, key, fd, std::move(handler)});
}

bool PollRunLoop::removeDescriptors(Key key) {
    return std::erase_if(watches, [key](const Watch& watch) { return watch.key == key; }) > 0;
}

void PollRunLoop::addTimer(Key key, std::chrono::milliseconds interval, Handler onTick) {
    interval = std::max(interval, std::chrono::milliseconds(1));
    timers.push_back({nextSerial++, key, interval, Clock::now() + interval,
                      std::make_shared<Handler>(std::move(onTick))});
}

bool PollRunLoop::removeTimers(Key key) {
    return std::erase_if(timers, [key](const Timer& timer) { return timer.key == key; }) > 0;
}

void PollRunLoop::clear() {
    watches.clear();
    timers.clear();
}

std::vector<int> PollRunLoop::descriptors() const {
    std::vector<int> result;
    for (const auto& watch : watches)
        result.push_back(watch.fd);
    return result;
}

int PollRunLoop::millisecondsToNextTimer() const {
    if (timers.empty())
        return -1;
    const auto next =
        std::min_element(timers.begin(), timers.end(), [](const Timer& a, const Timer& b) {
            return a.due < b.due;
        })->due;
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(wait, 0, 60000));
}

void PollRunLoop::fireDueTimers() {
    const auto now = Clock::now();
    std::vector<Serial> due;
    for (auto& timer : timers)
        if (timer.due <= now) {
            timer.due = now + timer.interval;
            due.push_back(timer.serial);
        }
    // Looked up again: an earlier handler may have removed this one.
    for (const Serial serial : due) {
        if (stopping)
            return;
        if (const auto handler = registered(timers, serial))
            (*handler)();
    }
}

bool PollRunLoop::pollAndFire(std::vector<pollfd>& polled, const std::vector<int>& extra,
                              int timeout) {
    polled.clear();
    std::vector<Serial> serials;
    for (const auto& watch : watches) {
        polled.push_back({watch.fd, POLLIN, 0});
        serials.push_back(watch.serial);
    }
    for (const int fd : extra)
        polled.push_back({fd, POLLIN, 0});
    if (::poll(polled.data(), polled.size(), timeout) < 0) {
        if (errno == EINTR)
            return false;
        throw std::system_error(errno, std::generic_category(), "Waiting for window events failed");
    }
    for (size_t at = 0; at < serials.size() && !stopping; ++at) {
        if (!ready(polled[at]))
            continue;
        // Looked up again: an earlier handler may have removed or replaced this one.
        if (const auto handler = registered(watches, serials[at]))
            (*handler)();
    }
    return true;
}

void PollRunLoop::dispatchDue() {
    std::vector<pollfd> polled;
    if (!watches.empty())
        pollAndFire(polled, {}, 0);
    fireDueTimers();
}

void PollRunLoop::addDynamicSource(DynamicSource source) {
    dynamicSources.push_back(std::move(source));
}

void PollRunLoop::run() {
    std::vector<pollfd> polled;
    std::vector<int> extra;
    std::vector<size_t> dynamicEnds; // where each dynamic source's descriptors end in `extra`
    while (!stopping) {
        fireDueTimers();
        if (stopping)
            break;
        int timeout = millisecondsToNextTimer();
        extra.clear();
        dynamicEnds.clear();
        for (const auto& source : dynamicSources) {
            for (const int fd : source.descriptors())
                extra.push_back(fd);
            dynamicEnds.push_back(extra.size());
            const int next = source.millisecondsToNext();
            if (next >= 0)
                timeout = timeout < 0 ? next : std::min(timeout, next);
        }
        if (!pollAndFire(polled, extra, timeout))
            continue; // interrupted by a signal
        const size_t watched = polled.size() - extra.size();
        size_t begin = 0;
        for (size_t index = 0; index < dynamicSources.size() && !stopping; ++index) {
            const auto first = polled.begin() + static_cast<std::ptrdiff_t>(watched + begin);
            const auto last =
                polled.begin() + static_cast<std::ptrdiff_t>(watched + dynamicEnds[index]);
            begin = dynamicEnds[index];
            const bool readable =
                std::any_of(first, last, [](const pollfd& entry) { return entry.revents != 0; });
            if (readable || dynamicSources[index].millisecondsToNext() == 0)
                dynamicSources[index].onReady();
        }
    }
}
