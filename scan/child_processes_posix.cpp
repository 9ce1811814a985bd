#include "scan/child_processes.h"

#include "support/unique_descriptor.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace scan {

namespace {

using Clock = std::chrono::steady_clock;

// Enough for any answer and message; a child writing more is not listened to beyond it.
constexpr size_t mostBytesKept = 1 << 20;
// How often exits are looked for while pipes stay open: a plug-in's helper process may hold
// them after the child itself has gone.
constexpr int exitCheckMilliseconds = 20;

[[noreturn]] void throwSystemError(const char* what, int code = errno) {
    throw std::system_error(code, std::generic_category(), what);
}

struct Pipe {
    Vesk::uniqueDescriptor read;
    Vesk::uniqueDescriptor write;
};

// Both ends stay out of every other child; the parent's end does not block.
Pipe makePipe() {
    int ends[2];
    if (::pipe(ends) != 0)
        throwSystemError("pipe");
    Pipe made{Vesk::uniqueDescriptor(ends[0]), Vesk::uniqueDescriptor(ends[1])};
    for (int end : ends)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(ends[0], F_SETFL, ::fcntl(ends[0], F_GETFL) | O_NONBLOCK);
    return made;
}

// Reads what is there; false at the end of the stream.
bool readAvailable(int descriptor, std::string& kept) {
    char buffer[16384];
    for (;;) {
        const ssize_t got = ::read(descriptor, buffer, sizeof buffer);
        if (got > 0) {
            const size_t room = mostBytesKept - std::min(kept.size(), mostBytesKept);
            kept.append(buffer, std::min(static_cast<size_t>(got), room));
            continue;
        }
        if (got < 0 && errno == EINTR)
            continue;
        return got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }
}

} // namespace

struct ChildProcesses::Child {
    size_t tag = 0;
    pid_t pid = -1;
    Vesk::uniqueDescriptor out;
    Vesk::uniqueDescriptor err;
    Clock::time_point started;
    Clock::time_point deadline;
    ChildOutcome outcome;

    // Kills what the group still runs, collects what was written and reaps the child.
    void finish(ChildOutcome::End end) {
        ::kill(-pid, SIGKILL);
        if (out.get() >= 0)
            readAvailable(out.get(), outcome.out);
        if (err.get() >= 0)
            readAvailable(err.get(), outcome.err);
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        outcome.end = end;
        if (end != ChildOutcome::End::timedOut) {
            outcome.end =
                WIFSIGNALED(status) ? ChildOutcome::End::signalled : ChildOutcome::End::exited;
            outcome.code = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
        }
        outcome.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    }

    // Whether the child has ended, leaving it unreaped so that its group id stays its own.
    bool hasEnded() const {
        siginfo_t info{};
        return ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               info.si_pid == pid;
    }
};

ChildProcesses::ChildProcesses(std::string program) : program(std::move(program)) {}

ChildProcesses::~ChildProcesses() {
    for (auto& child : children)
        child->finish(ChildOutcome::End::timedOut);
}

size_t ChildProcesses::running() const {
    return children.size();
}

void ChildProcesses::start(size_t tag, const std::vector<std::string>& arguments,
                           double timeoutSeconds) {
    Pipe out = makePipe();
    Pipe err = makePipe();
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const auto& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.write.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.write.get(), STDERR_FILENO);
    // A group of its own, so that whatever it starts is killed with it; signals as a fresh
    // process has them, not as the scan set them.
    sigset_t none;
    sigemptyset(&none);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGXFSZ);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                              POSIX_SPAWN_SETSIGDEF);
    auto child = std::make_unique<Child>();
    child->started = Clock::now();
    const int failed =
        ::posix_spawn(&child->pid, program.c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (failed != 0)
        throwSystemError("posix_spawn", failed);
    child->tag = tag;
    child->out = std::move(out.read);
    child->err = std::move(err.read);
    child->deadline = child->started + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(timeoutSeconds));
    children.push_back(std::move(child));
}

std::vector<std::pair<size_t, ChildOutcome>> ChildProcesses::waitForSome() {
    std::vector<std::pair<size_t, ChildOutcome>> ended;
    while (!children.empty() && ended.empty()) {
        std::vector<pollfd> watched;
        for (const auto& child : children) {
            for (const auto* descriptor : {&child->out, &child->err}) {
                if (descriptor->get() >= 0)
                    watched.push_back({descriptor->get(), POLLIN, 0});
            }
        }
        const auto now = Clock::now();
        auto wait = std::chrono::milliseconds(exitCheckMilliseconds);
        for (const auto& child : children)
            wait = std::min(wait, std::chrono::ceil<std::chrono::milliseconds>(
                                      std::max(child->deadline - now, Clock::duration::zero())));
        if (::poll(watched.data(), watched.size(), static_cast<int>(wait.count())) < 0 &&
            errno != EINTR)
            throwSystemError("poll");
        for (auto it = children.begin(); it != children.end();) {
            Child& child = **it;
            for (auto* stream : {&child.out, &child.err}) {
                std::string& kept = stream == &child.out ? child.outcome.out : child.outcome.err;
                if (stream->get() >= 0 && !readAvailable(stream->get(), kept))
                    *stream = Vesk::uniqueDescriptor();
            }
            if (child.hasEnded())
                child.finish(ChildOutcome::End::exited);
            else if (Clock::now() >= child.deadline)
                child.finish(ChildOutcome::End::timedOut);
            else {
                ++it;
                continue;
            }
            ended.emplace_back(child.tag, std::move(child.outcome));
            it = children.erase(it);
        }
    }
    return ended;
}

std::string ownExecutable(const char* argv0) {
    char buffer[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (length > 0)
        return std::string(buffer, static_cast<size_t>(length));
    const std::string name = argv0 == nullptr ? "" : argv0;
    std::vector<std::string> candidates;
    if (name.find('/') != std::string::npos) {
        candidates.push_back(name);
    } else if (const char* path = std::getenv("PATH")) {
        std::istringstream folders(path);
        for (std::string folder; std::getline(folders, folder, ':');)
            candidates.push_back((folder.empty() ? "." : folder) + "/" + name);
    }
    for (const auto& candidate : candidates) {
        if (::access(candidate.c_str(), X_OK) == 0 && ::realpath(candidate.c_str(), buffer))
            return buffer;
    }
    throw std::runtime_error("cannot find the program's own executable to start it again");
}

bool standardErrorIsTerminal() {
    return ::isatty(STDERR_FILENO) != 0;
}

std::string signalName(int signal) {
    static constexpr std::pair<int, const char*> names[] = {
        {SIGSEGV, "SIGSEGV"}, {SIGBUS, "SIGBUS"},   {SIGFPE, "SIGFPE"},   {SIGILL, "SIGILL"},
        {SIGABRT, "SIGABRT"}, {SIGKILL, "SIGKILL"}, {SIGTERM, "SIGTERM"}, {SIGTRAP, "SIGTRAP"},
        {SIGSYS, "SIGSYS"},   {SIGPIPE, "SIGPIPE"}, {SIGINT, "SIGINT"},   {SIGHUP, "SIGHUP"}};
    for (const auto& [number, name] : names) {
        if (number == signal)
            return name;
    }
    return "signal " + std::to_string(signal);
}

} // namespace scan
