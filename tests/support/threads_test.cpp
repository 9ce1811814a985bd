#include "support/errors.h"
#include "support/stream_unix.h"
#include "support/thread.h"
#include "support/thread_platform.h"
#include "support/wait_for_any.h"
#include "tests/common/case_name.h"
#include "tests/common/test_pipe.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <sched.h>
#include <set>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using testing_support::caseName;

using clock_type = std::chrono::steady_clock;

using Pipe = testing_support::TestPipe;

// A blocking stream operation on an idle pipe that only the thread's aborter can end.
struct BlockedCase {
    const char* name;
    std::function<void(Pipe&)> block;
};

class AbortBlockedStream : public testing::TestWithParam<BlockedCase> {};

TEST_P(AbortBlockedStream, StopsPromptlyWithUserAbort) {
    Pipe pipe;
    std::string message;
    Vesk::threadEx worker([&](void*) {
        try {
            GetParam().block(pipe);
            message = "returned";
        } catch (const std::exception& e) {
            message = e.what();
        }
    });
    worker.start();
    Vesk::sleep(0.1);  // let it block
    // Nothing else can end the wait: the pipe stays idle, so a join that returns with this
    // message is the stop request reaching the blocked read (ctest's time limit guards a hang).
    worker.requestStop();
    worker.join();
    EXPECT_EQ(message, "user abort");
}

INSTANTIATE_TEST_SUITE_P(
    Table, AbortBlockedStream,
    testing::Values(BlockedCase{"ReadWithoutTimeLimit",
                                [](Pipe& p) {
                                    Vesk::streamInUnix in(p.readEnd, -1.0);
                                    char byte;
                                    in.read(&byte, 1);
                                }},
                    BlockedCase{"ReadWithLongTimeout",
                                [](Pipe& p) {
                                    Vesk::streamInUnix in(p.readEnd, 60.0);
                                    char buffer[4];
                                    in.read(buffer, 4);
                                }},
                    BlockedCase{"WriteToFullPipe",
                                [](Pipe& p) {
                                    ::fcntl(p.writeEnd, F_SETFL, O_NONBLOCK);
                                    Vesk::streamOutUnix out(p.writeEnd, -1.0);
                                    const std::string block(1 << 20, 'x');
                                    out.write(block.data(), block.size());
                                }},
                    BlockedCase{"UnlimitedSleep", [](Pipe&) { Vesk::sleep(-1); }}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Threads, StopRequestFromEarlierRunIsConsumedAtStart) {
    int run = 0;
    bool aborted[2] = {false, false};
    Vesk::threadEx worker([&](void*) {
        try {
            Vesk::sleep(run == 0 ? -1.0 : 0.05);
        } catch (const Vesk::user_abort&) {
            aborted[run] = true;
        }
    });
    worker.start();
    worker.requestStop();
    worker.join();
    run = 1;
    worker.start();
    worker.join();
    EXPECT_TRUE(aborted[0]);
    EXPECT_FALSE(aborted[1]);
}

TEST(Threads, StartArgumentAndIsCurrentReachTheBody) {
    int value = 7;
    int seen = 0;
    bool current = false;
    Vesk::threadEx* self = nullptr;
    Vesk::threadEx worker([&](void* argument) {
        seen = *static_cast<int*>(argument);
        current = self->isCurrent();
    });
    self = &worker;
    worker.start({}, &value);
    EXPECT_TRUE(worker.isRunning());
    EXPECT_FALSE(worker.isCurrent());
    worker.join();
    EXPECT_FALSE(worker.isRunning());
    EXPECT_EQ(seen, 7);
    EXPECT_TRUE(current);
}

TEST(Threads, FailuresOfTheBodyReachJoin) {
    Vesk::threadEx empty(nullptr);
    empty.start();
    EXPECT_THROW(empty.join(), std::bad_function_call);

    Vesk::threadEx failing([](void*) { throw Vesk::file_not_found(); });
    failing.start();
    EXPECT_THROW(failing.join(), Vesk::file_not_found);

    // user_abort that no stop request caused is a failure like any other.
    Vesk::threadEx selfAborting([](void*) { throw Vesk::user_abort(); });
    selfAborting.start();
    EXPECT_THROW(selfAborting.join(), Vesk::user_abort);
}

TEST(Threads, DestroyingRunningThreadStopsIt) {
    std::atomic<bool> ended{false};
    {
        Vesk::threadEx worker([&](void*) {
            try {
                Vesk::sleep(-1);
            } catch (const Vesk::user_abort&) {
                ended = true;
            }
        });
        worker.start();
        Vesk::sleep(0.02);
    }
    EXPECT_TRUE(ended);
}

struct NameCase {
    std::string given;
    size_t limit;
    std::string shown;
};

class ThreadNames : public testing::TestWithParam<NameCase> {};

TEST_P(ThreadNames, ShortenedKeepingHeadAndTail) {
    EXPECT_EQ(Vesk::platformThreadName(GetParam().given, GetParam().limit), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ThreadNames,
    testing::Values(NameCase{"live worker", 15, "live worker"},
                    NameCase{"exactly15chars!", 15, "exactly15chars!"},
                    NameCase{"audio processing 12", 15, "audio p~sing 12"},
                    NameCase{"timer thread number 3", 15, "timer t~umber 3"},
                    // Multi-byte characters are never split.
                    NameCase{"\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9-worker-\xC3\xA9\xC3\xA9", 15,
                             "\xC3\xA9\xC3\xA9\xC3\xA9~ker-\xC3\xA9\xC3\xA9"},
                    NameCase{"abcdef", 2, "ab"}),
    [](const auto& info) {
        const auto& c = info.param;
        return std::string(caseName({c.given, std::to_string(c.limit)}));
    });

std::set<std::string> taskNames() {
    std::set<std::string> names;
    DIR* tasks = ::opendir("/proc/self/task");
    if (!tasks)
        return names;
    while (dirent* entry = ::readdir(tasks)) {
        if (entry->d_name[0] == '.')
            continue;
        std::ifstream comm(std::string("/proc/self/task/") + entry->d_name + "/comm");
        std::string name;
        std::getline(comm, name);
        names.insert(name);
    }
    ::closedir(tasks);
    return names;
}

TEST(Threads, NamesAreVisibleToTheSystem) {
    for (const NameCase& c : {NameCase{"live worker", 15, "live worker"},
                              NameCase{"a rather long worker name 9", 15, "a rathe~ name 9"}}) {
        EXPECT_EQ(Vesk::platformThreadName(c.given, Vesk::threadPlatform::threadNameLimit()), c.shown);
        Vesk::waitable done;
        std::set<std::string> names;
        Vesk::threadEx worker([&](void*) { Vesk::wait(done); }, c.given);
        worker.start();
        const auto start = clock_type::now();
        while (!(names = taskNames()).count(c.shown) && clock_type::now() - start < std::chrono::seconds(5))
            Vesk::sleep(0.005);
        done.set();
        worker.join();
        EXPECT_TRUE(names.count(c.shown)) << c.given;
    }
}

struct SchedulingCase {
    const char* name;
    Vesk::threadScheduling scheduling;
    int policy;
    int nice;
};

class ThreadScheduling : public testing::TestWithParam<SchedulingCase> {};

TEST_P(ThreadScheduling, AppliedToTheNewThreadOnly) {
    const int parentNice = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()));
    int policy = -1, nice = -100;
    Vesk::threadEx worker([&](void*) {
        policy = ::sched_getscheduler(0);
        nice = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()));
    });
    worker.start(GetParam().scheduling);
    worker.join();
    EXPECT_EQ(policy, GetParam().policy);
    EXPECT_EQ(nice, GetParam().nice == INT32_MIN ? parentNice : GetParam().nice);
    EXPECT_EQ(::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid())), parentNice);
}

using namespace Vesk::threadPlatform;

INSTANTIATE_TEST_SUITE_P(
    Table, ThreadScheduling,
    testing::Values(SchedulingCase{"Inherited", {}, SCHED_OTHER, INT32_MIN},
                    SchedulingCase{"Utility", {qosUtility, 0, -1, {}}, SCHED_OTHER, 10},
                    SchedulingCase{"UtilityLowered", {qosUtility, -4, -1, {}}, SCHED_OTHER, 14},
                    SchedulingCase{"UtilityLoweredPastLimit", {qosUtility, -15, -1, {}}, SCHED_OTHER, 19},
                    SchedulingCase{"Background", {qosBackground, 0, -1, {}}, SCHED_IDLE, 19},
                    SchedulingCase{"ExplicitPolicy", {0, 0, SCHED_BATCH, {}}, SCHED_BATCH, INT32_MIN}),
    [](const auto& info) { return std::string(info.param.name); });

} // namespace
