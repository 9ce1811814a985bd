#include "tests/common/child_process.h"
#include "tests/common/http_test_server.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <ostream>
#include <random>

namespace {

using testing_support::ChildOptions;
using testing_support::ChildResult;
using testing_support::HttpTestServer;
using testing_support::runAdapter;

std::string randomSamples(size_t bytes) {
    std::mt19937 random(77);
    std::string data(bytes, '\0');
    for (auto& byte : data)
        byte = static_cast<char>(random());
    return data;
}

std::string chunk(uint32_t code, const std::string& payload) {
    std::string bytes(8, '\0');
    std::memcpy(bytes.data(), &code, 4);
    const auto length = static_cast<uint32_t>(payload.size());
    std::memcpy(bytes.data() + 4, &length, 4);
    return bytes + payload;
}

std::string formatRecord(uint32_t rate, uint32_t channels) {
    const uint32_t fields[5] = {rate, channels, 0, channels, 0};
    return std::string(reinterpret_cast<const char*>(fields), sizeof fields);
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

enum class framing { plain, chunked };

// Inputs for both framings as files, served over http and over https with a certificate made
// for this run.
class NetworkProcess : public testing::Test {
  public:
    static void SetUpTestSuite() {
        char pattern[] = "/tmp/vst-network-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        folder = pattern;
        // 16-bit stereo: whole frames, and every 16-bit value survives the identity exactly.
        plainInput = randomSamples(4 * 48000);
        writeFile(path("plain.raw"), plainInput);
        const std::string audio = randomSamples(4 * 3000);
        writeFile(path("chunked.bin"), chunk(3, formatRecord(44100, 2)) + chunk(1, audio) +
                                           chunk(4, "") + chunk(1, audio.substr(0, 400)));
        const auto made = testing_support::runChild(
            "/usr/bin/env",
            {"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
             "-nodes", "-keyout", path("key.pem"), "-out", path("cert.pem"), "-days", "2", "-subj",
             "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"});
        ASSERT_EQ(made.exitStatus, 0) << made.err;
        http = std::make_unique<HttpTestServer>(folder);
        https = std::make_unique<HttpTestServer>(folder, path("cert.pem"), path("key.pem"));
        refusing = std::make_unique<testing_support::RefusingPort>();
    }
    static void TearDownTestSuite() {
        refusing.reset();
        https.reset();
        http.reset();
        std::filesystem::remove_all(folder);
    }

    static std::string path(const std::string& name) { return folder + "/" + name; }

    // The identity plug-in processing `input` (a file path or a URL) in `how` framing.
    static ChildResult
    process(const std::string& input, framing how,
            const std::map<std::string, std::optional<std::string>>& extra = {}) {
        ChildOptions options;
        options.environment["TEST_EFFECT"] = "tail=1";
        options.environment["HOME"] = folder;
        options.environment["no_proxy"] = "127.0.0.1";
        // Only the test's own authority is trusted unless a case says otherwise.
        options.environment["SSL_CERT_FILE"] = path("cert.pem");
        for (const auto& [key, value] : extra)
            options.environment[key] = value;
        std::vector<std::string> arguments{"process", "--vst", TEST_EFFECT_PATH, "--input", input,
                                           "--bits",  "16"};
        if (how == framing::chunked) {
            arguments.insert(arguments.end(), {"--protocol", "chunked"});
        } else {
            arguments.insert(arguments.end(), {"--rate", "44100", "--channels", "2"});
        }
        return runAdapter(arguments, options);
    }

    inline static std::string folder;
    inline static std::string plainInput;
    inline static std::unique_ptr<HttpTestServer> http;
    inline static std::unique_ptr<HttpTestServer> https;
    inline static std::unique_ptr<testing_support::RefusingPort> refusing;
};

struct Delivery {
    const char* name;
    framing how;
    std::function<std::string()> url;
    const char* file;
};

// Test names, not bytes, in listings.
void PrintTo(const Delivery& c, std::ostream* os) {
    *os << c.name;
}

class NetworkSameBytes : public NetworkProcess, public testing::WithParamInterface<Delivery> {};

TEST_P(NetworkSameBytes, AsFromTheFile) {
    const auto& c = GetParam();
    const auto fromFile = process(path(c.file), c.how);
    ASSERT_EQ(fromFile.exitStatus, 0) << fromFile.err;
    ASSERT_FALSE(fromFile.out.empty());
    if (c.how == framing::plain) {
        ASSERT_TRUE(fromFile.out == plainInput) << "the identity changed the file's bytes";
    }
    const auto fromNetwork = process(c.url(), c.how);
    EXPECT_EQ(fromNetwork.exitStatus, 0) << fromNetwork.err;
    EXPECT_EQ(fromNetwork.err, "");
    EXPECT_EQ(fromNetwork.out.size(), fromFile.out.size());
    EXPECT_TRUE(fromNetwork.out == fromFile.out) << "output differs";
}

std::string onHttp(const std::string& path) {
    return NetworkProcess::http->url(path);
}
std::string onHttps(const std::string& path) {
    return NetworkProcess::https->url(path);
}

INSTANTIATE_TEST_SUITE_P(
    Table, NetworkSameBytes,
    testing::Values(
        Delivery{"PlainContentLength", framing::plain, [] { return onHttp("/files/plain.raw"); },
                 "plain.raw"},
        Delivery{"PlainChunkedTransfer", framing::plain,
                 [] { return onHttp("/files/plain.raw?coding=chunked&pieces=1,7,4093,333"); },
                 "plain.raw"},
        Delivery{"PlainSlowOddPieces", framing::plain,
                 [] { return onHttp("/files/plain.raw?pieces=1,777,3,2049&delay=0.002"); },
                 "plain.raw"},
        Delivery{"PlainRedirected", framing::plain,
                 [] { return onHttp("/redirect/2/files/plain.raw"); }, "plain.raw"},
        Delivery{"PlainUpperCaseScheme", framing::plain,
                 [] { return "HTTP" + onHttp("/files/plain.raw").substr(4); }, "plain.raw"},
        Delivery{"PlainHttps", framing::plain,
                 [] { return onHttps("/files/plain.raw?pieces=5000,1"); }, "plain.raw"},
        Delivery{"ChunkedContentLength", framing::chunked,
                 [] { return onHttp("/files/chunked.bin"); }, "chunked.bin"},
        Delivery{
            "ChunkedSlowOddPieces", framing::chunked,
            [] { return onHttp("/files/chunked.bin?coding=chunked&pieces=3,1,8,999&delay=0.001"); },
            "chunked.bin"},
        Delivery{"ChunkedHttps", framing::chunked, [] { return onHttps("/files/chunked.bin"); },
                 "chunked.bin"},
        // Compressed on the way, whether or not we asked: the audio is what arrives.
        Delivery{"PlainGzipEncoded", framing::plain,
                 [] { return onHttp("/files/plain.raw?encoding=gzip&coding=chunked"); },
                 "plain.raw"},
        Delivery{"ChunkedDeflateEncoded", framing::chunked,
                 [] { return onHttp("/files/chunked.bin?encoding=deflate"); }, "chunked.bin"}),
    [](const auto& info) { return std::string(info.param.name); });

struct Failure {
    const char* name;
    std::function<std::string()> url;
    std::function<std::string(const std::string& url)> messageStart;
    std::map<std::string, std::optional<std::string>> environment;
};

void PrintTo(const Failure& c, std::ostream* os) {
    *os << c.name;
}

class NetworkFailures : public NetworkProcess, public testing::WithParamInterface<Failure> {};

TEST_P(NetworkFailures, EndWithOneLineAndStatus255) {
    const auto& c = GetParam();
    const std::string url = c.url();
    const auto result = process(url, framing::plain, c.environment);
    EXPECT_EQ(result.exitStatus, 255);
    const std::string start = c.messageStart(url);
    EXPECT_EQ(result.err.substr(0, start.size()), start) << result.err;
    ASSERT_FALSE(result.err.empty());
    EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << "one line: " << result.err;
}

std::string prefixed(const char* headline, const std::string& url) {
    return std::string(headline) + ": " + url + " (";
}

INSTANTIATE_TEST_SUITE_P(
    Table, NetworkFailures,
    testing::Values(Failure{"NotFound",
                            [] { return onHttp("/files/missing.raw"); },
                            [](auto& url) { return "HTTP error 404 from " + url + "\n"; },
                            {}},
                    Failure{"ClosedMidBody",
                            [] { return onHttp("/files/plain.raw?cut=100001"); },
                            [](auto& url) { return prefixed("broken reply", url); },
                            {}},
                    Failure{"ChunkedWithoutItsLastChunk",
                            [] { return onHttp("/files/plain.raw?coding=chunked&cut=192000"); },
                            [](auto& url) { return prefixed("broken reply", url); },
                            {}},
                    Failure{"RefusedConnection",
                            [] {
                                return "http://127.0.0.1:" +
                                       std::to_string(NetworkProcess::refusing->port()) +
                                       "/plain.raw";
                            },
                            [](auto& url) { return prefixed("could not connect", url); },
                            {}},
                    Failure{"UnknownHost",
                            [] { return std::string("http://nohost.invalid/plain.raw"); },
                            [](auto& url) { return prefixed("unknown host", url); },
                            {}},
                    Failure{"UntrustedCertificate",
                            [] { return onHttps("/files/plain.raw"); },
                            [](auto& url) { return prefixed("TLS failure", url); },
                            {{"SSL_CERT_FILE", std::nullopt}, {"SSL_CERT_DIR", std::nullopt}}},
                    Failure{"EndlessRedirects",
                            [] { return onHttp("/loop"); },
                            [](auto& url) { return prefixed("too many redirects", url); },
                            {}},
                    Failure{"EncodingWeCannotDecode",
                            [] { return onHttp("/files/plain.raw?encoding=x-squeeze"); },
                            [](auto& url) { return prefixed("broken reply", url); },
                            {}},
                    Failure{"ControlCharactersInTheUrl",
                            [] { return onHttp("/files/pl\nain.raw"); },
                            [](auto&) {
                                return "invalid URL: " + onHttp("/files/pl\\nain.raw") + " (";
                            },
                            {}}),
    [](const auto& info) { return std::string(info.param.name); });

} // namespace
