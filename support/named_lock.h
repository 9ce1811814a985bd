#pragma once

#include "support/unique_descriptor.h"

#include <string>

// A lock shared by all processes of the machine that use the same name: an flock() on
// "/tmp/xmutex-<name>". Owned by one thread; the lock ends with the object or release().
namespace Vesk {

class XNamedLock {
  public:
    explicit XNamedLock(const std::wstring& name);

    // Waits for the lock; throws the file error classes when the lock file cannot be opened.
    void take();
    // False when another holder has it.
    bool tryTake();
    void release() { file.reset(); }
    bool held() const { return file.valid(); }
    // Deletes the lock file (the lock itself stays with whoever holds it).
    void remove();
    const std::string& path() const { return lockPath; }

  private:
    bool lock(bool wait);

    std::string lockPath;
    uniqueDescriptor file;
};

} // namespace Vesk
