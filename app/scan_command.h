#pragma once

#include <string_view>

// The `scan` command word, which runs no plug-in of its own.
bool isScanWord(std::string_view command);

// Reads the scan's options from argv[2..] ("--vst" may be given many times; other keys keep
// their last value, unknown keys are ignored) and runs the scan. 0 when it ran; throws
// CommandFailure or std::runtime_error with one line for bad arguments or a path that does
// not exist.
int runScanCommand(int argc, const char* const* argv);
