#include "app/commands.h"
#include "app/plugin_opening.h"
#include "app/state_file.h"
#include "app/vst_globals.h"
#include "hosting/plugin_stage.h"

#include "support/errors.h"
#include "support/file_stream.h"
#include "support/wide_text.h"

#include <cerrno>
#include <cstdio>
#include <stdexcept>

namespace {

// Names the file and the system's reason, so the parent can tell its user what went wrong.
[[noreturn]] void throwOpenFailure(const std::string& path) {
    throw std::runtime_error(Vesk::toUtf8(Vesk::openErrorMessage(Vesk::fromUtf8(path))));
}

void openRedirections(VSTGlobals& globals) {
    if (const auto input = findArgument(globals.arguments, "--input")) {
        try {
            globals.input = Vesk::openFileForReading(*input);
        } catch (const Vesk::file_access_error&) {
            throwOpenFailure(*input);
        }
    }
    if (const auto output = findArgument(globals.arguments, "--output")) {
        try {
            globals.output = Vesk::openFileForWriting(*output);
        } catch (const Vesk::file_access_error&) {
            throwOpenFailure(*output);
        }
    }
}

bool hasEditorOrParameters(const PluginHost& plugin) {
    return plugin.hasEditorFlag() || plugin.parameterCount() > 0;
}

} // namespace

bool mainWithGlobals(VSTGlobals& globals) {
    if (findArgument(globals.arguments, "--pipe") || findArgument(globals.arguments, "--inpipe"))
        throw std::runtime_error("pipes not yet implemented");
    openRedirections(globals);

    const auto vstPath = findArgument(globals.arguments, "--vst");
    if (!vstPath) {
        std::fputs("No VST specified.\n", stderr);
        return false;
    }
    openPluginFromArguments(globals, *vstPath);
    if (!globals.plugin) {
        std::fputs("Could not open VST.", stderr);
        return false;
    }

    const std::string& command = globals.command;
    if (command == "has-editor")
        return hasEditorOrParameters(*globals.plugin);
    if (command == "test")
        return true;

    // Read even for a word that turns out to be unknown: the plug-in is already loaded.
    if (const auto dataPath = findArgument(globals.arguments, "--data")) {
        globals.dataPath = *dataPath;
        const pluginStageScope stage(pluginStage::opening);
        loadStateFile(globals);
    }
    if (command == "info")
        return runInfoCommand(globals);
    if (command == "params")
        return runParamsCommand(globals);
    if (command == "process")
        return runProcessCommand(globals);
    if (command == "configure")
        return runConfigureCommand(globals);
    if (command == "configure-live")
        return runConfigureLiveCommand(globals);
    std::fputs("Invalid arguments, no command found.\n", stderr);
    return false;
}
