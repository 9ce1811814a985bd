#pragma once

#include "support/file_stream.h"
#include "support/stream.h"

// Readers over caller-owned memory; the memory must outlive the stream.
namespace Vesk {

class streamInMemRef : public streamIn {
  public:
    streamInMemRef(const void* data, uint64_t length)
        : base(static_cast<const unsigned char*>(data)), size(length) {}
    uint64_t read(void* buffer, uint64_t length) override;
    uint64_t skip(uint64_t count) override;

  private:
    const unsigned char* base;
    uint64_t size;
    uint64_t position = 0;
};

// Endless source that repeats a pattern.
class streamInRepeat : public streamIn {
  public:
    // An empty pattern yields zero bytes.
    streamInRepeat(const void* data, uint64_t length)
        : pattern(static_cast<const unsigned char*>(data)), patternLength(length) {}
    uint64_t read(void* buffer, uint64_t length) override;
    uint64_t skip(uint64_t count) override { return count; }

  private:
    const unsigned char* pattern;
    uint64_t patternLength;
    uint64_t next = 0;
};

class fileInMemRef : public fileIn {
  public:
    fileInMemRef(const void* data, uint64_t length)
        : base(static_cast<const unsigned char*>(data)), length(length) {}
    uint64_t read(void* buffer, uint64_t count) override;
    uint64_t skip(uint64_t count) override;
    void seek(uint64_t position) override;
    uint64_t tell() override { return position; }
    uint64_t size() override { return length; }

  private:
    const unsigned char* base;
    uint64_t length;
    uint64_t position = 0;
};

} // namespace Vesk
