#include "app/plugin_opening.h"

#include "app/command_failure.h"
#include "hosting/load_failure.h"
#include "hosting/module/module_library.h"
#include "hosting/plugin_loading.h"
#include "hosting/plugin_stage.h"
#include "support/message_text.h"

namespace {

std::unique_ptr<PluginHost> newHost(const VSTGlobals& globals) {
    auto host = std::make_unique<PluginHost>();
    host->setProcessLevel(processLevelFromArguments(globals.arguments));
    return host;
}

std::unique_ptr<PluginHost> tryVst3(const VSTGlobals& globals, const std::string& path) {
    auto host = newHost(globals);
    try {
        loadVst3(*host, path);
    } catch (const LoadFailure&) {
        return nullptr; // the VST 2 attempt, when allowed, says why
    }
    return host;
}

// The system loader's reason comes first, on its own line, when it gave one.
std::string vst2FailureText(const LoadFailure& failure, const std::string& path) {
    const std::string reason = failure.what();
    std::string text = reason.empty() ? "" : Vesk::escapedForMessage(reason) + "\n";
    const std::string shown = Vesk::escapedForMessage(path);
    if (failure.stage == LoadFailure::Stage::module)
        return text + "Could not load VST bundle: " + shown + "\n";
    return text + "Could not load VST: " + shown + "\n";
}

std::unique_ptr<PluginHost> tryVst2(const VSTGlobals& globals, const std::string& path,
                                    std::string& failureText) {
    auto host = newHost(globals);
    // Only the VST 2 path learns the rate before loading; kept as the parent expects.
    const int rate = getIntOption(globals.arguments, "--rate");
    if (rate >= 1)
        host->setSampleRate(rate);
    try {
        loadVst2(*host, ModuleLibrary::open(path));
    } catch (const LoadFailure& failure) {
        failureText = vst2FailureText(failure, path);
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
    std::string failureText;
    const PluginStageScope stage(PluginStage::loading);
    if (allowVst3)
        globals.plugin = tryVst3(globals, path);
    if (!globals.plugin && allowVst2)
        globals.plugin = tryVst2(globals, path, failureText);
    if (!globals.plugin)
        throw CommandFailure(failureText + "Could not open VST.");
}
