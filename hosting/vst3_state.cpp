#include "hosting/vst3_state.h"

// No VST 3 plug-in can be loaded yet, so there is never a wrapper to hand settings to.
void loadVst3State(PluginHost&, const uint8_t*, uint64_t) {}

std::vector<uint8_t> saveVst3State(PluginHost&) {
    return {};
}
