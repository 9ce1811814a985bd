#pragma once

#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace testing_support {

// What a finished child left behind.
struct ChildResult {
    int exitStatus = -1; // -1 when killed by a signal
    int signal = 0;      // the signal that ended it, 0 if none
    bool timedOut = false;
    std::string out; // descriptor 1
    std::string err; // descriptor 2
};

struct ChildOptions {
    std::string stdinBytes;
    bool closeStdin = true;                                        // end of input after stdinBytes
    std::map<std::string, std::optional<std::string>> environment; // nullopt removes a variable
    double timeoutSeconds = 30.0;
    size_t stdinPiece = 0; // more than 0: runChild writes pieces this long, 20 ms apart
};

// A child that runs while the test acts on it (finds its window, signals it). Standard input
// carries `stdinBytes` (up to 64 KiB), then ends, or with `closeStdin` false stays open and idle.
// Standard output and error are collected. Killed if the test leaves without waiting.
class BackgroundChild {
  public:
    BackgroundChild(const std::string& program, const std::vector<std::string>& arguments,
                    const ChildOptions& options);
    ~BackgroundChild();
    BackgroundChild(const BackgroundChild&) = delete;
    BackgroundChild& operator=(const BackgroundChild&) = delete;

    pid_t pid() const { return child; }
    bool running();
    void signal(int number) const;
    // What it has written to standard output so far.
    std::string outputSoFar() const;
    // Waits up to `seconds`; then kills it and reports timedOut.
    ChildResult wait(double seconds);

  private:
    pid_t child = -1;
    bool reaped = false;
    int inputWriteEnd = -1;
    std::string folder; // holds the files of standard input, output and error
};

// Runs `program` with `arguments` (argv[1..]) to its end.
ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const ChildOptions& options = {});

// The adapter binary built with the tests.
ChildResult runAdapter(const std::vector<std::string>& arguments, const ChildOptions& options = {});

std::string adapterBinary();

// How tests run the adapter on installed third-party plug-ins: no display (commands that never
// open an editor must work without one), a throw-away HOME for plug-ins that write settings
// there (one per test process, removed when it ends), and, under AddressSanitizer, no leak
// report: leaks inside third-party plug-ins are theirs, our own code is leak-checked with the
// in-tree plug-ins.
ChildOptions headless();

} // namespace testing_support
