#include "app/commands.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <string>

namespace {

// Tabs separate the fields and a line is one parameter, so neither may come from the plug-in.
std::string fieldText(std::string text) {
    for (char& c : text)
        if (c == '\t' || c == '\n' || c == '\r')
            c = ' ';
    return text;
}

// The shortest text that reads back as the same float.
std::string valueText(float value) {
    std::array<char, 32> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return std::string(buffer.data(), result.ptr);
}

} // namespace

bool runParamsCommand(VSTGlobals& globals) {
    const Plugin& plugin = *globals.plugin;
    const int32_t count = plugin.parameterCount();
    for (int32_t index = 0; index < count; ++index) {
        std::fprintf(stderr, "%u\t%s\t%s\t%s\t%s\n", plugin.parameterNumber(index),
                     fieldText(plugin.parameterName(index)).c_str(),
                     valueText(plugin.parameterValue(index)).c_str(),
                     fieldText(plugin.parameterDisplay(index)).c_str(),
                     fieldText(plugin.parameterUnit(index)).c_str());
    }
    return true;
}
