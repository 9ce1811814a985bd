#include "tests/common/background_child.h"

#include "tests/common/scratch.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace testing_support {
namespace {

std::string temporaryPath(const char* what) {
    char pattern[] = "/tmp/background-child-XXXXXX";
    const int fd = ::mkstemp(pattern);
    if (fd < 0)
        throw std::runtime_error(std::string("mkstemp failed for ") + what);
    ::close(fd);
    return pattern;
}

} // namespace

BackgroundChild::BackgroundChild(const std::string& program,
                                 const std::vector<std::string>& arguments,
                                 const ChildOptions& options)
    : outPath(temporaryPath("stdout")), errPath(temporaryPath("stderr")) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    int inputReadEnd = -1;
    if (options.closeStdin) {
        inPath = temporaryPath("stdin");
        std::ofstream(inPath, std::ios::binary) << options.stdinBytes;
        posix_spawn_file_actions_addopen(&actions, 0, inPath.c_str(), O_RDONLY, 0);
    } else {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe failed");
        inputReadEnd = ends[0];
        inputWriteEnd = ends[1];
        if (::write(inputWriteEnd, options.stdinBytes.data(), options.stdinBytes.size()) !=
            static_cast<ssize_t>(options.stdinBytes.size()))
            throw std::runtime_error("standard input bytes do not fit the pipe");
        posix_spawn_file_actions_adddup2(&actions, inputReadEnd, 0);
    }
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_TRUNC, 0);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_TRUNC, 0);
    CStringArray argv(commandLine(program, arguments));
    CStringArray envp(buildEnvironment(options));
    const int failed =
        ::posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (inputReadEnd >= 0)
        ::close(inputReadEnd);
    if (failed != 0)
        throw std::runtime_error("could not start " + program);
}

void BackgroundChild::closeInput() {
    if (inputWriteEnd >= 0)
        ::close(inputWriteEnd);
    inputWriteEnd = -1;
}

BackgroundChild::~BackgroundChild() {
    closeInput();
    if (!reaped) {
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }
    if (!inPath.empty())
        std::remove(inPath.c_str());
    std::remove(outPath.c_str());
    std::remove(errPath.c_str());
}

bool BackgroundChild::running() {
    if (reaped)
        return false;
    siginfo_t info{};
    // Looks without reaping, so that wait() still gets the status.
    ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT);
    return info.si_pid == 0;
}

void BackgroundChild::signal(int number) const {
    ::kill(child, number);
}

ChildResult BackgroundChild::wait(double seconds) {
    ChildResult result;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    int status = 0;
    while (!reaped) {
        const pid_t done = ::waitpid(child, &status, WNOHANG);
        if (done == child) {
            reaped = true;
            break;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            result.timedOut = true;
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            reaped = true;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (WIFEXITED(status))
        result.exitStatus = WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    result.out = scratch::readFile(outPath);
    result.err = scratch::readFile(errPath);
    return result;
}

} // namespace testing_support
