#pragma once

#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace testing_support {

// A pipe whose ends close with the object; either end may be closed early.
struct TestPipe {
    int readEnd = -1;
    int writeEnd = -1;
    TestPipe() {
        int fds[2];
        // Thrown rather than expected: helpers outside a test body use it too.
        if (::pipe2(fds, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe failed");
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
