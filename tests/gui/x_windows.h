#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <sys/types.h>
#include <vector>

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

    // The top-level window of process `pid`, waiting up to `seconds` for it to be shown.
    std::optional<XWindowId> waitForWindowOf(pid_t pid, double seconds);
    Geometry geometry(XWindowId window);
    // Waits up to `seconds` for the window to reach `size` (a resize takes a round trip).
    bool waitForSize(XWindowId window, int width, int height, double seconds);
    // How many different pixel values the window shows: 1 for a blank window.
    size_t distinctColours(XWindowId window);
    // The window's pixels as rows of 8-bit red, green, blue.
    std::vector<uint8_t> capture(XWindowId window, int& width, int& height);
    int rootWidth() const;
    int rootHeight() const;
    // What the window manager sends when the user clicks the close button.
    void requestClose(XWindowId window);
    // What a window manager or a tool that kills the window does.
    void destroy(XWindowId window);

  private:
    std::optional<XWindowId> findWindowOf(pid_t pid);

    _XDisplay* display = nullptr;
};
