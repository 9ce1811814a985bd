#pragma once

#include "hosting/editor/editor_window.h"

#include <X11/Xlib.h>

// A top-level window that holds a plug-in editor: fixed size (the user cannot resize it, the
// plug-in can), closable through the window manager. Main thread only.
class X11EditorWindow : public EditorWindow {
  public:
    X11EditorWindow(Display* display, int x, int y, int width, int height);
    ~X11EditorWindow() override;
    X11EditorWindow(const X11EditorWindow&) = delete;
    X11EditorWindow& operator=(const X11EditorWindow&) = delete;

    void setContentSize(int width, int height) override;
    void* nativeHandle() const override;

    // Before show(): where and how big the window first appears.
    void setFrame(int x, int y, int width, int height);
    void show();
    // True for the window manager's request to close this window, and for the window destroyed
    // from outside (a window manager or tool that kills it): either ends the session alike.
    bool isCloseRequest(const XEvent& event) const;

  private:
    void fixSize(int width, int height);
    void setPositionHint(int x, int y);

    Display* display;
    Window window;
    Atom deleteWindow;
};
