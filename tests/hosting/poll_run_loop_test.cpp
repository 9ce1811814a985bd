#include "hosting/editor/main_thread.h"
#include "hosting/editor/main_thread_queue_linux.h"
#include "hosting/poll_run_loop.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;

struct Pipe {
    int ends[2];
    Pipe() { EXPECT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe() {
        ::close(ends[0]);
        ::close(ends[1]);
    }
    void poke() const { EXPECT_EQ(::write(ends[1], "x", 1), 1); }
    void drain() const {
        char buffer[16];
        while (::read(ends[0], buffer, sizeof buffer) > 0) {
        }
    }
};

TEST(PollRunLoop, TimersTickUntilRemovedAndStopEndsTheRun) {
    PollRunLoop loop;
    int fast = 0, slow = 0;
    loop.addTimer(&fast, 1ms, [&] {
        if (++fast == 5)
            loop.removeTimers(&fast); // from inside its own handler
    });
    loop.addTimer(&slow, 2ms, [&] {
        if (++slow == 20)
            loop.stop();
    });
    loop.run();
    EXPECT_EQ(fast, 5);
    EXPECT_EQ(slow, 20);
}

TEST(PollRunLoop, StopBeforeRunIsKept) {
    PollRunLoop loop;
    int ticks = 0;
    loop.addTimer(&ticks, 1ms, [&] { ++ticks; });
    loop.stop();
    loop.run();
    EXPECT_EQ(ticks, 0);
}

TEST(PollRunLoop, ReadableDescriptorRunsItsHandler) {
    PollRunLoop loop;
    Pipe first, second;
    std::vector<int> order;
    loop.addDescriptor(&first, first.ends[0], [&] {
        first.drain();
        order.push_back(1);
        // A handler may remove another descriptor that is ready in the same pass.
        loop.removeDescriptors(&second);
        second.poke();
    });
    loop.addDescriptor(&second, second.ends[0], [&] { order.push_back(2); });
    loop.addTimer(&loop, 20ms, [&] { loop.stop(); });
    first.poke();
    second.poke();
    loop.run();
    EXPECT_EQ(order, std::vector<int>{1});
}

TEST(PollRunLoop, ReplacingAHandlerKeepsOneWatch) {
    PollRunLoop loop;
    Pipe pipe;
    int oldCalls = 0, newCalls = 0;
    loop.addDescriptor(&pipe, pipe.ends[0], [&] { ++oldCalls; });
    loop.addDescriptor(&pipe, pipe.ends[0], [&] {
        ++newCalls;
        pipe.drain();
        loop.stop();
    });
    pipe.poke();
    loop.run();
    EXPECT_EQ(oldCalls, 0);
    EXPECT_EQ(newCalls, 1);
}

TEST(PollRunLoop, DynamicSourcesAreAskedBeforeEveryWait) {
    PollRunLoop loop;
    Pipe pipe;
    std::vector<int> registered; // what a plug-in view has registered right now
    int deadline = -1;
    std::vector<std::string> events;
    loop.addDynamicSource({[&] { return registered; }, [&] { return deadline; },
                           [&] {
                               if (!registered.empty()) {
                                   pipe.drain();
                                   events.push_back("readable");
                                   registered.clear();
                                   deadline = 0; // then a timer that is due at once
                               } else {
                                   events.push_back("due");
                                   deadline = -1;
                                   loop.stop();
                               }
                           }});
    loop.addTimer(&pipe, 5ms, [&] {
        // Registered after the loop started: the next wait must include it.
        if (registered.empty() && events.empty()) {
            registered.push_back(pipe.ends[0]);
            pipe.poke();
        }
    });
    loop.run();
    EXPECT_EQ(events, (std::vector<std::string>{"readable", "due"}));
}

TEST(MainThreadQueue, FunctionsFromOtherThreadsRunOnTheLoopInOrder) {
    PollRunLoop loop;
    auto& queue = MainThreadQueue::instance();
    std::vector<int> ran;
    const auto mainThread = std::this_thread::get_id();
    bool onMainThread = true;
    loop.addDescriptor(&queue, queue.wakeDescriptor(), [&] { queue.runPending(); });
    std::thread poster([&] {
        for (int i = 0; i < 1000; ++i)
            runOnMainThread([&, i] {
                onMainThread = onMainThread && std::this_thread::get_id() == mainThread;
                ran.push_back(i);
                if (i == 999)
                    loop.stop();
            });
    });
    loop.run();
    poster.join();
    ASSERT_EQ(ran.size(), 1000u) << "a wake-up was lost";
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(ran[static_cast<size_t>(i)], i);
    EXPECT_TRUE(onMainThread);
}

} // namespace
