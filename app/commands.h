#pragma once

#include "app/vst_globals.h"

// The commands that run on a loaded plug-in. Each yields true for success.
bool runInfoCommand(VSTGlobals& globals);
bool runProcessCommand(VSTGlobals& globals);
bool runConfigureCommand(VSTGlobals& globals);
bool runConfigureLiveCommand(VSTGlobals& globals);

// Reads "--data" into globals.stateData and hands it to the plug-in (silent on failure).
void applyStateFromArguments(VSTGlobals& globals);
