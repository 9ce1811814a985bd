#include "tests/common/child_process.h"
#include "tests/common/built_files.h"
#include "tests/common/scratch.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace testing_support {

// Standard input, output and error are files, so that neither side waits on a full pipe.
BackgroundChild::BackgroundChild(const std::string& program,
                                 const std::vector<std::string>& arguments,
                                 const ChildOptions& options) {
    char pattern[] = "/tmp/test-child-XXXXXX";
    if (::mkdtemp(pattern) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    folder = pattern;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    int inputReadEnd = -1;
    if (options.closeStdin) {
        scratch::writeFile(folder + "/in", options.stdinBytes);
        posix_spawn_file_actions_addopen(&actions, 0, (folder + "/in").c_str(), O_RDONLY, 0);
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
    for (const auto& [descriptor, name] : {std::pair{1, "/out"}, std::pair{2, "/err"}})
        posix_spawn_file_actions_addopen(&actions, descriptor, (folder + name).c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
    // The caller's environment with the options' changes.
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
    const int failed =
        ::posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (inputReadEnd >= 0)
        ::close(inputReadEnd);
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
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    int status = 0;
    while (!reaped && ::waitpid(child, &status, WNOHANG) != child) {
        if (std::chrono::steady_clock::now() > deadline) {
            result.timedOut = true;
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    reaped = true;
    if (WIFEXITED(status))
        result.exitStatus = WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    result.out = scratch::readFile(folder + "/out");
    result.err = scratch::readFile(folder + "/err");
    return result;
}

ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const ChildOptions& options) {
    return BackgroundChild(program, arguments, options).wait(options.timeoutSeconds);
}

std::string adapterBinary() {
    return VST_ADAPTER_BINARY;
}

ChildResult runAdapter(const std::vector<std::string>& arguments, const ChildOptions& options) {
    return runChild(adapterBinary(), arguments, options);
}

} // namespace testing_support
