#pragma once

#include <utility>

// Owns one POSIX descriptor and closes it on destruction. Move-only; used by one thread at a
// time like the object that holds it.
namespace Vesk {

class uniqueDescriptor {
  public:
    uniqueDescriptor() = default;
    explicit uniqueDescriptor(int fd) noexcept : descriptor(fd) {}
    ~uniqueDescriptor() { reset(); }
    uniqueDescriptor(uniqueDescriptor&& other) noexcept : descriptor(other.release()) {}
    uniqueDescriptor& operator=(uniqueDescriptor&& other) noexcept {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    uniqueDescriptor(const uniqueDescriptor&) = delete;
    uniqueDescriptor& operator=(const uniqueDescriptor&) = delete;

    int get() const noexcept { return descriptor; }
    bool valid() const noexcept { return descriptor >= 0; }
    int release() noexcept { return std::exchange(descriptor, -1); }
    // Closes the held descriptor (if any) and takes `fd`.
    void reset(int fd = -1) noexcept;

  private:
    int descriptor = -1;
};

} // namespace Vesk
