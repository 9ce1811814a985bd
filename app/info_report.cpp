#include "app/commands.h"

#include "hosting/vst2/vst2_abi.h"

#include <cstdio>

namespace {

void printPins(PluginHost& plugin, const char* heading, const char* pinName, int32_t count,
               int32_t opcode) {
    std::fprintf(stderr, "Number of %s: %i\n", heading, count);
    for (int32_t pin = 0; pin < count; ++pin) {
        std::fprintf(stderr, "  %s %i:\n", pinName, pin);
        VstPinProperties properties{};
        plugin.dispatch(opcode, pin, 0, &properties);
        // The label need not be terminated: print at most its field.
        std::fprintf(stderr, "    .label = %.*s\n", static_cast<int>(sizeof properties.label),
                     properties.label);
        std::fprintf(stderr, "    .flags = %i\n", properties.flags);
        std::fprintf(stderr, "    .arrangementType = %i\n", properties.arrangementType);
    }
}

} // namespace

bool runInfoCommand(VSTGlobals& globals) {
    PluginHost& plugin = *globals.plugin;
    printPins(plugin, "inputs", "Input", plugin.numInputs(), effGetInputProperties);
    printPins(plugin, "outputs", "Output", plugin.numOutputs(), effGetOutputProperties);
    return true;
}
