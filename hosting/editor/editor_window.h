#pragma once

// What the plug-in session needs of the window its editor lives in. Implemented per platform
// by the editor window; main thread only.
class EditorWindow {
  public:
    virtual ~EditorWindow() = default;
    // Sets the content size in window units, keeping the window's position.
    virtual void setContentSize(int width, int height) = 0;
    // The native handle the editor is opened on (an X11 window id, an NSView pointer).
    virtual void* nativeHandle() const = 0;
};
