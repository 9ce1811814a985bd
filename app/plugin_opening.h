#pragma once

#include "app/vst_globals.h"

// Loads the plug-in named by "--vst" as "--vst-version" allows into globals.plugin. Throws
// CommandFailure with the loaders' messages when nothing loaded.
void openPluginFromArguments(VSTGlobals& globals, const std::string& path);
