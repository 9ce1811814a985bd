#include "support/network/http_failure.h"

#include "support/network/curl_library.h"
#include "support/network/http_request.h"

namespace Vesk {
namespace {

enum class failureKind { url, host, connect, timeout, tls, reply, redirects, other };

failureKind kindOf(CURLcode code) {
    switch (code) {
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT:
        return failureKind::url;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
        return failureKind::host;
    case CURLE_COULDNT_CONNECT:
        return failureKind::connect;
    case CURLE_OPERATION_TIMEDOUT:
        return failureKind::timeout;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_USE_SSL_FAILED:
        return failureKind::tls;
    // What arrived is not a whole reply: the connection ended or broke inside it, or the
    // framing (status line, headers, chunk sizes) made no sense.
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
        return failureKind::reply;
    case CURLE_TOO_MANY_REDIRECTS:
        return failureKind::redirects;
    default:
        return failureKind::other;
    }
}

const char* headline(failureKind kind) {
    switch (kind) {
    case failureKind::url:
        return "invalid URL";
    case failureKind::host:
        return "unknown host";
    case failureKind::connect:
        return "could not connect";
    case failureKind::timeout:
        return "network timeout";
    case failureKind::tls:
        return "TLS failure";
    case failureKind::reply:
        return "broken reply";
    case failureKind::redirects:
        return "too many redirects";
    case failureKind::other:
        break;
    }
    return "network error";
}

} // namespace

void throwTransferFailure(CURLcode code, long status, const std::string& detail,
                          const std::string& shownUrl) {
    if (code == CURLE_HTTP_RETURNED_ERROR && status >= 400)
        throw httpRequest::invalid_reply("HTTP error " + std::to_string(status) + " from " +
                                         shownUrl);
    const failureKind kind = kindOf(code);
    const std::string because = detail.empty() ? curlLibrary().easyStrerror(code) : detail;
    const std::string message =
        std::string(headline(kind)) + ": " + shownUrl + " (" + because + ")";
    switch (kind) {
    case failureKind::url:
        throw httpRequest::bad_url(message);
    case failureKind::reply:
    case failureKind::redirects:
        throw httpRequest::invalid_reply(message);
    default:
        throw httpRequest::error(message);
    }
}

} // namespace Vesk
