#include "app/commands.h"

#include "scan/scan_child.h"

#include <cstdio>
#include <string>

bool runScanChildCommand(VSTGlobals& globals) {
    const auto path = findArgument(globals.arguments, "--vst").value_or("");
    const auto kind =
        getIntOption(globals.arguments, "--vst-version") == 3 ? PluginKind::vst3 : PluginKind::vst2;
    const int effectClass = getIntOption(globals.arguments, "--class");
    const auto found =
        scan::examinePlugin(globals.plugin, path, kind, effectClass > 0 ? effectClass : 0);
    // Texts from plug-ins need not be UTF-8; the scan reads whatever arrives as JSON.
    const std::string line =
        found.answer.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
    globals.output->write(line.data(), line.size());
    if (!found.message.empty())
        std::fprintf(stderr, "%s\n", found.message.c_str());
    return true;
}
