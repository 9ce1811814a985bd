#pragma once

#include <chrono>
#include <functional>
#include <memory>

class PluginSlot;

// Shows the plug-in's editor in a window of its own and hands the main thread to the event loop.
// When the user closes the window, or the process is asked to stop (SIGTERM, SIGINT),
// `terminate` runs (it writes the settings back) and the process ends: with status 0, or 255
// when `terminate` answers false (it has said why). The call does not return then. A plug-in
// without an editor (or no plug-in) gets false at once, nothing shown. Throws when no window can be
// shown at all (no display).
bool runEditorWindow(PluginSlot& plugin, const std::function<bool()>& terminate);

// For checks: a connection to the screen kept for a series of editor showings (an X server may
// reset between clients, refusing the next for a moment).
class EditorScreen {
  public:
    // Null when no window can be shown here (no display).
    static std::unique_ptr<EditorScreen> open();
    virtual ~EditorScreen() = default;
    // Shows the editor in a window and idles it as the session above does for `shownFor`,
    // then closes the editor and the window. False without an editor.
    virtual bool showEditorFor(PluginSlot& plugin, std::chrono::milliseconds shownFor) = 0;
};
