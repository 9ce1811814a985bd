#include "support/network/network_input.h"
#include "support/thread.h"
#include "support/wait_for_any.h"
#include "tests/common/http_test_server.h"
#include "tests/common/scratch.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstdlib>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using testing_support::HttpTestServer;

// A loopback port whose queue of connections waiting to be accepted is full, so a new
// connection attempt is never answered.
class FullBacklogPort {
  public:
    FullBacklogPort() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(listener, 0);
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        number = ntohs(address.sin_port);
        for (int& fd : fillers) {
            fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        }
    }
    ~FullBacklogPort() {
        for (int fd : fillers)
            ::close(fd);
        ::close(listener);
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(number) + "/x"; }

  private:
    int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int fillers[3] = {};
    int number = 0;
};

// One server for the suite, serving one file.
class NetworkInput : public testing::Test {
  public:
    static void SetUpTestSuite() {
        // Loopback requests must not go to a proxy the developer's environment names.
        ::setenv("no_proxy", "127.0.0.1", 1);
        folder = std::make_unique<scratch::Folder>();
        small.clear();
        for (int i = 0; i < 20000; ++i)
            small += static_cast<char>(i * 7 + i / 256);
        scratch::writeFile(*folder / "small.bin", small);
        server = std::make_unique<HttpTestServer>(folder->path());
    }
    static void TearDownTestSuite() {
        server.reset();
        folder.reset();
    }
    static std::string url(const std::string& path) { return server->url(path); }

    inline static std::unique_ptr<scratch::Folder> folder;
    inline static std::unique_ptr<HttpTestServer> server;
    inline static std::string small;
};

struct Failure {
    const char* name;
    std::string path;         // after the server's address; empty: a port that never answers
    std::string messageStart; // "@" stands for the address
    size_t intactBytes;       // how much of the file arrives before the failure
};

class NetworkFailures : public NetworkInput, public testing::WithParamInterface<Failure> {};

// Every failure throws with its text, at the open or at the read that meets it, never passing
// for a clean end (an error page is not the file); what arrived before it is delivered intact.
TEST_P(NetworkFailures, ThrowInsteadOfEnding) {
    const auto& c = GetParam();
    FullBacklogPort silentPort;
    const std::string address = c.path.empty() ? silentPort.url() : url(c.path);
    std::string got, start = c.messageStart;
    start.replace(start.find('@'), 1, address);
    try {
        auto in = Vesk::openNetworkInput(address, Vesk::networkTimeouts{0.3, 0.3});
        char buffer[1000];
        while (const uint64_t count = in->read(buffer, sizeof buffer))
            got.append(buffer, count);
        FAIL() << "ended cleanly after " << got.size() << " bytes";
    } catch (const Vesk::httpRequest::error& error) {
        EXPECT_EQ(std::string(error.what()).substr(0, start.size()), start) << error.what();
    }
    EXPECT_EQ(got.size(), c.intactBytes);
    EXPECT_TRUE(got == small.substr(0, got.size()));
}

INSTANTIATE_TEST_SUITE_P(Table, NetworkFailures,
                         testing::Values(Failure{"StallsMidBody", "/files/small.bin?stall=7000",
                                                 "network timeout: no data for 0.3 s from @", 7000},
                                         Failure{"ConnectionNeverAccepted", "",
                                                 "network timeout: @ (", 0}),
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

} // namespace
