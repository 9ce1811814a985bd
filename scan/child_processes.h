#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace scan {

// How a child ended and what it wrote.
struct ChildOutcome {
    enum class End { exited, signalled, timedOut };
    End end = End::exited;
    int code = 0; // the exit status, or the signal
    std::string out;
    std::string err;
    double seconds = 0;
};

// Children of the scan, each in a process group of its own with standard input from /dev/null
// and standard output and error collected, never more than a limit per stream. A child still
// running at its time limit is killed with its whole group; every child is reaped, and what its
// group left running is killed when it ends. Destruction kills and reaps those still running.
// One thread.
class ChildProcesses {
  public:
    explicit ChildProcesses(std::string program);
    ~ChildProcesses();
    ChildProcesses(const ChildProcesses&) = delete;
    ChildProcesses& operator=(const ChildProcesses&) = delete;

    // Starts `program` with `arguments` as argv[1..]; `tag` comes back with its outcome. Throws
    // std::system_error when the system cannot start it.
    void start(size_t tag, const std::vector<std::string>& arguments, double timeoutSeconds);
    size_t running() const;
    // Waits until at least one child has ended (or was killed); none when none runs.
    std::vector<std::pair<size_t, ChildOutcome>> waitForSome();

  private:
    struct Child;
    std::string program;
    std::vector<std::unique_ptr<Child>> children;
};

// The running program's own executable, to start again: /proc/self/exe where there is one,
// else `argv0` made absolute (searched on PATH when it holds no '/').
std::string ownExecutable(const char* argv0);

// Whether standard error is a terminal, where a progress line belongs.
bool standardErrorIsTerminal();

// "SIGSEGV" and the like; "signal N" for those without a name here.
std::string signalName(int signal);

} // namespace scan
