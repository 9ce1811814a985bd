#include "app/commands.h"

#include "hosting/vst2/vst2_abi.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <string>

namespace {

// Plug-ins often write past the 8 bytes the interface allows; give them room and read up to the
// first zero byte, or the whole buffer if they leave none.
constexpr size_t textBufferBytes = 256;

// Tabs separate the fields and a line is one parameter, so neither may come from the plug-in.
std::string parameterText(PluginHost& plugin, int32_t opcode, int32_t index) {
    std::array<char, textBufferBytes> buffer{};
    plugin.dispatch(opcode, index, 0, buffer.data());
    std::string text(buffer.data(), std::find(buffer.begin(), buffer.end(), '\0'));
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
    PluginHost& plugin = *globals.plugin;
    const int32_t count = plugin.parameterCount();
    for (int32_t index = 0; index < count; ++index) {
        const float value = plugin.parameter(index);
        std::fprintf(stderr, "%u\t%s\t%s\t%s\t%s\n", plugin.parameterNumber(index),
                     parameterText(plugin, effGetParamName, index).c_str(),
                     valueText(value).c_str(),
                     parameterText(plugin, effGetParamDisplay, index).c_str(),
                     parameterText(plugin, effGetParamLabel, index).c_str());
    }
    return true;
}
