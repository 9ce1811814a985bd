#pragma once

#include "hosting/plugin.h"

#include <cstddef>
#include <string>

class PluginSlot;

// What looking into one file for a plug-in found: one that opened (now in the slot), one whose
// code loaded but that would not open (instruments, plug-ins that refuse), or no plug-in at all
// (code that does not load, no entry function, no effect class). `message` says why it is not
// open; `effectClasses` counts the effects a VST 3 module offers (1 for VST 2).
struct Examination {
    enum class Outcome { opened, refused, notAPlugin };
    Outcome outcome = Outcome::notAPlugin;
    std::string message;
    size_t effectClasses = 0;
};

// Loads `path` as `kind` into `slot` (offline), VST 3 effect class `effectClass` (as the module
// lists its effects). Main thread.
Examination examinePluginFile(PluginSlot& slot, const std::string& path, PluginKind kind,
                              size_t effectClass);
