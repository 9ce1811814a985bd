#pragma once

#include <functional>

class PluginSlot;

// Shows the plug-in's editor in a window of its own and hands the main thread to the event loop.
// When the user closes the window, or the process is asked to stop (SIGTERM, SIGINT),
// `terminate` runs (it writes the settings back) and the process ends: with status 0, or 255
// when `terminate` answers false (it has said why). The call does not return then. A plug-in
// without an editor (or no plug-in) gets false at once, nothing shown. Throws when no window can be
// shown at all (no display).
bool runEditorWindow(PluginSlot& plugin, const std::function<bool()>& terminate);
