#pragma once

#include <cstddef>
#include <optional>
#include <sys/types.h>

// Xlib's macros clash with the test framework's names, so Xlib stays out of this header.
using XWindowId = unsigned long;
struct _XDisplay;

// A test's own connection to the X server, to find and act on the adapter's windows.
class XTestConnection {
  public:
    XTestConnection();
    ~XTestConnection();
    XTestConnection(const XTestConnection&) = delete;
    XTestConnection& operator=(const XTestConnection&) = delete;

    bool connected() const { return display != nullptr; }

    struct Geometry {
        int x, y, width, height;
        bool operator==(const Geometry&) const = default;
    };

    // The shown top-level window of process `pid`, waiting up to `seconds` for it.
    std::optional<XWindowId> waitForWindowOf(pid_t pid, double seconds);
    Geometry geometry(XWindowId window);
    // How many different pixel values the window shows: 1 for a blank window.
    size_t distinctColours(XWindowId window);
    int rootWidth() const;
    int rootHeight() const;
    // What the window manager sends when the user clicks the close button.
    void requestClose(XWindowId window);
    // What a window manager or a tool that kills the window does.
    void destroy(XWindowId window);

  private:
    _XDisplay* display = nullptr;
};
