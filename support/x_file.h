#pragma once

#include "support/unique_descriptor.h"

#include <cstdint>
#include <string>

// A low-level file that reports failure by its result, never by an exception. With the report
// flag set, a failure also prints one line on standard output. Owned by one thread at a time.
namespace Vesk {

class XFile {
  public:
    // Access word.
    static constexpr uint32_t readOnly = 0;
    static constexpr uint32_t readWrite = 1u << 2;

    // Mode word: the low three bits say what happens to the file, the high bits how it is locked.
    static constexpr uint32_t createNew = 1;        // O_CREAT | O_EXCL
    static constexpr uint32_t createOrTruncate = 2; // O_CREAT | O_TRUNC
    static constexpr uint32_t openExisting = 3;     // must exist
    static constexpr uint32_t openOrCreate = 4;     // O_CREAT
    static constexpr uint32_t truncateExisting = 5; // O_TRUNC
    static constexpr uint32_t noLock = 1u << 31;
    static constexpr uint32_t waitForLock = 1u << 30;
    static constexpr uint32_t ignoreLockFailure = 1u << 29;

    // Origin of read and write.
    static constexpr int fromStart = 0;
    static constexpr int fromEnd = 1;
    static constexpr int fromCurrent = 2;

    XFile() = default;
    XFile(XFile&&) noexcept = default;
    XFile& operator=(XFile&&) noexcept = default;

    // Locks with flock() unless noLock is set: shared or exclusive, non-blocking unless
    // waitForLock is set. A lock held elsewhere fails the open unless ignoreLockFailure is set.
    bool open(const std::wstring& path, uint32_t access, uint32_t mode, bool report,
              bool shared = false);
    void close() { descriptor.reset(); }
    bool isOpen() const { return descriptor.valid(); }
    int fd() const { return descriptor.get(); }
    const std::wstring& path() const { return filePath; }

    // One read() of at most `count` bytes; 0 on failure, with *failed set when given.
    uint64_t read(void* buffer, uint64_t count, int origin, bool* failed = nullptr);
    // Without `written`, success needs every byte written; with it, any non-negative result
    // succeeds and is stored.
    bool write(const void* buffer, uint64_t count, int origin, uint64_t* written = nullptr);

  private:
    bool seek(int origin);
    void reportFailure(const wchar_t* prefix) const;

    std::wstring filePath;
    uniqueDescriptor descriptor;
    bool report = false;
};

} // namespace Vesk
