#include "app/plugin_opening.h"

#include "hosting/module/module_library.h"
#include "hosting/plugin_loading.h"
#include "hosting/plugin_stage.h"
#include "support/message_text.h"

#include <cstdio>

namespace {

std::unique_ptr<PluginHost> newHost(const VSTGlobals& globals) {
    auto host = std::make_unique<PluginHost>();
    host->processLevel = processLevelFromArguments(globals.arguments);
    return host;
}

std::unique_ptr<PluginHost> tryVst3(const VSTGlobals& globals, const std::string& path) {
    auto host = newHost(globals);
    if (!loadVst3(*host, path))
        return nullptr;
    return host;
}

std::unique_ptr<PluginHost> tryVst2(const VSTGlobals& globals, const std::string& path) {
    auto host = newHost(globals);
    // Only the VST 2 path learns the rate before loading; kept as the parent expects.
    const int rate = getIntOption(globals.arguments, "--rate");
    if (rate >= 1)
        host->setSampleRate(rate);
    std::shared_ptr<ModuleLibrary> module = ModuleLibrary::open(path);
    if (!module) {
        std::fprintf(stderr, "Could not load VST bundle: %s\n",
                     Vesk::escapedForMessage(path).c_str());
        return nullptr;
    }
    if (!loadVst2(*host, std::move(module))) {
        std::fprintf(stderr, "Could not load VST: %s\n", Vesk::escapedForMessage(path).c_str());
        return nullptr;
    }
    return host;
}

} // namespace

void openPluginFromArguments(VSTGlobals& globals, const std::string& path) {
    const auto version = findArgument(globals.arguments, "--vst-version");
    const int wanted = version ? getIntOption(globals.arguments, "--vst-version") : 0;
    const bool allowVst3 = !version || wanted == 3;
    const bool allowVst2 = !version || wanted == 2;
    const pluginStageScope stage(pluginStage::loading);
    if (allowVst3)
        globals.plugin = tryVst3(globals, path);
    if (!globals.plugin && allowVst2)
        globals.plugin = tryVst2(globals, path);
}
