#include "support/errors.h"
#include "support/resource_lock.h"
#include "support/thread.h"
#include "support/thread_abort.h"
#include "support/wait_for_any.h"
#include "support/waitable.h"
#include "support/waitable_counter.h"
#include "tests/common/case_name.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <vector>

namespace {

using testing_support::caseName;

using clock_type = std::chrono::steady_clock;

double secondsSince(clock_type::time_point start) {
    return std::chrono::duration<double>(clock_type::now() - start).count();
}

struct AnyCase {
    std::vector<int> signalled;
    double timeout;
    int expected;
};

class WaitForAnyIndex : public testing::TestWithParam<AnyCase> {};

TEST_P(WaitForAnyIndex, ReturnsFirstSignalledObjectInOrder) {
    Vesk::waitable objects[3];
    for (int i : GetParam().signalled)
        objects[i].set();
    Vesk::waitable* list[] = {&objects[0], &objects[1], &objects[2]};
    EXPECT_EQ(Vesk::waitForAny(list, 3, GetParam().timeout), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Table, WaitForAnyIndex,
                         testing::Values(AnyCase{{}, 0.0, -1}, AnyCase{{}, 0.05, -1},
                                         AnyCase{{1}, 0.0, 1}, AnyCase{{2}, -1.0, 2},
                                         AnyCase{{0, 2}, 0.0, 0}, AnyCase{{1, 2}, 5.0, 1}),
                         [](const auto& info) {
                             std::string name = "Set";
                             for (const int i : info.param.signalled)
                                 name += std::to_string(i);
                             return name + "_" +
                                    caseName({testing_support::decimalText(info.param.timeout)});
                         });

TEST(Waitables, SignalIsLevelAndSingleByte) {
    Vesk::waitable object;
    EXPECT_FALSE(object.isSet());
    object.set();
    object.set();
    EXPECT_TRUE(object.isSet());
    // A plain waitable is not consumed by a wait.
    EXPECT_TRUE(Vesk::waitFor(object, 0));
    EXPECT_TRUE(object.isSet());
    object.reset();
    EXPECT_FALSE(object.isSet());
    EXPECT_FALSE(Vesk::waitFor(object, 0));
}

TEST(Waitables, PipeIsCloseOnExec) {
    Vesk::waitable object;
    EXPECT_TRUE(::fcntl(object.descriptor(), F_GETFD) & FD_CLOEXEC);
}

TEST(Waitables, TimeoutsHold) {
    Vesk::waitable object;
    for (double timeout : {0.0, 0.05, 0.2}) {
        const auto start = clock_type::now();
        EXPECT_FALSE(Vesk::waitFor(object, timeout));
        EXPECT_GE(secondsSince(start), timeout * 0.9);
        EXPECT_LT(secondsSince(start), timeout + 2.0);
    }
    const auto start = clock_type::now();
    Vesk::sleep(0.05);
    EXPECT_GE(secondsSince(start), 0.045);
}

TEST(Waitables, SetFromAnotherThreadEndsUnlimitedWait) {
    Vesk::waitable object;
    Vesk::threadEx setter([&](void*) {
        Vesk::sleep(0.05);
        object.set();
    });
    setter.start();
    EXPECT_NO_THROW(Vesk::wait(object));
    setter.join();
}

TEST(Waitables, AborterWinsOverReadyObject) {
    Vesk::aborter stopper;
    Vesk::waitable object;
    object.set();
    Vesk::currentAborterScope scope(stopper);
    Vesk::waitable* list[] = {&object};
    EXPECT_EQ(Vesk::waitForAny(list, 1, 0), 0);
    stopper.set();
    EXPECT_THROW(Vesk::waitForAny(list, 1, 0), Vesk::user_abort);
    EXPECT_THROW(Vesk::sleep(-1), Vesk::user_abort);
}

TEST(Waitables, AborterScopeRestoresPrevious) {
    EXPECT_EQ(Vesk::currentAbortDescriptor(), -1);
    Vesk::aborter outer, inner;
    {
        Vesk::currentAborterScope a(outer);
        {
            Vesk::currentAborterScope b(inner);
            EXPECT_EQ(Vesk::currentAbortDescriptor(), inner.descriptor());
        }
        EXPECT_EQ(Vesk::currentAbortDescriptor(), outer.descriptor());
    }
    EXPECT_EQ(Vesk::currentAborter(), nullptr);
}

enum class CounterOp { set, increment, decrement, tryDecrement, wake };

struct CounterStep {
    CounterOp op;
    uint32_t argument;
    uint32_t result;  // the operation's result (0/1 for truth values); ignored for set
    uint32_t countAfter;
};

struct CounterCase {
    const char* name;
    bool autoDecrement;
    std::vector<CounterStep> steps;
};

class CounterSequences : public testing::TestWithParam<CounterCase> {};

TEST_P(CounterSequences, SignalledExactlyWhileAboveZero) {
    Vesk::waitableCounter counter(0, GetParam().autoDecrement);
    for (const auto& step : GetParam().steps) {
        switch (step.op) {
        case CounterOp::set:
            counter.set(step.argument);
            break;
        case CounterOp::increment:
            EXPECT_EQ(counter.increment(), step.result);
            break;
        case CounterOp::decrement:
            EXPECT_EQ(counter.decrement(), step.result);
            break;
        case CounterOp::tryDecrement:
            EXPECT_EQ(counter.tryDecrement(), step.result != 0);
            break;
        case CounterOp::wake:
            EXPECT_EQ(Vesk::waitFor(counter, 0), step.result != 0);
            break;
        }
        EXPECT_EQ(counter.get(), step.countAfter);
        EXPECT_EQ(counter.isSet(), step.countAfter > 0);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, CounterSequences,
    testing::Values(
        CounterCase{"AutoDecrementSatisfiesTwoWaits",
                    true,
                    {{CounterOp::set, 2, 0, 2}, {CounterOp::wake, 0, 1, 1}, {CounterOp::wake, 0, 1, 0},
                     {CounterOp::wake, 0, 0, 0}}},
        CounterCase{"PlainCounterIsNotTaken",
                    false,
                    {{CounterOp::increment, 0, 1, 1}, {CounterOp::wake, 0, 1, 1}, {CounterOp::wake, 0, 1, 1}}},
        CounterCase{"DecrementStopsAtZero",
                    false,
                    {{CounterOp::increment, 0, 1, 1}, {CounterOp::decrement, 0, 0, 0},
                     {CounterOp::decrement, 0, 0, 0}, {CounterOp::tryDecrement, 0, 0, 0}}},
        CounterCase{"TryDecrementTakesOne",
                    false,
                    {{CounterOp::set, 3, 0, 3}, {CounterOp::tryDecrement, 0, 1, 2},
                     {CounterOp::set, 0, 0, 0}, {CounterOp::increment, 0, 1, 1}}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ResourceLock, OneReleaseLetsExactlyOneWaiterThrough) {
    Vesk::resourceLock lock;
    lock.acquire();
    EXPECT_FALSE(Vesk::waitFor(lock, 0));
    std::atomic<int> holders{0};
    auto take = [&](void*) {
        lock.acquire();
        ++holders;
    };
    Vesk::threadEx first(take), second(take);
    first.start();
    second.start();
    Vesk::sleep(0.05);
    EXPECT_EQ(holders, 0);

    lock.release();
    const auto start = clock_type::now();
    while (holders < 1 && secondsSince(start) < 5)
        Vesk::sleep(0.005);
    Vesk::sleep(0.1);  // room for a second, wrong, wake-up
    EXPECT_EQ(holders, 1);

    lock.release();
    first.join();
    second.join();
    EXPECT_EQ(holders, 2);
}

} // namespace
