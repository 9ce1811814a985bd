#include "hosting/editor/x11_editor_window_linux.h"

#include <X11/Xatom.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <cstdint>
#include <unistd.h>

namespace {

// X refuses windows of zero size; plug-ins do ask for them.
int atLeastOne(int size) {
    return std::max(size, 1);
}

} // namespace

X11EditorWindow::X11EditorWindow(Display* display, int x, int y, int width, int height)
    : display(display), deleteWindow(XInternAtom(display, "WM_DELETE_WINDOW", False)) {
    const int screen = DefaultScreen(display);
    XSetWindowAttributes attributes{};
    attributes.background_pixel = BlackPixel(display, screen);
    attributes.event_mask = StructureNotifyMask;
    window = XCreateWindow(display, RootWindow(display, screen), x, y,
                           static_cast<unsigned>(atLeastOne(width)),
                           static_cast<unsigned>(atLeastOne(height)), 0, CopyFromParent,
                           InputOutput, CopyFromParent, CWBackPixel | CWEventMask, &attributes);
    XSetWMProtocols(display, window, &deleteWindow, 1);

    // Window managers and test tools find the window by its process and class.
    const auto pid = static_cast<long>(::getpid());
    XChangeProperty(display, window, XInternAtom(display, "_NET_WM_PID", False), XA_CARDINAL, 32,
                    PropModeReplace, reinterpret_cast<const unsigned char*>(&pid), 1);
    char name[] = "vst-adapter";
    XClassHint classHint{name, name};
    XSetClassHint(display, window, &classHint);

    setPositionHint(x, y);
    fixSize(width, height);
}

void X11EditorWindow::setPositionHint(int x, int y) {
    XSizeHints* hints = XAllocSizeHints();
    long supplied = 0;
    XGetWMNormalHints(display, window, hints, &supplied);
    hints->flags |= PPosition | USPosition;
    hints->x = x;
    hints->y = y;
    XSetWMNormalHints(display, window, hints);
    XFree(hints);
}

void X11EditorWindow::setFrame(int x, int y, int width, int height) {
    setPositionHint(x, y);
    fixSize(width, height);
    XMoveResizeWindow(display, window, x, y, static_cast<unsigned>(atLeastOne(width)),
                      static_cast<unsigned>(atLeastOne(height)));
}

X11EditorWindow::~X11EditorWindow() {
    XDestroyWindow(display, window);
    XFlush(display);
}

void X11EditorWindow::fixSize(int width, int height) {
    XSizeHints* hints = XAllocSizeHints();
    long supplied = 0;
    XGetWMNormalHints(display, window, hints, &supplied);
    hints->flags |= PMinSize | PMaxSize;
    hints->min_width = hints->max_width = atLeastOne(width);
    hints->min_height = hints->max_height = atLeastOne(height);
    XSetWMNormalHints(display, window, hints);
    XFree(hints);
}

void X11EditorWindow::setContentSize(int width, int height) {
    // The size limits move first, or the window manager holds the window to the old size.
    fixSize(width, height);
    XResizeWindow(display, window, static_cast<unsigned>(atLeastOne(width)),
                  static_cast<unsigned>(atLeastOne(height)));
    XFlush(display);
}

void* X11EditorWindow::nativeHandle() const {
    // Editors on X11 take the window id in the pointer argument.
    return reinterpret_cast<void*>(static_cast<uintptr_t>(window));
}

void X11EditorWindow::show() {
    XMapRaised(display, window);
    XSync(display, False);
}

bool X11EditorWindow::isCloseRequest(const XEvent& event) const {
    if (event.type == DestroyNotify)
        return event.xdestroywindow.window == window;
    return event.type == ClientMessage && event.xclient.window == window &&
           static_cast<Atom>(event.xclient.data.l[0]) == deleteWindow;
}
