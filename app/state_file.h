#pragma once

#include "app/vst_globals.h"

#include <cstdint>

// The settings file named by "--data": read once after loading, written back after editing.
// Neither direction reports anything to the user; an empty path disables both.

// Files above this size are ignored, as are empty ones.
inline constexpr uint64_t maximumStateFileSize = 0x3FFFFFF;

// Reads `dataPath` into `stateData` and hands it to the plug-in when it has an editor or
// parameters. A missing or unreadable file reads as no settings.
void loadStateFile(VSTGlobals& globals);

// Hands `stateData` to the plug-in when it has an editor or parameters, as reading the file
// does; for a plug-in opened afresh.
void applyStateData(VSTGlobals& globals);

// Rewrites `dataPath` when the plug-in's settings differ from `stateData`; an unchanged file is
// not touched at all. Gives up silently when the file cannot be opened after a few attempts.
void saveStateToFile(VSTGlobals& globals);
