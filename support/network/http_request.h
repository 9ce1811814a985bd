#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

// One HTTP or HTTPS GET whose response body the reader pulls: bytes are fetched from the
// server only as the reader asks for them, so memory stays bounded whatever the body's size.
// Owned by one reader; one thread at a time.
namespace Vesk {

// Limits on waiting for a server. Connecting (name look-up and TLS included) may take
// `connectSeconds`; once connected, a reader waiting for the next byte gives up after
// `stallSeconds` without one (negative: no limit).
struct networkTimeouts {
    double connectSeconds = 30.0;
    double stallSeconds = 30.0;
};

class httpRequest {
  public:
    // Every failure of a request; the text names what went wrong and the URL (without any
    // user name or password it carried).
    struct error : std::runtime_error {
        explicit error(const std::string& message) : std::runtime_error(message) {}
    };
    // The server answered, but not with a whole body: an HTTP error status, a body cut short,
    // a broken chunked transfer, endless redirects.
    struct invalid_reply : error {
        using error::error;
    };
    // The URL itself cannot be requested.
    struct bad_url : error {
        using error::error;
    };

    // Sends the request and waits until the response body begins (or the request fails), so
    // that an unknown host, a refused connection or an error status surface here.
    explicit httpRequest(const std::string& url, const networkTimeouts& timeouts = {});
    ~httpRequest();
    httpRequest(const httpRequest&) = delete;
    httpRequest& operator=(const httpRequest&) = delete;

    // At least one byte, waiting as needed; more only as far as they are at hand. 0 once the
    // body has ended cleanly; a body that ended any other way throws instead.
    uint64_t readSome(void* buffer, uint64_t length);
    // Whether readSome would return without waiting.
    bool isReady();
    // Blocks until readSome would not wait.
    void waitReady();

    // Content-Length of the response, when the server sent one.
    std::optional<uint64_t> contentLength() const;
    // The response's Content-Type, empty when there is none.
    std::string contentType() const;

  private:
    struct transfer;
    std::unique_ptr<transfer> state;
};

// `url` with any user name and password removed, for messages.
std::string urlForMessages(const std::string& url);

} // namespace Vesk
