#include "app/commands.h"

#include <cstdio>

namespace {

void printPins(const Plugin& plugin, const char* heading, const char* pinName, int32_t count,
               PinSide side) {
    std::fprintf(stderr, "Number of %s: %i\n", heading, count);
    for (int32_t index = 0; index < count; ++index) {
        std::fprintf(stderr, "  %s %i:\n", pinName, index);
        const PinProperties pin = plugin.pin(side, index);
        std::fprintf(stderr, "    .label = %s\n", pin.label.c_str());
        std::fprintf(stderr, "    .flags = %i\n", pin.flags);
        std::fprintf(stderr, "    .arrangementType = %i\n", pin.arrangementType);
    }
}

} // namespace

bool runInfoCommand(VSTGlobals& globals) {
    const Plugin& plugin = *globals.plugin;
    printPins(plugin, "inputs", "Input", plugin.inputCount(), PinSide::input);
    printPins(plugin, "outputs", "Output", plugin.outputCount(), PinSide::output);
    return true;
}
