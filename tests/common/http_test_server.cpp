#include "tests/common/http_test_server.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace testing_support {
namespace {

constexpr int startupMilliseconds = 20000;

void closeIfOpen(int& fd) {
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

// Reads the port line the server prints once it listens.
int readPort(int fd) {
    std::string line;
    while (line.find('\n') == std::string::npos) {
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, startupMilliseconds) <= 0)
            throw std::runtime_error("test HTTP server did not start");
        char buffer[64];
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got <= 0)
            throw std::runtime_error("test HTTP server ended before listening");
        line.append(buffer, static_cast<size_t>(got));
    }
    return std::stoi(line);
}

} // namespace

HttpTestServer::HttpTestServer(const std::string& root) {
    int input[2];
    int output[2];
    if (::pipe2(input, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    if (::pipe2(output, O_CLOEXEC) != 0) {
        ::close(input[0]);
        ::close(input[1]);
        throw std::runtime_error("pipe failed");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], 0);
    posix_spawn_file_actions_adddup2(&actions, output[1], 1);
    std::vector<std::string> words{"python3", VST_ADAPTER_HTTP_TEST_SERVER, root};
    std::vector<char*> argv;
    for (auto& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const int spawned = ::posix_spawnp(&pid, "python3", &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    ::close(output[1]);
    controlPipe = input[1];
    int portLine = output[0];
    if (spawned != 0) {
        pid = -1;
        closeIfOpen(controlPipe);
        closeIfOpen(portLine);
        throw std::runtime_error("cannot start python3");
    }
    try {
        listeningPort = readPort(portLine);
    } catch (...) {
        closeIfOpen(portLine);
        stop();
        throw;
    }
    closeIfOpen(portLine);
}

HttpTestServer::~HttpTestServer() {
    stop();
}

void HttpTestServer::stop() noexcept {
    closeIfOpen(controlPipe);
    if (pid > 0) {
        // Closing its input ends it; the signal covers a server stuck in a handler.
        ::kill(pid, SIGTERM);
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        pid = -1;
    }
}

std::string HttpTestServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(listeningPort) + path;
}

RefusingPort::RefusingPort() : fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (fd < 0)
        throw std::runtime_error("socket failed");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        ::close(fd);
        throw std::runtime_error("bind failed");
    }
    number = ntohs(address.sin_port);
}

RefusingPort::~RefusingPort() {
    ::close(fd);
}

} // namespace testing_support
