#include "tests/common/scratch.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace scratch {

Folder::Folder() {
    char name[] = "/tmp/support-test-XXXXXX";
    if (::mkdtemp(name))
        root = name;
    EXPECT_FALSE(root.empty());
}

Folder::~Folder() {
    if (root.empty())
        return;
    // Tests make read-only folders; chmod first so that the removal gets through them.
    const std::string command = "chmod -R u+rwx '" + root + "' 2>/dev/null; rm -rf '" + root + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary);
    out << content;
    EXPECT_TRUE(out.good()) << path;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool exists(const std::string& path) {
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0;
}

Child::Child(std::function<int(Child&)> body) {
    EXPECT_EQ(::pipe(toParent), 0);
    EXPECT_EQ(::pipe(toChild), 0);
    pid = ::fork();
    if (pid == 0) {
        ::close(toParent[0]);
        ::close(toChild[1]);
        int status = 111;
        try {
            status = body(*this);
        } catch (const std::exception& e) {
            report(std::string("exception: ") + e.what());
        }
        // Skip the parent's atexit handlers and the test framework's tear-down.
        ::_exit(status);
    }
    ::close(toParent[1]);
    ::close(toChild[0]);
}

Child::~Child() {
    go();
    finish();
}

void Child::report(const std::string& line) {
    const std::string text = line + "\n";
    (void)!::write(toParent[1], text.data(), text.size());
}

void Child::awaitGo() {
    char byte;
    (void)!::read(toChild[0], &byte, 1);
}

std::string Child::nextLine() {
    std::string line;
    char c;
    while (::read(toParent[0], &c, 1) == 1 && c != '\n')
        line += c;
    return line;
}

void Child::go() {
    if (toChild[1] >= 0) {
        ::close(toChild[1]);
        toChild[1] = -1;
    }
}

int Child::finish() {
    if (pid <= 0)
        return -1;
    go();
    int status = 0;
    ::waitpid(pid, &status, 0);
    pid = -1;
    ::close(toParent[0]);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace scratch
