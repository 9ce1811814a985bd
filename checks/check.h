#pragma once

#include <nlohmann/json.hpp>

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

enum class CheckStatus { pass, fail, warn, skip };

std::string_view statusWord(CheckStatus status);

// What one check found: its verdict, one line saying why, and the figures it measured.
struct CheckResult {
    CheckStatus status = CheckStatus::pass;
    std::string message;
    nlohmann::json figures = nlohmann::json::object();
};

// How a helper program a check started ended, and what it wrote.
struct HelperOutcome {
    bool exited = true; // false: ended by a signal, or killed at its time limit
    int code = 0;       // the exit status when it exited
    std::string ending; // how it ended otherwise: "crashed with SIGSEGV", "no result within..."
    std::string out;
    std::string err;
};
// Starts a helper program with `arguments` and waits for it, within a time limit.
using HelperRun = std::function<HelperOutcome(const std::vector<std::string>& arguments)>;

// What a check is run on: the plug-in and how hard to look (1 quick, 2 default, 3 thorough),
// and the helpers this build has (empty when it lacks one).
struct CheckTarget {
    std::string path;
    int vstVersion = 0; // 0 tries VST 3, then VST 2
    int level = 2;
    HelperRun runRealtimeProbe;
};

// One check: an id the user selects it by, a one-line description, and the function that runs
// it in a process of its own (a crash or hang is the runner's to report). Checks throw only for
// failures of their own; a plug-in that cannot be opened is a `fail` they report.
struct Check {
    std::string_view id;
    std::string_view description;
    CheckResult (*run)(const CheckTarget& target);
};

// Every check, in the order a report lists them.
std::span<const Check> allChecks();
const Check* findCheck(std::string_view id);
