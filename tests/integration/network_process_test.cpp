#include "tests/common/child_process.h"
#include "tests/common/http_test_server.h"
#include "tests/common/scratch.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using testing_support::HttpTestServer;

// An --input URL served by the loopback server, through the identity plug-in.
class NetworkProcess : public testing::Test {
  public:
    static void SetUpTestSuite() {
        folder = std::make_unique<scratch::Folder>();
        // 16-bit stereo: whole frames, and every 16-bit value survives the identity exactly.
        for (size_t i = 0; i < 4 * 48000; ++i)
            input.push_back(static_cast<char>(i * 7919 >> 3));
        scratch::writeFile(*folder / "plain.raw", input);
        http = std::make_unique<HttpTestServer>(folder->path());
    }
    static void TearDownTestSuite() {
        http.reset();
        folder.reset();
    }

    static testing_support::ChildResult process(const std::string& path) {
        testing_support::ChildOptions options;
        options.environment["TEST_EFFECT"] = "tail=1";
        options.environment["no_proxy"] = "127.0.0.1";
        return testing_support::runAdapter({"process", "--vst", TEST_EFFECT_PATH, "--input",
                                            http->url(path), "--bits", "16", "--rate", "44100",
                                            "--channels", "2"},
                                           options);
    }

    inline static std::unique_ptr<scratch::Folder> folder;
    inline static std::unique_ptr<HttpTestServer> http;
    inline static std::string input;
};

// Odd pieces in chunked transfer coding: the audio is what arrives.
TEST_F(NetworkProcess, ChunkedTransferGivesTheFilesBytes) {
    const auto result = process("/files/plain.raw?coding=chunked&pieces=1,7,4093,333");
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(result.out == input) << result.out.size() << " bytes";
}

// Each failure ends with one line that starts as the row says, and status 255.
TEST_F(NetworkProcess, FailuresEndWithOneLineAndStatus255) {
    const std::pair<const char*, std::string> cases[] = {
        {"/files/missing.raw", "HTTP error 404 from %s\n"},
        {"/files/plain.raw?cut=100001", "broken reply: %s ("},
        {"/files/plain.raw?coding=chunked&cut=192000", "broken reply: %s ("},
        {"/files/plain.raw?gzip=1&coding=chunked", "broken reply: %s ("},
        {"/loop", "too many redirects: %s ("},
    };
    for (const auto& [path, message] : cases) {
        const auto result = process(path);
        std::string start = message;
        start.replace(start.find("%s"), 2, http->url(path));
        EXPECT_EQ(result.exitStatus, 255) << path;
        EXPECT_EQ(result.err.substr(0, start.size()), start) << path;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << "one line: " << result.err;
    }
}

} // namespace
