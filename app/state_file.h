#pragma once

#include "app/vst_globals.h"

#include <cstdint>

// The settings file named by "--data": read once after loading, written back after editing.
// An empty path disables both.

// Files above this size are ignored, as are empty ones.
inline constexpr uint64_t maximumStateFileSize = 0x3FFFFFF;

// Reads `dataPath` into `stateData` and hands it to the plug-in when it has an editor or
// parameters. A missing or unreadable file, or one that is not a regular file (a pipe, a
// device), reads as no settings, without waiting for it.
void loadStateFile(VSTGlobals& globals);

// Hands `stateData` to the plug-in when it has an editor or parameters, as reading the file
// does; for a plug-in opened afresh.
void applyStateData(VSTGlobals& globals);

// Replaces `dataPath` when the plug-in's settings differ from `stateData`; an unchanged file is
// not touched at all, and neither is it when the plug-in gives no settings (an empty or failed
// answer). The file keeps its owner, group and permissions and holds its old contents or all of
// the new ones (see replaceFileContents for the one exception); a link is written through. Throws,
// naming the file and the reason, when the settings cannot be written; the old file is left.
void saveStateToFile(VSTGlobals& globals);

// saveStateToFile for the end of an editor session: a failure is printed as one line on
// standard error. False when the settings could not be saved.
bool saveStateToFileReporting(VSTGlobals& globals) noexcept;
