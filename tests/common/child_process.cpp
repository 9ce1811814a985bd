#include "tests/common/child_process.h"
#include "tests/common/scratch.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace testing_support {

namespace {

// CTest names the build folder; run by hand (or listed while building), a test executable finds
// it from where it lives: <build>/tests/.
std::filesystem::path buildFolder() {
    if (const char* given = std::getenv("VST_ADAPTER_BUILD_DIR"); given != nullptr && *given != 0)
        return given;
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path() : self.parent_path().parent_path();
}

// Starts `program` in the caller's environment with the options' changes; 0 or an error number.
int spawn(const std::string& program, const std::vector<std::string>& arguments,
          const ChildOptions& options, posix_spawn_file_actions_t& actions, pid_t& child) {
    std::map<std::string, std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        merged[text.substr(0, text.find('='))] = text.substr(text.find('=') + 1);
    }
    for (const auto& [key, value] : options.environment)
        if (value)
            merged[key] = *value;
        else
            merged.erase(key);
    std::vector<std::string> words{program}, environment;
    words.insert(words.end(), arguments.begin(), arguments.end());
    for (const auto& [key, value] : merged)
        environment.push_back(key + "=" + value);
    std::vector<char*> argv, envp;
    for (auto& word : words)
        argv.push_back(word.data());
    for (auto& entry : environment)
        envp.push_back(entry.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    return ::posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), envp.data());
}

// Waits for `child` until `deadline`, then kills it; fills in how it ended.
void reap(pid_t child, auto deadline, ChildResult& result) {
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) != child) {
        if (std::chrono::steady_clock::now() > deadline) {
            result.timedOut = true;
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    if (WIFEXITED(status))
        result.exitStatus = WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
}

} // namespace

// Files for standard output and error, which the test reads while the child runs; a pipe for
// standard input.
BackgroundChild::BackgroundChild(const std::string& program,
                                 const std::vector<std::string>& arguments,
                                 const ChildOptions& options) {
    char pattern[] = "/tmp/test-child-XXXXXX";
    if (::mkdtemp(pattern) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    folder = pattern;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0 ||
        ::write(ends[1], options.stdinBytes.data(), options.stdinBytes.size()) !=
            static_cast<ssize_t>(options.stdinBytes.size()))
        throw std::runtime_error("standard input bytes do not fit a pipe");
    inputWriteEnd = ends[1];
    if (options.closeStdin)
        ::close(std::exchange(inputWriteEnd, -1));
    posix_spawn_file_actions_adddup2(&actions, ends[0], 0);
    for (const auto& [descriptor, name] : {std::pair{1, "/out"}, std::pair{2, "/err"}})
        posix_spawn_file_actions_addopen(&actions, descriptor, (folder + name).c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int failed = spawn(program, arguments, options, actions, child);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[0]);
    if (failed != 0)
        throw std::runtime_error("could not start " + program);
}

BackgroundChild::~BackgroundChild() {
    if (inputWriteEnd >= 0)
        ::close(inputWriteEnd);
    if (!reaped) {
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }
    std::filesystem::remove_all(folder);
}

bool BackgroundChild::running() {
    siginfo_t info{};
    // Looks without reaping, so that wait() still gets the status.
    return !reaped &&
           ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

void BackgroundChild::signal(int number) const {
    ::kill(child, number);
}

std::string BackgroundChild::outputSoFar() const {
    return scratch::readFile(folder + "/out");
}

ChildResult BackgroundChild::wait(double seconds) {
    ChildResult result;
    if (!reaped)
        reap(child, std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds),
             result);
    reaped = true;
    result.out = scratch::readFile(folder + "/out");
    result.err = scratch::readFile(folder + "/err");
    return result;
}

// Pipes on all three, as real parents use: the child meets full pipes and short reads.
ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const ChildOptions& options) {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::duration<double>(options.timeoutSeconds);
    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    ::signal(SIGPIPE, SIG_IGN); // a child that stops reading must not end the test
    ::fcntl(in[1], F_SETFL, O_NONBLOCK);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const auto& [end, descriptor] : {std::pair{in[0], 0}, {out[1], 1}, {err[1], 2}})
        posix_spawn_file_actions_adddup2(&actions, end, descriptor);
    pid_t child = -1;
    const int failed = spawn(program, arguments, options, actions, child);
    posix_spawn_file_actions_destroy(&actions);
    for (const int end : {in[0], out[1], err[1]})
        ::close(end);
    ChildResult result;
    pollfd ends[] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}, {in[1], POLLOUT, 0}};
    std::string_view unsent = options.stdinBytes;
    while (failed == 0 && (ends[0].fd >= 0 || ends[1].fd >= 0)) {
        if (unsent.empty() && ends[2].fd >= 0) {
            if (options.closeStdin)
                ::close(std::exchange(in[1], -1));
            ends[2].fd = -1;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 ||
            (::poll(ends, 3, static_cast<int>(left.count()) + 1) < 0 && errno != EINTR))
            break;
        for (int i = 0; i < 2; ++i) {
            char bytes[1 << 16];
            const ssize_t got = ends[i].revents != 0 ? ::read(ends[i].fd, bytes, sizeof bytes) : -1;
            if (got > 0)
                (i == 0 ? result.out : result.err).append(bytes, static_cast<size_t>(got));
            else if (ends[i].revents != 0)
                ::close(std::exchange(ends[i].fd, -1));
        }
        if (ends[2].revents != 0) {
            const size_t piece = options.stdinPiece ? options.stdinPiece : unsent.size();
            const ssize_t put = ::write(in[1], unsent.data(), std::min(piece, unsent.size()));
            if (options.stdinPiece)
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            if (put > 0 || errno != EAGAIN) // a child that stopped reading gets no more
                unsent = put > 0 ? unsent.substr(static_cast<size_t>(put)) : std::string_view{};
        }
    }
    for (const int end : {ends[0].fd, ends[1].fd, in[1]})
        ::close(end);
    if (failed != 0)
        throw std::runtime_error("could not start " + program);
    reap(child, deadline, result);
    return result;
}

const char* builtFile(const char* relativePath) {
    // Table rows keep the pointer: each path is made once and kept.
    static std::map<std::string, std::string> paths;
    auto [entry, added] = paths.try_emplace(relativePath);
    if (added)
        entry->second = (buildFolder() / relativePath).string();
    return entry->second.c_str();
}

std::string adapterBinary() {
    return VST_ADAPTER_BINARY;
}

ChildResult runAdapter(const std::vector<std::string>& arguments, const ChildOptions& options) {
    return runChild(adapterBinary(), arguments, options);
}

ChildOptions headless() {
    static const scratch::Folder home;
    ChildOptions options;
    options.environment["DISPLAY"] = std::nullopt;
    options.environment["WAYLAND_DISPLAY"] = std::nullopt;
    options.environment["HOME"] = home.path();
    const char* asan = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] = std::string(asan ? asan : "") + ":detect_leaks=0";
    return options;
}

} // namespace testing_support
