#include "tests/common/http_test_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

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

RefusingPort::RefusingPort() : fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("cannot hold a loopback port");
    number = ntohs(address.sin_port);
}

RefusingPort::~RefusingPort() {
    ::close(fd);
}

} // namespace testing_support
