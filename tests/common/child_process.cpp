#include "tests/common/child_process.h"
#include "tests/common/built_files.h"
#include "tests/common/test_pipe.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace testing_support {
std::vector<std::string> buildEnvironment(const ChildOptions& options) {
    std::map<std::string, std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const auto equals = text.find('=');
        if (equals != std::string::npos)
            merged[text.substr(0, equals)] = text.substr(equals + 1);
    }
    for (const auto& [key, value] : options.environment) {
        if (value)
            merged[key] = *value;
        else
            merged.erase(key);
    }
    std::vector<std::string> result;
    for (const auto& [key, value] : merged)
        result.push_back(key + "=" + value);
    return result;
}

CStringArray::CStringArray(std::vector<std::string> entries) : text(std::move(entries)) {
    for (auto& entry : text)
        pointers.push_back(entry.data());
    pointers.push_back(nullptr);
}

std::vector<std::string> commandLine(const std::string& program,
                                     const std::vector<std::string>& arguments) {
    std::vector<std::string> line{program};
    line.insert(line.end(), arguments.begin(), arguments.end());
    return line;
}

ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const ChildOptions& options) {
    TestPipe in, out, err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.readEnd, 0);
    posix_spawn_file_actions_adddup2(&actions, out.writeEnd, 1);
    posix_spawn_file_actions_adddup2(&actions, err.writeEnd, 2);
    if (!options.workingDirectory.empty())
        posix_spawn_file_actions_addchdir_np(&actions, options.workingDirectory.c_str());

    CStringArray argv(commandLine(program, arguments));
    CStringArray envp(buildEnvironment(options));

    // A child that exits before reading its input must not kill the test with SIGPIPE; the
    // child itself gets the default disposition back.
    std::signal(SIGPIPE, SIG_IGN);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t pid = 0;
    const int spawned =
        posix_spawn(&pid, program.c_str(), &actions, &attributes, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawned != 0)
        throw std::runtime_error("cannot start " + program);
    in.closeRead();
    out.closeWrite();
    err.closeWrite();
    ::fcntl(in.writeEnd, F_SETFL, O_NONBLOCK);

    ChildResult result;
    size_t written = 0;
    if (options.stdinBytes.empty() && options.closeStdin)
        in.closeWrite();
    const auto deadline =
        std::chrono::steady_clock::now() +
        std::chrono::milliseconds(static_cast<long>(options.timeoutSeconds * 1000));
    char buffer[65536];
    while (out.readEnd >= 0 || err.readEnd >= 0) {
        pollfd set[3];
        nfds_t count = 0;
        if (out.readEnd >= 0)
            set[count++] = {out.readEnd, POLLIN, 0};
        if (err.readEnd >= 0)
            set[count++] = {err.readEnd, POLLIN, 0};
        const bool feeding = in.writeEnd >= 0 && written < options.stdinBytes.size();
        if (feeding)
            set[count++] = {in.writeEnd, POLLOUT, 0};
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            result.timedOut = true;
            ::kill(pid, SIGKILL);
            break;
        }
        if (::poll(set, count, static_cast<int>(left.count())) < 0 && errno != EINTR)
            break;
        for (nfds_t i = 0; i < count; ++i) {
            if (set[i].revents == 0)
                continue;
            if (set[i].fd == in.writeEnd) {
                const ssize_t put = ::write(in.writeEnd, options.stdinBytes.data() + written,
                                            options.stdinBytes.size() - written);
                if (put > 0)
                    written += static_cast<size_t>(put);
                if (put < 0 && errno != EAGAIN)
                    in.closeWrite();
                else if (written == options.stdinBytes.size() && options.closeStdin)
                    in.closeWrite();
                continue;
            }
            const ssize_t got = ::read(set[i].fd, buffer, sizeof buffer);
            std::string& sink = set[i].fd == out.readEnd ? result.out : result.err;
            if (got > 0) {
                sink.append(buffer, static_cast<size_t>(got));
            } else {
                if (set[i].fd == out.readEnd)
                    out.closeRead();
                else
                    err.closeRead();
            }
        }
    }
    in.closeWrite();
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) {
        result.exitStatus = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        result.signal = WTERMSIG(status);
    }
    return result;
}

std::string adapterBinary() {
    return VST_ADAPTER_BINARY;
}

ChildResult runAdapter(const std::vector<std::string>& arguments, const ChildOptions& options) {
    return runChild(adapterBinary(), arguments, options);
}

} // namespace testing_support
