#pragma once

#include "app/vst_globals.h"
#include "scan/child_processes.h"

#include <string_view>

// `validate`: runs each selected check on each plug-in in a child of its own and reports. Loads
// no plug-in itself. Returns the exit status: 0 when no check failed, 255 otherwise.
bool isValidateWord(std::string_view command);
int runValidateCommand(int argc, const char* const* argv);

// The child's side: runs the one check `--check` names on `--vst` and writes its result as one
// JSON object on the data output. The word is the runner's, not the user's.
inline constexpr std::string_view validateChildWord = "validate-check";
// The child's `--check` that reports who the plug-in is instead of a check.
inline constexpr std::string_view identityWord = "identity";
bool runValidateChild(VSTGlobals& globals);
// The realtime-safety check's helper program (app/realtime_probe_main.cpp).
inline constexpr std::string_view realtimeProbeName = "vst-adapter-realtime-probe";

// How a child that gave no answer ended: "crashed with SIGSEGV", "no result within 60 s (hung)",
// "ended with status 2", `timeout` being its time limit.
std::string childEnding(const scan::ChildOutcome& outcome, int timeout);
