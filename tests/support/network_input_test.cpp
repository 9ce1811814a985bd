#include "support/errors.h"
#include "support/file_stream.h"
#include "support/network/network_input.h"
#include "support/thread.h"
#include "support/wait_for_any.h"
#include "tests/common/case_name.h"
#include "tests/common/http_test_server.h"
#include "tests/common/scratch.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <typeinfo>

namespace {

using testing_support::caseName;

using testing_support::HttpTestServer;

std::string randomBytes(size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(count, '\0');
    for (auto& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

// One server for the suite, serving two files: a small one and one larger than everything
// the reader may hold back.
class NetworkInput : public testing::Test {
  public:
    static void SetUpTestSuite() {
        // Loopback requests must not go to a proxy the developer's environment names.
        ::setenv("no_proxy", "127.0.0.1", 1);
        folder = std::make_unique<scratch::Folder>();
        small = randomBytes(100000, 1);
        large = randomBytes(3 << 20, 2);
        scratch::writeFile(*folder / "small.bin", small);
        scratch::writeFile(*folder / "large.bin", large);
        server = std::make_unique<HttpTestServer>(folder->path());
        refusing = std::make_unique<testing_support::RefusingPort>();
    }
    static void TearDownTestSuite() {
        refusing.reset();
        server.reset();
        folder.reset();
    }

    static std::string url(const std::string& path) { return server->url(path); }
    static std::string refusedUrl() {
        return "http://127.0.0.1:" + std::to_string(refusing->port()) + "/x";
    }

    inline static std::unique_ptr<scratch::Folder> folder;
    inline static std::unique_ptr<HttpTestServer> server;
    inline static std::unique_ptr<testing_support::RefusingPort> refusing;
    inline static std::string small;
    inline static std::string large;
};

// Reads in pieces of `piece` bytes, checking that only the last read comes up short.
std::string readInPieces(Vesk::fileIn& in, size_t piece) {
    std::string all;
    std::string buffer(piece, '\0');
    for (;;) {
        const uint64_t got = in.read(buffer.data(), piece);
        all.append(buffer, 0, got);
        if (got < piece)
            break;
    }
    char extra;
    EXPECT_EQ(in.read(&extra, 1), 0u) << "a second read after the end";
    return all;
}

struct Delivery {
    const char* name;
    std::string path; // after the server's address
    bool large;
    size_t piece;
};

// Test names, not bytes, in listings.
void PrintTo(const Delivery& c, std::ostream* os) {
    *os << c.name;
}

class NetworkDelivery : public NetworkInput, public testing::WithParamInterface<Delivery> {};

TEST_P(NetworkDelivery, ReadsTheWholeBodyAndComesUpShortOnlyAtItsEnd) {
    const auto& c = GetParam();
    auto in = Vesk::openInput(url(c.path));
    const std::string got = readInPieces(*in, c.piece);
    const std::string& expected = c.large ? large : small;
    EXPECT_EQ(got.size(), expected.size());
    EXPECT_TRUE(got == expected) << "bytes differ";
    EXPECT_EQ(in->tell(), expected.size());
}

INSTANTIATE_TEST_SUITE_P(
    Table, NetworkDelivery,
    testing::Values(
        Delivery{"ContentLength", "/files/small.bin", false, 4093},
        Delivery{"ChunkedOddPieces", "/files/small.bin?coding=chunked&pieces=1,7,4093,333", false,
                 4096},
        Delivery{"SlowOddPieces", "/files/small.bin?pieces=1,777,3,2049&delay=0.002", false, 1000},
        Delivery{"EndedByClosing", "/files/small.bin?coding=close&pieces=5000", false, 65536},
        Delivery{"ThreeRedirects", "/redirect/3/files/small.bin", false, 4096},
        Delivery{"LargeInTinyReads", "/files/large.bin", true, 7},
        Delivery{"LargeInHugeReads", "/files/large.bin?coding=chunked", true, 5 << 20}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(NetworkInput, SchemeIsRecognisedInAnyLetterCase) {
    const std::string address = url("/files/small.bin");
    auto in = Vesk::openInput("HtTp" + address.substr(4));
    EXPECT_TRUE(readInPieces(*in, 65536) == small);
}

TEST_F(NetworkInput, ReadSomeGivesWhatIsAtHandButNeverNothingBeforeTheEnd) {
    auto in = Vesk::openNetworkInput(url("/files/small.bin?pieces=1000,1&delay=0.001"));
    std::string all;
    char buffer[4096];
    while (const uint64_t got = in->readSome(buffer, sizeof buffer)) {
        ASSERT_LE(got, sizeof buffer);
        all.append(buffer, got);
    }
    EXPECT_TRUE(all == small);
    EXPECT_TRUE(in->isReady()) << "the end is ready at once";
}

TEST_F(NetworkInput, IsAForwardOnlyFileOfTheAnnouncedSize) {
    auto in = Vesk::openNetworkInput(url("/files/small.bin"));
    EXPECT_FALSE(in->canSeek());
    EXPECT_EQ(in->size(), small.size());
    std::string type;
    EXPECT_TRUE(in->queryProperty("content-type", type));
    EXPECT_EQ(type, "application/octet-stream");
    EXPECT_FALSE(in->queryProperty("etag", type));
    char buffer[10];
    in->readExact(buffer, sizeof buffer);
    EXPECT_NO_THROW(in->seek(10));
    EXPECT_THROW(in->seek(0), Vesk::not_implemented);
    EXPECT_EQ(in->skip(90), 90u);
    EXPECT_EQ(in->tell(), 100u);

    auto unsized = Vesk::openNetworkInput(url("/files/small.bin?coding=close"));
    EXPECT_THROW(unsized->size(), Vesk::not_implemented);
}

enum class failureClass { error, invalidReply, badUrl };

bool isOfClass(const Vesk::httpRequest::error& caught, failureClass expected) {
    const bool reply = dynamic_cast<const Vesk::httpRequest::invalid_reply*>(&caught) != nullptr;
    const bool url = dynamic_cast<const Vesk::httpRequest::bad_url*>(&caught) != nullptr;
    switch (expected) {
    case failureClass::invalidReply:
        return reply;
    case failureClass::badUrl:
        return url;
    case failureClass::error:
        return !reply && !url;
    }
    return false;
}

struct Failure {
    const char* name;
    std::function<std::string()> address;
    failureClass kind;
    std::function<std::string(const std::string& url)> messageStart;
    size_t intactBytes; // how much of the small file arrives before the failure
};

void PrintTo(const Failure& c, std::ostream* os) {
    *os << c.name;
}

std::string httpError(const std::string& shown, int status) {
    return "HTTP error " + std::to_string(status) + " from " + shown;
}

class NetworkFailures : public NetworkInput, public testing::WithParamInterface<Failure> {};

// Every failure throws with its text, at the open or at the read that meets it, never passing
// for a clean end; what arrived before it is delivered intact.
TEST_P(NetworkFailures, ThrowInsteadOfEnding) {
    const auto& c = GetParam();
    const std::string address = c.address();
    std::string got;
    try {
        auto in = Vesk::openNetworkInput(address, Vesk::networkTimeouts{5.0, 0.5});
        char buffer[1000];
        while (const uint64_t count = in->read(buffer, sizeof buffer))
            got.append(buffer, count);
        FAIL() << "ended cleanly after " << got.size() << " bytes";
    } catch (const Vesk::httpRequest::error& error) {
        EXPECT_TRUE(isOfClass(error, c.kind)) << typeid(error).name();
        const std::string start = c.messageStart(Vesk::urlForMessages(address));
        EXPECT_EQ(std::string(error.what()).substr(0, start.size()), start) << error.what();
        EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos);
    }
    EXPECT_EQ(got.size(), c.intactBytes);
    EXPECT_TRUE(got == small.substr(0, got.size()));
}

INSTANTIATE_TEST_SUITE_P(
    Table, NetworkFailures,
    testing::Values(
        Failure{"NotFound", [] { return NetworkInput::url("/files/missing.bin"); },
                failureClass::invalidReply, [](auto& u) { return httpError(u, 404); }, 0},
        Failure{"CredentialsStayOutOfMessages",
                [] { return "http://user:secret@" + NetworkInput::url("/status/401").substr(7); },
                failureClass::invalidReply,
                [](auto& u) {
                    EXPECT_EQ(u.find("secret"), std::string::npos);
                    return httpError(u, 401);
                },
                0},
        Failure{"CutShort", [] { return NetworkInput::url("/files/small.bin?cut=5000"); },
                failureClass::invalidReply, [](auto& u) { return "broken reply: " + u + " ("; },
                5000},
        Failure{"ChunkedWithoutItsLastChunk",
                [] { return NetworkInput::url("/files/small.bin?coding=chunked&cut=100000"); },
                failureClass::invalidReply, [](auto& u) { return "broken reply: " + u + " ("; },
                100000},
        Failure{"MalformedChunk",
                [] {
                    return NetworkInput::url(
                        "/files/small.bin?coding=chunked&pieces=3000&badchunk=1");
                },
                failureClass::invalidReply, [](auto& u) { return "broken reply: " + u + " ("; },
                100000},
        Failure{"EndlessRedirects", [] { return NetworkInput::url("/loop"); },
                failureClass::invalidReply,
                [](auto& u) { return "too many redirects: " + u + " ("; }, 0},
        Failure{"NeverAnswers", [] { return NetworkInput::url("/silent"); }, failureClass::error,
                [](auto& u) { return "network timeout: no data for 0.5 s from " + u; }, 0},
        Failure{"StallsMidBody", [] { return NetworkInput::url("/files/small.bin?stall=7000"); },
                failureClass::error,
                [](auto& u) { return "network timeout: no data for 0.5 s from " + u; }, 7000},
        Failure{"RefusedConnection", [] { return NetworkInput::refusedUrl(); }, failureClass::error,
                [](auto& u) { return "could not connect: " + u + " ("; }, 0},
        Failure{"UnusableUrl", [] { return std::string("http://"); }, failureClass::badUrl,
                [](auto&) { return std::string("invalid URL: http:// ("); }, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(NetworkInput, StopRequestEndsAWaitWithoutTimeLimit) {
    std::string outcome;
    Vesk::threadEx reader([&](void*) {
        try {
            Vesk::openNetworkInput(url("/silent"), Vesk::networkTimeouts{30.0, -1.0});
            outcome = "opened";
        } catch (const std::exception& error) {
            outcome = error.what();
        }
    });
    reader.start();
    Vesk::sleep(0.2);
    reader.requestStop();
    reader.join();
    EXPECT_EQ(outcome, "user abort");
}

struct Shown {
    const char* url;
    const char* shown;
};

void PrintTo(const Shown& c, std::ostream* os) {
    *os << c.url;
}

class UrlForMessages : public testing::TestWithParam<Shown> {};

TEST_P(UrlForMessages, DropsUserAndPasswordOnly) {
    EXPECT_EQ(Vesk::urlForMessages(GetParam().url), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(Table, UrlForMessages,
                         testing::Values(Shown{"http://user:pw@host:81/a", "http://host:81/a"},
                                         Shown{"https://user@host", "https://host"},
                                         Shown{"http://a:b@c@host/x", "http://host/x"},
                                         Shown{"http://host/path@not-a-user",
                                               "http://host/path@not-a-user"},
                                         Shown{"http://host?q=a@b", "http://host?q=a@b"},
                                         Shown{"http://host#x@y", "http://host#x@y"},
                                         Shown{"not a url@all", "not a url@all"}),
                         [](const auto& info) {
                             const auto& c = info.param;
                             return std::string(caseName({c.url}));
                         });

} // namespace
