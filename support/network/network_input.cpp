#include "support/network/network_input.h"

#include "support/errors.h"

namespace Vesk {
namespace {

// The stream face of a request: the request pulls, this keeps the read rules and the position.
class networkFileIn : public fileIn {
  public:
    networkFileIn(const std::string& url, const networkTimeouts& timeouts)
        : request(url, timeouts) {}

    uint64_t read(void* buffer, uint64_t length) override {
        auto* bytes = static_cast<unsigned char*>(buffer);
        uint64_t done = 0;
        while (done < length) {
            const uint64_t got = request.readSome(bytes + done, length - done);
            if (got == 0)
                break;
            done += got;
        }
        position += done;
        return done;
    }

    uint64_t readSome(void* buffer, uint64_t length) override {
        const uint64_t got = request.readSome(buffer, length);
        position += got;
        return got;
    }

    void waitReady() override { request.waitReady(); }
    bool isReady() override { return request.isReady(); }

    bool canSeek() override { return false; }
    // Staying where we are is the one move a forward-only body can make.
    void seek(uint64_t target) override {
        if (target != position)
            throw not_implemented();
    }
    uint64_t tell() override { return position; }
    uint64_t size() override {
        if (const auto length = request.contentLength())
            return *length;
        throw not_implemented();
    }

    bool queryProperty(const std::string& key, std::string& result) override {
        if (key != "content-type")
            return false;
        result = request.contentType();
        return !result.empty();
    }

  private:
    httpRequest request;
    uint64_t position = 0;
};

} // namespace

std::shared_ptr<fileIn> openNetworkInput(const std::string& url, const networkTimeouts& timeouts) {
    return std::make_shared<networkFileIn>(url, timeouts);
}

std::shared_ptr<fileIn> openInput(const std::string& name) {
    if (isNetworkName(name))
        return openNetworkInput(name);
    return openFileForReading(name);
}

} // namespace Vesk
