#pragma once

#include <cstdint>
#include <memory>
#include <span>

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
    // A buffering source may lend its buffer to save a copy: the bytes it holds, without
    // waiting. Valid until the next call on the stream; they stay unread until consumeLent.
    // Empty: nothing lent, read instead.
    virtual std::span<const uint8_t> lendSome() { return {}; }
    // Marks `count` bytes of the last lent ones as read.
    virtual void consumeLent(uint64_t /*count*/) {}
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
    // A buffering sink may lend room for `length` bytes to be built in place, to save a copy;
    // commitLent(length) then writes them as write would. Null: no room lent (write instead).
    virtual uint8_t* lendSpace(uint64_t /*length*/) { return nullptr; }
    virtual void commitLent(uint64_t /*length*/) {}
};

// Four bytes in the machine's order (little-endian on every target we build for).
void writeInt32(streamOut& out, uint32_t value);

} // namespace Vesk
