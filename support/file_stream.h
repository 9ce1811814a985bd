#pragma once

#include "support/stream.h"

#include <memory>
#include <string>

// Seekable files. fileInOutImpl_posix owns its descriptor; the stream objects are used by one
// thread at a time.
namespace Vesk {

class fileIn : public streamIn {
  public:
    virtual bool canSeek() { return true; }
    virtual void seek(uint64_t position) = 0;
    virtual uint64_t tell() = 0;
    virtual uint64_t size() = 0;
    // Named metadata; only network files have any.
    virtual bool queryProperty(const std::string& key, std::string& result);
};

class fileInOut : public fileIn, public streamOut {
  public:
    virtual void setLength(uint64_t length) = 0;
    void write(const void* buffer, uint64_t length) override = 0;
};

class fileInOutImpl_posix : public fileInOut {
  public:
    fileInOutImpl_posix() = default;
    ~fileInOutImpl_posix() override;
    fileInOutImpl_posix(const fileInOutImpl_posix&) = delete;
    fileInOutImpl_posix& operator=(const fileInOutImpl_posix&) = delete;

    // Paths are UTF-8 bytes, passed to the system unchanged. Failures throw file errors.
    void openForReading(const std::string& path);
    void openForWriting(const std::string& path);
    // Read-write, created if missing, its contents left as they are (setLength(0) empties it).
    void openForUpdate(const std::string& path);
    void close();

    // Returns fewer than `length` bytes only at the end of the file.
    uint64_t read(void* buffer, uint64_t length) override;
    void seek(uint64_t position) override;
    uint64_t tell() override;
    uint64_t size() override;
    void setLength(uint64_t length) override;
    void write(const void* buffer, uint64_t length) override;

  private:
    int checkedDescriptor() const;
    void open(const std::string& path, int flags);

    int descriptor = -1;
};

// "http://" and "https://" (any letter case) name network resources.
bool isNetworkName(const std::string& name);

// Opens a local file.
std::shared_ptr<fileIn> openFileForReading(const std::string& name);
// Creates or truncates a local file.
std::shared_ptr<fileInOut> openFileForWriting(const std::string& name);
// Creates a local file or opens it as it is, for a caller that empties it later.
std::shared_ptr<fileInOut> openFileForUpdate(const std::string& name);

} // namespace Vesk
