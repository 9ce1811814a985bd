#pragma once

#include "tests/common/child_process.h"

#include <memory>
#include <string>

namespace testing_support {

// The loopback HTTP server of http_test_server.py, serving the files of `root` (routes and
// options are described there). Started by the constructor, which returns once it listens;
// stopped by the destructor.
class HttpTestServer {
  public:
    explicit HttpTestServer(const std::string& root);

    // "http://127.0.0.1:PORT" + path.
    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(listeningPort) + path;
    }

  private:
    // Its standard input stays open while it runs: closing it ends the server.
    std::unique_ptr<BackgroundChild> server;
    int listeningPort = 0;
};

} // namespace testing_support
