#include "support/descriptor_wait.h"
#include "support/errors.h"
#include "support/stream_unix.h"
#include "tests/common/case_name.h"
#include "tests/common/test_pipe.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using testing_support::caseName;

using TestPipe = testing_support::TestPipe;

struct TimeoutCase {
    double seconds;
    int millis;
};

class PollTimes : public testing::TestWithParam<TimeoutCase> {};

TEST_P(PollTimes, RoundToMillisecondsWithFloorOfOne) {
    EXPECT_EQ(Vesk::pollMilliseconds(GetParam().seconds), GetParam().millis);
}

INSTANTIATE_TEST_SUITE_P(Table, PollTimes,
                         testing::Values(TimeoutCase{-1.0, -1}, TimeoutCase{-0.001, -1},
                                         TimeoutCase{0.0, 0}, TimeoutCase{0.0001, 1},
                                         TimeoutCase{0.0004, 1}, TimeoutCase{0.0015, 2},
                                         TimeoutCase{2.5, 2500}),
                         [](const auto& info) {
                             const auto& c = info.param;
                             return std::string(
                                 caseName({testing_support::decimalText(c.seconds)}));
                         });

// Both the waiting path (time-out set) and the direct path (no limit) must gather pieces.
class PipeReads : public testing::TestWithParam<double> {};

TEST_P(PipeReads, ReadGathersPartialWritesUntilFull) {
    TestPipe pipe;
    std::thread writer([&] {
        for (const char* piece : {"ab", "cde", "f"}) {
            ASSERT_EQ(::write(pipe.writeEnd, piece, std::strlen(piece)), static_cast<ssize_t>(std::strlen(piece)));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    Vesk::streamInUnix in(pipe.readEnd, GetParam());
    char buffer[6];
    EXPECT_EQ(in.read(buffer, 6), 6u);
    EXPECT_EQ(std::string(buffer, 6), "abcdef");
    writer.join();
}

TEST_P(PipeReads, EndOfStreamGivesShortRead) {
    TestPipe pipe;
    ASSERT_EQ(::write(pipe.writeEnd, "xyz", 3), 3);
    pipe.closeWrite();
    Vesk::streamInUnix in(pipe.readEnd, GetParam());
    char buffer[8];
    EXPECT_EQ(in.read(buffer, 8), 3u);
    EXPECT_EQ(in.read(buffer, 8), 0u);
    EXPECT_THROW(in.readExact(buffer, 1), Vesk::invalid_input);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutTimeout, PipeReads, testing::Values(-1.0, 5.0),
                         [](const auto& info) {
                             const auto& c = info.param;
                             return std::string(c < 0 ? "NoTimeLimit" : "TimeLimit");
                         });

TEST(DescriptorStreams, IdleReadTimesOut) {
    TestPipe pipe;
    Vesk::streamInUnix in(pipe.readEnd, 0.05);
    char byte;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(in.read(&byte, 1), Vesk::network_error_timeout);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_FALSE(in.isReady());
}

TEST(DescriptorStreams, WriteToClosedReaderFailsInsteadOfDying) {
    TestPipe pipe;
    pipe.closeRead();
    std::signal(SIGPIPE, SIG_IGN);
    for (double timeout : {-1.0, 1.0}) {
        Vesk::streamOutUnix out(pipe.writeEnd, timeout);
        EXPECT_THROW(out.write("data", 4), Vesk::file_access_error);
    }
}

TEST(DescriptorStreams, ZeroLengthWriteMakesNoSystemCall) {
    Vesk::streamOutUnix out(-1, -1.0);  // any system call on -1 would fail
    EXPECT_NO_THROW(out.write("", 0));
}

TEST(DescriptorStreams, LargeWriteArrivesWhole) {
    TestPipe pipe;
    const std::string data(1 << 20, 'q');
    std::string received;
    std::thread reader([&] {
        char buffer[4096];
        ssize_t got;
        while ((got = ::read(pipe.readEnd, buffer, sizeof buffer)) > 0)
            received.append(buffer, static_cast<size_t>(got));
    });
    {
        Vesk::streamOutUnix out(pipe.writeEnd, -1.0);
        out.write(data.data(), data.size());
    }
    pipe.closeWrite();
    reader.join();
    EXPECT_EQ(received, data);
}

TEST(DescriptorStreams, ReadyWhenDataOrEndArrives) {
    TestPipe pipe;
    Vesk::streamInUnix in(pipe.readEnd, 1.0);
    EXPECT_FALSE(in.isReady());
    pipe.closeWrite();
    EXPECT_TRUE(in.isReady());
    EXPECT_NO_THROW(in.waitReady());
}

} // namespace
