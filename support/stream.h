#pragma once

#include <cstdint>
#include <memory>

// Abstract byte source and sink. Owned through std::shared_ptr; one thread at a time.
namespace Vesk {

class streamIn {
public:
    virtual ~streamIn() = default;

    // Blocks until `length` bytes were read or the source ended; fewer only at the end.
    virtual uint64_t read(void* buffer, uint64_t length) = 0;
    // Throws invalid_input unless exactly `length` bytes arrive.
    virtual uint64_t readExact(void* buffer, uint64_t length);
    virtual uint64_t skip(uint64_t count);
    virtual uint64_t skipExact(uint64_t count);
    // What can be had without waiting; the default blocks like read.
    virtual uint64_t readSome(void* buffer, uint64_t length);
    virtual uint64_t skipSome(uint64_t count);
    virtual void waitReady() {}
    virtual bool isReady() { return true; }
};

class streamOut {
public:
    virtual ~streamOut() = default;

    // Writes every byte or throws.
    virtual void write(const void* buffer, uint64_t length) = 0;
    virtual uint64_t writeSome(const void* buffer, uint64_t length);
    virtual void waitReady() {}
    virtual bool isReady() { return true; }
    // Pushes out whatever a buffering sink holds; plain sinks hold nothing.
    virtual void flush() {}
};

// Four bytes in the machine's order (little-endian on every target we build for).
void writeInt32(streamOut& out, uint32_t value);

} // namespace Vesk
