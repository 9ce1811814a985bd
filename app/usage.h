#pragma once

#include <string_view>

// The command words that describe the program instead of running a plug-in. Standard output
// carries their text, exit status 0.
bool isUsageWord(std::string_view command);
void printUsage(std::string_view command);
