#include "app/arguments.h"

#include <climits>
#include <cstdint>

ArgumentMap argumentsFromCommandLine(int argc, const char* const* argv) {
    ArgumentMap arguments;
    for (int i = 2; i + 1 < argc; i += 2)
        arguments[argv[i]] = argv[i + 1];
    return arguments;
}

std::optional<std::string> findArgument(const ArgumentMap& arguments, const std::string& key) {
    const auto found = arguments.find(key);
    if (found == arguments.end())
        return std::nullopt;
    return found->second;
}

int readWholeNumber(const std::string& text) {
    size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r')))
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        negative = text[i++] == '-';
    // Accumulate wide and saturate, so that overflow gives a stable answer without undefined
    // behaviour; values that large fail the callers' range checks anyway.
    int64_t value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        value = value * 10 + (text[i] - '0');
        if (value > static_cast<int64_t>(INT_MAX) + 1)
            value = static_cast<int64_t>(INT_MAX) + 1;
    }
    if (negative)
        value = -value;
    if (value > INT_MAX)
        return INT_MAX;
    return static_cast<int>(value);
}

int getIntOption(const ArgumentMap& arguments, const std::string& key) {
    const auto value = findArgument(arguments, key);
    return value ? readWholeNumber(*value) : 0;
}

bool wantsDoublePrecision(const ArgumentMap& arguments) {
    if (findArgument(arguments, "--float64"))
        return getIntOption(arguments, "--float64") > 0;
    const int bits = getIntOption(arguments, "--bits");
    const int tag = getIntOption(arguments, "--formattag");
    return tag == 3 ? bits > 32 : bits > 24;
}

int processLevelFromArguments(const ArgumentMap& arguments) {
    constexpr int realtime = 2;
    constexpr int offline = 4;
    const auto value = findArgument(arguments, "--process");
    return value && *value == "realtime" ? realtime : offline;
}

SampleEncoding sampleEncodingFromArguments(const ArgumentMap& arguments) {
    return {getIntOption(arguments, "--bits"), getIntOption(arguments, "--formattag")};
}
