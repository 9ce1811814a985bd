#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

// Settings messages kept so that they can be given again, in order and byte for byte. They wait
// in an anonymous temporary file (each as its length and its bytes), so that however many
// there are, only the one being given back takes memory. Owned by one processor; its thread.
class SettingsSpool {
  public:
    // Throws the file error classes when the file cannot be made or written.
    void append(const uint8_t* data, uint64_t length);
    // Hands every message kept to `take`, oldest first, each in the same buffer.
    void replay(const std::function<void(const uint8_t*, uint64_t)>& take);
    void clear() { file.reset(); }

  private:
    struct FileCloser {
        void operator()(std::FILE* f) const { std::fclose(f); }
    };

    std::unique_ptr<std::FILE, FileCloser> file;
};
