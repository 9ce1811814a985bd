#pragma once

#include "app/vst_globals.h"

// The commands that run on a loaded plug-in. Each yields true for success.
bool runInfoCommand(VSTGlobals& globals);
// One line per parameter on standard error: number, name, normalised value, display text and
// unit, separated by tabs.
bool runParamsCommand(VSTGlobals& globals);
bool runProcessCommand(VSTGlobals& globals);
bool runConfigureCommand(VSTGlobals& globals);
bool runConfigureLiveCommand(VSTGlobals& globals);
// The scan's child (scan::childCommand): loads "--vst" as "--vst-version" says (effect class
// "--class" of a VST 3 module) and prints what it found as one JSON line on standard output.
bool runScanChildCommand(VSTGlobals& globals);
