#pragma once

#include "app/vst_globals.h"

// Loads the plug-in named by "--vst" as "--vst-version" allows, printing the loaders' messages.
// Leaves globals.plugin null when nothing loaded.
void openPluginFromArguments(VSTGlobals& globals, const std::string& path);
