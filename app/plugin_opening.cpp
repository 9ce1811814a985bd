#include "app/plugin_opening.h"

#include "app/command_failure.h"
#include "hosting/load_failure.h"
#include "hosting/plugin_stage.h"
#include "support/message_text.h"

namespace {

void tryVst3(VSTGlobals& globals, const std::string& path) {
    try {
        globals.plugin.openVst3(path, processLevelFromArguments(globals.arguments));
    } catch (const LoadFailure&) {
        // the VST 2 attempt, when allowed, says why
    }
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

void tryVst2(VSTGlobals& globals, const std::string& path, std::string& failureText) {
    // Only the VST 2 path learns the rate before loading; kept as the parent expects.
    const int rate = getIntOption(globals.arguments, "--rate");
    try {
        globals.plugin.openVst2(path, processLevelFromArguments(globals.arguments), rate);
    } catch (const LoadFailure& failure) {
        failureText = vst2FailureText(failure, path);
    }
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
        tryVst3(globals, path);
    if (!globals.plugin && allowVst2)
        tryVst2(globals, path, failureText);
    if (!globals.plugin)
        throw CommandFailure(failureText + "Could not open VST.");
}
