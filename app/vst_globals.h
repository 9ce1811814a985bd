#pragma once

#include "app/arguments.h"
#include "hosting/plugin_slot.h"
#include "support/stream.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// The state of one run, built by main and handed to mainWithGlobals. Main thread; the live
// worker reads it once started. Members are destroyed in reverse order: input, output,
// stateData, plugin (closing the plug-in), arguments, command, dataPath.
struct VSTGlobals {
    std::string dataPath;
    std::string command;
    ArgumentMap arguments;
    PluginSlot plugin;
    std::vector<uint8_t> stateData;
    std::shared_ptr<Vesk::streamOut> output;
    std::shared_ptr<Vesk::streamIn> input;
};

// Runs the command; true is success.
bool mainWithGlobals(VSTGlobals& globals);
