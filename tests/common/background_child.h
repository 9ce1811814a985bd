#pragma once

#include "tests/common/child_process.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace testing_support {

// A child that runs while the test acts on it (finds its window, signals it). Standard input
// carries `stdinBytes`, then ends, or with `closeStdin` false stays open and idle (up to 64 KiB
// of bytes then) until closeInput(). Standard output and error are collected. Killed if the
// test leaves without waiting.
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
    void closeInput();
    // Waits up to `seconds`; then kills it and reports timedOut.
    ChildResult wait(double seconds);

  private:
    pid_t child = -1;
    bool reaped = false;
    int inputWriteEnd = -1;
    std::string inPath;
    std::string outPath;
    std::string errPath;
};

} // namespace testing_support
