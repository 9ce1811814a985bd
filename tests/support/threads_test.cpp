#include "support/errors.h"
#include "support/stream_unix.h"
#include "support/thread.h"
#include "support/thread_abort.h"
#include "support/wait_for_any.h"
#include "support/waitable.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <functional>
#include <string>
#include <unistd.h>
#include <utility>

namespace {

// A pipe whose ends close with the object.
struct Pipe {
    int readEnd = -1, writeEnd = -1;
    Pipe() {
        int fds[2] = {-1, -1};
        EXPECT_EQ(::pipe2(fds, O_CLOEXEC), 0);
        readEnd = fds[0];
        writeEnd = fds[1];
    }
    Pipe(const Pipe&) = delete;
    ~Pipe() {
        ::close(readEnd);
        ::close(writeEnd);
    }
};

// Blocking operations on an idle pipe that only the thread's aborter can end: a join that
// returns with "user abort" is the stop request reaching the blocked call (ctest's time limit
// guards a hang).
TEST(AbortBlockedStream, StopsPromptlyWithUserAbort) {
    const std::pair<const char*, std::function<void(Pipe&)>> cases[] = {
        {"read without time limit",
         [](Pipe& p) {
             char byte;
             Vesk::streamInUnix(p.readEnd, -1.0).read(&byte, 1);
         }},
        {"write to full pipe",
         [](Pipe& p) {
             ::fcntl(p.writeEnd, F_SETFL, O_NONBLOCK);
             const std::string block(1 << 20, 'x');
             Vesk::streamOutUnix(p.writeEnd, -1.0).write(block.data(), block.size());
         }},
        {"unlimited sleep", [](Pipe&) { Vesk::sleep(-1); }},
    };
    for (const auto& [name, block] : cases) {
        Pipe pipe;
        std::string message;
        Vesk::threadEx worker([&](void*) {
            try {
                block(pipe);
                message = "returned";
            } catch (const std::exception& e) {
                message = e.what();
            }
        });
        worker.start();
        Vesk::sleep(0.1); // let it block
        worker.requestStop();
        worker.join();
        EXPECT_EQ(message, "user abort") << name;
    }
}

// The live worker's read (on a thread with an aborter, so it waits for readiness) gathers
// short writes until its block is full.
TEST(WaitingRead, GathersShortWritesUntilItsBlockIsFull) {
    Pipe pipe;
    std::string got(12, '\0');
    Vesk::threadEx reader([&](void*) {
        got.resize(Vesk::streamInUnix(pipe.readEnd, -1.0).read(got.data(), got.size()));
    });
    reader.start();
    for (const std::string piece : {"ab", "cde", "f", "ghijkl"}) {
        Vesk::sleep(0.02);
        EXPECT_EQ(::write(pipe.writeEnd, piece.data(), piece.size()), ssize_t(piece.size()));
    }
    reader.join();
    EXPECT_EQ(got, "abcdefghijkl");
}

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

TEST(Waitables, AborterWinsOverReadyObject) {
    Vesk::aborter stopper;
    Vesk::waitable object;
    object.set();
    Vesk::currentAborterScope scope(stopper);
    Vesk::waitable* list[] = {&object};
    EXPECT_EQ(Vesk::waitForAny(list, 1, 0), 0);
    stopper.set();
    EXPECT_THROW(Vesk::waitForAny(list, 1, 0), Vesk::user_abort);
}

} // namespace
