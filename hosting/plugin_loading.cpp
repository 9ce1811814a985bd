#include "hosting/plugin_loading.h"

#include "hosting/plugin_host.h"

bool loadVst2(PluginHost&, std::shared_ptr<ModuleLibrary>) { return false; }

bool loadVst3(PluginHost&, const std::string&) { return false; }
