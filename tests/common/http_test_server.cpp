#include "tests/common/http_test_server.h"

#include <stdexcept>
#include <thread>

namespace testing_support {

HttpTestServer::HttpTestServer(const std::string& root) {
    ChildOptions options;
    options.closeStdin = false;
    server = std::make_unique<BackgroundChild>(
        "/usr/bin/python3", std::vector<std::string>{VST_ADAPTER_HTTP_TEST_SERVER, root}, options);
    // It prints its port once it listens.
    for (int tries = 0; tries < 2000; ++tries) {
        const std::string line = server->outputSoFar();
        if (line.find('\n') != std::string::npos) {
            listeningPort = std::stoi(line);
            return;
        }
        if (!server->running())
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    throw std::runtime_error("test HTTP server did not start: " + server->wait(1).err);
}

} // namespace testing_support
