#pragma once

#include <string_view>

// The command words that describe the program instead of running a plug-in. Standard output
// carries their text, exit status 0.
bool isUsageWord(std::string_view command);
// Throws a file error when the text cannot be written (a full device, a closed pipe).
void printUsage(std::string_view command);
