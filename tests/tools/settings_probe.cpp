// Writes a plug-in's current settings to a file, after setting some of its parameters, so that
// tests can make settings files for real plug-ins the way an editor session would leave them.
// Runs as its own process: a plug-in's leaks and crashes stay out of the test executable.
//
//   settings_probe PLUGIN OUTPUT [INDEX=VALUE]...
//
// Prints "params N chunks yes|no" on standard output; exit status 1 when the plug-in does not load.

#include "app/plugin_opening.h"
#include "hosting/plugin_host.h"
#include "hosting/plugin_slot.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: settings_probe PLUGIN OUTPUT [INDEX=VALUE]...\n", stderr);
        return 2;
    }
    VSTGlobals globals;
    try {
        openPluginFromArguments(globals, argv[1]);
    } catch (const std::exception&) {
        return 1;
    }
    PluginHost& host = globals.plugin.pluginHost();
    for (int i = 3; i < argc; ++i) {
        const std::string assignment = argv[i];
        const auto equals = assignment.find('=');
        if (equals == std::string::npos)
            return 2;
        const int index = std::atoi(assignment.substr(0, equals).c_str());
        const float value = std::strtof(assignment.c_str() + equals + 1, nullptr);
        host.effect()->setParameter(host.effect(), index, value);
    }
    const auto settings = host.saveState();
    std::ofstream(argv[2], std::ios::binary)
        .write(reinterpret_cast<const char*>(settings.data()),
               static_cast<std::streamsize>(settings.size()));
    std::printf("params %d chunks %s\n", host.parameterCount(),
                (host.effect()->flags & effFlagsProgramChunks) != 0 ? "yes" : "no");
    return 0;
}
