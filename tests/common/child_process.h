#pragma once

#include <map>
#include <optional>
#include <string>
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
    std::string workingDirectory;
};

// The caller's environment with `options.environment` applied, as "KEY=value" entries.
std::vector<std::string> buildEnvironment(const ChildOptions& options);

// Text entries as the null-terminated array of C strings that spawn and exec take.
class CStringArray {
  public:
    explicit CStringArray(std::vector<std::string> entries);
    CStringArray(const CStringArray&) = delete;
    CStringArray& operator=(const CStringArray&) = delete;
    char** data() { return pointers.data(); }

  private:
    std::vector<std::string> text;
    std::vector<char*> pointers;
};

// argv for `program` with `arguments`.
std::vector<std::string> commandLine(const std::string& program,
                                     const std::vector<std::string>& arguments);

// Runs `program` with `arguments` (argv[1..]), feeding and collecting through pipes.
ChildResult runChild(const std::string& program, const std::vector<std::string>& arguments,
                     const ChildOptions& options = {});

// The adapter binary built with the tests.
ChildResult runAdapter(const std::vector<std::string>& arguments, const ChildOptions& options = {});

std::string adapterBinary();

} // namespace testing_support
