#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace testing_support {

// A pipe whose ends close with the object; either end may be closed early.
struct TestPipe {
    int readEnd = -1;
    int writeEnd = -1;
    TestPipe() {
        int fds[2];
        EXPECT_EQ(::pipe2(fds, O_CLOEXEC), 0);
        readEnd = fds[0];
        writeEnd = fds[1];
    }
    ~TestPipe() {
        closeRead();
        closeWrite();
    }
    TestPipe(const TestPipe&) = delete;
    TestPipe& operator=(const TestPipe&) = delete;
    void closeRead() {
        if (readEnd >= 0)
            ::close(readEnd);
        readEnd = -1;
    }
    void closeWrite() {
        if (writeEnd >= 0)
            ::close(writeEnd);
        writeEnd = -1;
    }
};

} // namespace testing_support
