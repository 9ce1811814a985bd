#include "support/standard_streams.h"

#include "support/errors.h"
#include "support/stream_unix.h"

#include <fcntl.h>
#include <unistd.h>

namespace Vesk {
namespace {
std::shared_ptr<streamIn> inputSlot;
std::shared_ptr<streamOut> outputSlot;
} // namespace

std::shared_ptr<streamIn> standardInput() {
    if (!inputSlot)
        inputSlot = std::make_shared<streamStdIn>();
    return inputSlot;
}

std::shared_ptr<streamOut> standardOutput() {
    if (!outputSlot)
        outputSlot = std::make_shared<streamStdOut>();
    return outputSlot;
}

bool fix_stdout() {
    class streamStdOutFix : public streamOutUnix {
      public:
        explicit streamStdOutFix(int fd) : streamOutUnix(fd, -1.0) {}
        ~streamStdOutFix() override {
            if (descriptor >= 0)
                ::close(descriptor);
            descriptor = -1;
        }
        streamStdOutFix(const streamStdOutFix&) = delete;
        streamStdOutFix& operator=(const streamStdOutFix&) = delete;
    };

    const int duplicate = ::fcntl(1, F_DUPFD_CLOEXEC, 3);
    if (duplicate < 0)
        throwFileError();
    outputSlot = std::make_shared<streamStdOutFix>(duplicate);

    const int devNull = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (devNull < 0)
        return false;
    if (devNull != 1) {
        ::dup2(devNull, 1);
        ::close(devNull);
    }
    return true;
}

void resetStandardStreams() {
    inputSlot.reset();
    outputSlot.reset();
}

} // namespace Vesk
