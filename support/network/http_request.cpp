#include "support/network/http_request.h"

#include "support/errors.h"
#include "support/message_text.h"
#include "support/network/curl_library.h"
#include "support/network/http_failure.h"
#include "support/thread_abort.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace Vesk {
namespace {

using clock_type = std::chrono::steady_clock;

// Bytes one receive may bring, and at most what waits for the reader beyond its own buffer.
constexpr long receiveBytes = 256 * 1024;
constexpr size_t heldBytesLimit = receiveBytes;
constexpr long redirectLimit = 10;

struct easyDeleter {
    void operator()(CURL* handle) const { curlLibrary().easyCleanup(handle); }
};
struct multiDeleter {
    void operator()(CURLM* handle) const { curlLibrary().multiCleanup(handle); }
};

// The library's process-wide set-up, done once, before the first handle and never undone:
// its tear-down is not safe while other threads might still use it.
void initialiseLibrary() {
    if (openCurlLibrary() == nullptr)
        throw httpRequest::error(std::string("network error: cannot open ") + curlLibraryName);
    static const CURLcode result = curlLibrary().globalInit(CURL_GLOBAL_DEFAULT);
    if (result != CURLE_OK)
        throw httpRequest::error(std::string("network error: ") +
                                 curlLibrary().easyStrerror(result));
}

const char* nonEmptyVariable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

} // namespace

std::string urlForMessages(const std::string& url) {
    const size_t schemeEnd = url.find("://");
    if (schemeEnd == std::string::npos)
        return url;
    const size_t hostStart = schemeEnd + 3;
    const size_t authorityEnd = std::min(url.find_first_of("/?#", hostStart), url.size());
    const size_t at = url.rfind('@', authorityEnd - 1);
    if (at == std::string::npos || at < hostStart)
        return url;
    return url.substr(0, hostStart) + url.substr(at + 1);
}

struct httpRequest::transfer {
    transfer(const std::string& url, const networkTimeouts& timeouts);
    ~transfer() {
        if (multi && easy)
            curlLibrary().multiRemoveHandle(multi.get(), easy.get());
    }

    template <class Option, class Value> void set(Option option, Value value) {
        if (curlLibrary().easySetopt(easy.get(), option, value) != CURLE_OK)
            throw error("network error: cannot set up the request for " + shownUrl);
    }

    static size_t onBody(char* data, size_t, size_t count, void* self) {
        return static_cast<transfer*>(self)->acceptBody(
            reinterpret_cast<const unsigned char*>(data), count);
    }
    static size_t onHeader(char* line, size_t, size_t count, void* self) {
        auto* owner = static_cast<transfer*>(self);
        owner->received += count;
        // The blank line ends a reply's headers.
        const bool headersEnd = count <= 2 && (count == 0 || line[0] == '\r' || line[0] == '\n');
        return headersEnd && owner->refusesEncoding() ? 0 : count;
    }

    size_t held() const { return pending.size() - pendingStart; }
    uint64_t takeHeld(unsigned char* destination, uint64_t length);
    size_t acceptBody(const unsigned char* data, size_t count);
    uint64_t receiveInto(unsigned char* destination, uint64_t length);
    void advance();
    template <class Predicate> void runUntil(Predicate enough);
    void waitForActivity(int milliseconds);
    bool connected() const;
    bool refusesEncoding();
    void throwIfFailed() const;

    std::string shownUrl;
    networkTimeouts limits;
    std::unique_ptr<CURLM, multiDeleter> multi;
    std::unique_ptr<CURL, easyDeleter> easy;
    char errorText[CURL_ERROR_SIZE] = {};

    // The reader's buffer while it waits in readSome: bytes go straight there.
    unsigned char* target = nullptr;
    uint64_t targetRoom = 0;
    uint64_t delivered = 0;
    // What arrived beyond the reader's buffer, in order, before anything newer.
    std::vector<unsigned char> pending;
    size_t pendingStart = 0;
    bool paused = false;
    // Header and body bytes received so far; the stall clock watches it move.
    uint64_t received = 0;

    bool finished = false;
    CURLcode result = CURLE_OK;
    // The Content-Encoding of a reply refused before its body.
    std::string refusedEncoding;
};

httpRequest::transfer::transfer(const std::string& url, const networkTimeouts& timeouts)
    : shownUrl(escapedForMessage(urlForMessages(url))), limits(timeouts) {
    initialiseLibrary();
    multi.reset(curlLibrary().multiInit());
    easy.reset(curlLibrary().easyInit());
    if (!multi || !easy)
        throw error("network error: cannot set up the request for " + shownUrl);
    set(CURLOPT_ERRORBUFFER, errorText);
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_MAXREDIRS, redirectLimit);
    // An error status ends the transfer before its body could pass for input.
    set(CURLOPT_FAILONERROR, 1L);
    // Signals belong to the program, and name look-ups must not use them for time-outs.
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limits.connectSeconds * 1000.0));
    set(CURLOPT_BUFFERSIZE, receiveBytes);
    set(CURLOPT_USERAGENT, "vst-adapter");
    // No encoding is asked for, and a reply in one is refused (refusesEncoding): a decoder
    // could hide a cut-off body, and encoded bytes must never pass for audio.
    set(CURLOPT_WRITEFUNCTION, onBody);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_HEADERFUNCTION, onHeader);
    set(CURLOPT_HEADERDATA, this);
    // The library only knows its built-in trust store; these are the variables OpenSSL itself
    // reads to replace the system's.
    if (const char* file = nonEmptyVariable("SSL_CERT_FILE"))
        set(CURLOPT_CAINFO, file);
    if (const char* folder = nonEmptyVariable("SSL_CERT_DIR"))
        set(CURLOPT_CAPATH, folder);
    if (curlLibrary().multiAddHandle(multi.get(), easy.get()) != CURLM_OK)
        throw error("network error: cannot start the request for " + shownUrl);
}

uint64_t httpRequest::transfer::takeHeld(unsigned char* destination, uint64_t length) {
    const uint64_t count = std::min<uint64_t>(length, held());
    std::memcpy(destination, pending.data() + pendingStart, count);
    pendingStart += count;
    return count;
}

size_t httpRequest::transfer::acceptBody(const unsigned char* data, size_t count) {
    if (held() > 0) {
        // Older bytes still wait: these go behind them, or stay with the library until the
        // reader catches up, which keeps memory bounded.
        if (held() + count > heldBytesLimit) {
            paused = true;
            return CURL_WRITEFUNC_PAUSE;
        }
        pending.insert(pending.end(), data, data + count);
    } else {
        const size_t direct = static_cast<size_t>(std::min<uint64_t>(count, targetRoom));
        if (direct > 0)
            std::memcpy(target, data, direct);
        target += direct;
        targetRoom -= direct;
        delivered += direct;
        pending.assign(data + direct, data + count);
        pendingStart = 0;
    }
    received += count;
    return count;
}

uint64_t httpRequest::transfer::receiveInto(unsigned char* destination, uint64_t length) {
    // The body callback writes into the reader's buffer only during this wait: the guard takes
    // the buffer back on every way out.
    struct lentBuffer {
        transfer& owner;
        ~lentBuffer() {
            owner.target = nullptr;
            owner.targetRoom = 0;
        }
    } lent{*this};
    target = destination;
    targetRoom = length;
    delivered = 0;
    runUntil([this] { return delivered > 0; });
    return delivered;
}

void httpRequest::transfer::advance() {
    if (paused) {
        // Hands the held-back piece to acceptBody again, right here.
        paused = false;
        if (curlLibrary().easyPause(easy.get(), CURLPAUSE_CONT) != CURLE_OK)
            throw error("network error: " + shownUrl);
    }
    int running = 0;
    const CURLMcode code = curlLibrary().multiPerform(multi.get(), &running);
    if (code != CURLM_OK)
        throw error("network error: " + shownUrl + " (" + curlLibrary().multiStrerror(code) + ")");
    int left = 0;
    while (CURLMsg* message = curlLibrary().multiInfoRead(multi.get(), &left)) {
        if (message->msg == CURLMSG_DONE) {
            finished = true;
            result = message->data.result;
        }
    }
}

bool httpRequest::transfer::connected() const {
    curl_off_t ready = 0;
    curlLibrary().easyGetinfo(easy.get(), CURLINFO_PRETRANSFER_TIME_T, &ready);
    return ready > 0;
}

void httpRequest::transfer::waitForActivity(int milliseconds) {
    curl_waitfd stopRequest{currentAbortDescriptor(), CURL_WAIT_POLLIN, 0};
    const unsigned extra = stopRequest.fd >= 0 ? 1 : 0;
    const CURLMcode code = curlLibrary().multiPoll(multi.get(), extra > 0 ? &stopRequest : nullptr,
                                                   extra, milliseconds, nullptr);
    if (code != CURLM_OK)
        throw error("network error: " + shownUrl + " (" + curlLibrary().multiStrerror(code) + ")");
    if (extra > 0 && (stopRequest.revents & CURL_WAIT_POLLIN) != 0)
        throw user_abort();
}

template <class Predicate> void httpRequest::transfer::runUntil(Predicate enough) {
    const bool limited = limits.stallSeconds >= 0;
    const auto stall = std::chrono::duration_cast<clock_type::duration>(
        std::chrono::duration<double>(limited ? limits.stallSeconds : 0.0));
    uint64_t seen = received;
    auto lastActivity = clock_type::now();
    for (;;) {
        advance();
        if (enough() || finished)
            return;
        const auto now = clock_type::now();
        // Connecting has its own limit, which the library enforces.
        if (received != seen || !connected()) {
            seen = received;
            lastActivity = now;
        } else if (limited && now - lastActivity >= stall) {
            char seconds[32];
            std::snprintf(seconds, sizeof seconds, "%g", limits.stallSeconds);
            throw error("network timeout: no data for " + std::string(seconds) + " s from " +
                        shownUrl);
        }
        // The library cuts each wait short for its own timers (connecting, for one).
        long long milliseconds = 1000;
        if (limited) {
            milliseconds =
                std::chrono::duration_cast<std::chrono::milliseconds>(lastActivity + stall - now)
                    .count();
        }
        waitForActivity(static_cast<int>(std::clamp<long long>(milliseconds, 0, 1000 * 1000)));
    }
}

bool httpRequest::transfer::refusesEncoding() {
    // Only the reply whose body is the input counts: not a redirect, interim or error reply.
    long status = 0;
    curlLibrary().easyGetinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status < 200 || status > 299)
        return false;
    for (size_t index = 0;; ++index) {
        curl_header* header = nullptr;
        if (curlLibrary().easyHeader(easy.get(), "Content-Encoding", index, CURLH_HEADER, -1,
                                     &header) != CURLHE_OK)
            return false;
        std::string value = header->value;
        value.erase(0, value.find_first_not_of(" \t"));
        value.erase(value.find_last_not_of(" \t") + 1);
        std::transform(value.begin(), value.end(), value.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (!value.empty() && value != "identity") {
            refusedEncoding = header->value;
            return true;
        }
        if (index + 1 >= header->amount)
            return false;
    }
}

void httpRequest::transfer::throwIfFailed() const {
    long status = 0;
    curlLibrary().easyGetinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);
    if (!refusedEncoding.empty())
        throwTransferFailure(CURLE_BAD_CONTENT_ENCODING, status,
                             "unsupported Content-Encoding: " + escapedForMessage(refusedEncoding),
                             shownUrl);
    if (result == CURLE_OK)
        return;
    throwTransferFailure(result, status, errorText, shownUrl);
}

httpRequest::httpRequest(const std::string& url, const networkTimeouts& timeouts)
    : state(std::make_unique<transfer>(url, timeouts)) {
    state->runUntil([this] { return state->held() > 0; });
    if (state->held() == 0)
        state->throwIfFailed();
}

httpRequest::~httpRequest() = default;

uint64_t httpRequest::readSome(void* buffer, uint64_t length) {
    auto* bytes = static_cast<unsigned char*>(buffer);
    if (length == 0)
        return 0;
    if (state->held() > 0)
        return state->takeHeld(bytes, length);
    if (!state->finished) {
        if (const uint64_t count = state->receiveInto(bytes, length))
            return count;
    }
    // Whatever arrived before a failure has been read; now the failure counts.
    state->throwIfFailed();
    return 0;
}

bool httpRequest::isReady() {
    if (state->held() == 0 && !state->finished)
        state->advance();
    return state->held() > 0 || state->finished;
}

void httpRequest::waitReady() {
    if (state->held() == 0 && !state->finished)
        state->runUntil([this] { return state->held() > 0; });
}

std::optional<uint64_t> httpRequest::contentLength() const {
    curl_off_t length = -1;
    curlLibrary().easyGetinfo(state->easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    if (length < 0)
        return std::nullopt;
    return static_cast<uint64_t>(length);
}

std::string httpRequest::contentType() const {
    char* type = nullptr;
    curlLibrary().easyGetinfo(state->easy.get(), CURLINFO_CONTENT_TYPE, &type);
    return type != nullptr ? type : "";
}

} // namespace Vesk
