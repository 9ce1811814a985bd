#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

// Option pairs of the command line, keyed with their leading "--", byte for byte.
using ArgumentMap = std::map<std::string, std::string>;

// Fills the map from argv[2..]; a key given twice keeps its last value. The caller has checked
// that argc is even and at least 2.
ArgumentMap argumentsFromCommandLine(int argc, const char* const* argv);

std::optional<std::string> findArgument(const ArgumentMap& arguments, const std::string& key);

// The value read the way atoi reads it; 0 when absent or not a number. Never fails.
int getIntOption(const ArgumentMap& arguments, const std::string& key);
int readWholeNumber(const std::string& text);

// Whether the options ask for 64-bit samples: "--float64" > 0 if given, else from the stream
// encoding (float wider than 32 bits, integer wider than 24 bits).
bool wantsDoublePrecision(const ArgumentMap& arguments);

// How samples are encoded on the streams, as "--bits" and "--formattag" give it (0 if absent).
struct SampleEncoding {
    int32_t bits = 0;
    int32_t formatTag = 0;
};
SampleEncoding sampleEncodingFromArguments(const ArgumentMap& arguments);

// 2 (real-time) for "--process" exactly "realtime", else 4 (offline).
int processLevelFromArguments(const ArgumentMap& arguments);
