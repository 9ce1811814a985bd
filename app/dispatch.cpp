#include "app/command_failure.h"
#include "app/commands.h"
#include "app/plugin_opening.h"
#include "app/state_file.h"
#include "app/validate_command.h"
#include "app/vst_globals.h"
#include "hosting/plugin_stage.h"
#include "scan/scan_child.h"

#include "support/errors.h"
#include "support/file_stream.h"
#include "support/message_text.h"
#include "support/network/network_input.h"
#include "support/wide_text.h"

#include <cerrno>
#include <stdexcept>
#include <sys/stat.h>

namespace {

// Names the file and the system's reason, so the parent can tell its user what went wrong.
[[noreturn]] void throwOpenFailure(const std::string& path) {
    const int code = errno;
    const std::wstring shown = Vesk::fromUtf8(Vesk::escapedForMessage(path));
    errno = code;
    throw std::runtime_error(Vesk::toUtf8(Vesk::openErrorMessage(shown)));
}

// Processing a file into itself would overwrite the input before it is read.
void refuseSameFile(const std::string& input, const std::string& output) {
    struct stat in {};
    struct stat out {};
    if (Vesk::isNetworkName(input) || ::stat(input.c_str(), &in) != 0 ||
        ::stat(output.c_str(), &out) != 0)
        return;
    if (in.st_dev == out.st_dev && in.st_ino == out.st_ino)
        throw std::runtime_error("--input and --output name the same file: '" +
                                 Vesk::escapedForMessage(output) + "'");
}

// The output file is opened here, so that a bad name is reported first, but emptied only once
// the plug-in has loaded: a run that fails before that leaves it as it was.
std::shared_ptr<Vesk::fileInOut> openRedirections(VSTGlobals& globals) {
    const auto input = findArgument(globals.arguments, "--input");
    const auto output = findArgument(globals.arguments, "--output");
    if (input && output)
        refuseSameFile(*input, *output);
    if (input) {
        try {
            globals.input = Vesk::openInput(*input);
        } catch (const Vesk::file_access_error&) {
            throwOpenFailure(*input);
        }
    }
    std::shared_ptr<Vesk::fileInOut> outputFile;
    if (output) {
        try {
            outputFile = Vesk::openFileForUpdate(*output);
        } catch (const Vesk::file_access_error&) {
            throwOpenFailure(*output);
        }
        globals.output = outputFile;
    }
    return outputFile;
}

bool hasEditorOrParameters(const Plugin& plugin) {
    return plugin.hasEditor() || plugin.parameterCount() > 0;
}

} // namespace

bool mainWithGlobals(VSTGlobals& globals) {
    if (globals.command == scan::childCommand)
        return runScanChildCommand(globals);
    if (globals.command == validateChildWord)
        return runValidateChild(globals);
    if (findArgument(globals.arguments, "--pipe") || findArgument(globals.arguments, "--inpipe"))
        throw std::runtime_error("pipes not yet implemented");
    const std::shared_ptr<Vesk::fileInOut> outputFile = openRedirections(globals);

    const auto vstPath = findArgument(globals.arguments, "--vst");
    if (!vstPath)
        throw CommandFailure("No VST specified.\n");
    openPluginFromArguments(globals, *vstPath);
    if (outputFile)
        outputFile->setLength(0);

    const std::string& command = globals.command;
    if (command == "has-editor")
        return hasEditorOrParameters(*globals.plugin);
    if (command == "test")
        return true;

    // Read even for a word that turns out to be unknown: the plug-in is already loaded.
    if (const auto dataPath = findArgument(globals.arguments, "--data")) {
        globals.dataPath = *dataPath;
        const PluginStageScope stage(PluginStage::opening);
        loadStateFile(globals);
    }
    if (command == "info" || command == "params") {
        const PluginStageScope stage(PluginStage::listing);
        return command == "info" ? runInfoCommand(globals) : runParamsCommand(globals);
    }
    if (command == "process")
        return runProcessCommand(globals);
    if (command == "configure")
        return runConfigureCommand(globals);
    if (command == "configure-live")
        return runConfigureLiveCommand(globals);
    throw CommandFailure("Invalid arguments, no command found.\n");
}
