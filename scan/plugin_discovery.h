#pragma once

#include "hosting/plugin.h"

#include <string>
#include <vector>

namespace scan {

using ::PluginKind;
// "vst2" or "vst3".
const char* kindName(PluginKind kind);

// One plug-in found on disk: the path to hand to the loader and the file holding its code.
struct FoundPlugin {
    std::string path;
    PluginKind kind = PluginKind::vst2;
    std::string binary; // what the cache dates; the path itself when no binary was found
};

// Every plug-in under `roots`, in path order. A root is a folder, searched recursively, or one
// plug-in. VST 3 bundles and single files are named ".vst3"; a VST 2 plug-in is a ".so" file or
// a ".vst" folder with a binary in a layout the loader accepts. Bundles are not searched inside.
// Symbolic links are followed; a folder or file reached a second time (a loop, or two links to
// one place) is left out. Throws std::runtime_error naming a root that does not exist.
std::vector<FoundPlugin> findPlugins(const std::vector<std::string>& roots);

} // namespace scan
