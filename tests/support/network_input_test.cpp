#include "support/network/network_input.h"
#include "support/thread.h"
#include "support/wait_for_any.h"
#include "tests/common/http_test_server.h"
#include "tests/common/scratch.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace {

using testing_support::HttpTestServer;

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

// A stall throws with its text at the read that meets it, never passing for a clean end; what
// arrived before it is delivered intact.
TEST_F(NetworkInput, StallMidBodyThrowsAfterTheIntactStart) {
    const std::string address = url("/files/small.bin?stall=7000");
    std::string got;
    try {
        auto in = Vesk::openNetworkInput(address, Vesk::networkTimeouts{0.3, 0.3});
        char buffer[1000];
        while (const uint64_t count = in->read(buffer, sizeof buffer))
            got.append(buffer, count);
        FAIL() << "ended cleanly after " << got.size() << " bytes";
    } catch (const Vesk::httpRequest::error& error) {
        EXPECT_EQ(std::string(error.what()), "network timeout: no data for 0.3 s from " + address);
    }
    EXPECT_TRUE(got == small.substr(0, 7000)) << got.size() << " bytes";
}

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
