#pragma once

#include "hosting/module_library.h"

#include <memory>
#include <string>

class PluginHost;

// Loaders report only success; the command layer prints the messages. Nothing thrown by
// plug-in code escapes them.
// The host keeps the module loaded for its own life.
bool loadVst2(PluginHost& host, std::shared_ptr<ModuleLibrary> module);
bool loadVst3(PluginHost& host, const std::string& path);
