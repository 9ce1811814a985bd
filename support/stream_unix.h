#pragma once

#include "support/stream.h"

// Streams over POSIX descriptors. Blocking reads and writes are built from readiness waits and
// partial transfers, so every wait honours the time-out and the calling thread's aborter.
namespace Vesk {

// Source whose data arrives over time.
class streamInAsync : public streamIn {
  public:
    uint64_t read(void* buffer, uint64_t length) override;
    uint64_t skip(uint64_t count) override;
};

// Sink that accepts data over time.
class streamOutAsync : public streamOut {
  public:
    void write(const void* buffer, uint64_t length) override;
};

// A descriptor and the time-out of its waits (seconds; negative waits without limit).
class _streamUnixBase {
  public:
    _streamUnixBase(int fd, double timeoutSeconds) : descriptor(fd), timeout(timeoutSeconds) {}
    int fd() const { return descriptor; }
    double timeoutSeconds() const { return timeout; }
    void setTimeout(double seconds) { timeout = seconds; }

  protected:
    int descriptor;
    double timeout;
};

// Reads a descriptor it does not own.
class streamInUnix : public streamInAsync, public _streamUnixBase {
  public:
    streamInUnix(int fd, double timeoutSeconds) : _streamUnixBase(fd, timeoutSeconds) {}
    uint64_t read(void* buffer, uint64_t length) override;
    uint64_t readSome(void* buffer, uint64_t length) override;
    void waitReady() override;
    bool isReady() override;
};

// Writes a descriptor it does not own.
class streamOutUnix : public streamOutAsync, public _streamUnixBase {
  public:
    streamOutUnix(int fd, double timeoutSeconds) : _streamUnixBase(fd, timeoutSeconds) {}
    void write(const void* buffer, uint64_t length) override;
    uint64_t writeSome(const void* buffer, uint64_t length) override;
    void waitReady() override;
    bool isReady() override;
};

class streamStdIn : public streamInUnix {
  public:
    streamStdIn() : streamInUnix(0, -1.0) {}
};

class streamStdOut : public streamOutUnix {
  public:
    streamStdOut() : streamOutUnix(1, -1.0) {}
};

} // namespace Vesk
