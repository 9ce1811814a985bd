#pragma once

#include "support/stream.h"

#include <cstddef>
#include <memory>
#include <vector>

// Buffering wrappers that cut system calls on the data streams. Owned through std::shared_ptr
// like the streams they wrap; one thread at a time.
namespace Vesk {

// Collects small writes and passes them on in large pieces; `flush` pushes out the rest. The
// destructor flushes too but swallows failures, so callers that care flush themselves.
class bufferedStreamOut : public streamOut {
  public:
    static constexpr size_t defaultCapacity = 1 << 16;

    explicit bufferedStreamOut(std::shared_ptr<streamOut> sink, size_t capacity = defaultCapacity);
    ~bufferedStreamOut() override;

    void write(const void* buffer, uint64_t length) override;
    void flush() override;
    // Room in the buffer, drained first as write would; none for what write would not copy.
    uint8_t* lendSpace(uint64_t length) override;
    void commitLent(uint64_t length) override;
    uint64_t pending() const { return used; }

  private:
    void drain();

    std::shared_ptr<streamOut> sink;
    std::vector<unsigned char> buffer;
    size_t used = 0;
};

// Reads its source in large pieces. Before any read that would wait for the source it flushes
// `linkedOutput`, so a parent that waits for our output before sending more is never left
// waiting for bytes that sit in our buffer.
class bufferedStreamIn : public streamIn {
  public:
    static constexpr size_t defaultCapacity = 1 << 16;

    bufferedStreamIn(std::shared_ptr<streamIn> source, std::shared_ptr<streamOut> linkedOutput,
                     size_t capacity = defaultCapacity);

    // Gathers until `length` bytes or the end of the source.
    uint64_t read(void* buffer, uint64_t length) override;
    // At least one byte unless the source ended; more only while the source has them at hand.
    uint64_t readSome(void* buffer, uint64_t length) override;
    void waitReady() override;
    bool isReady() override;
    std::span<const uint8_t> lendSome() override;
    void consumeLent(uint64_t count) override;

  private:
    // Refills the empty buffer; waits only when `mayWait`. 0 at the end of the source (or, when
    // not allowed to wait, when nothing is at hand).
    uint64_t refill(bool mayWait);
    void flushBeforeWaiting();
    uint64_t take(unsigned char* destination, uint64_t length);

    std::shared_ptr<streamIn> source;
    std::shared_ptr<streamOut> linkedOutput;
    std::vector<unsigned char> buffer;
    size_t start = 0;
    size_t end = 0;
};

} // namespace Vesk
