#include "tests/gui/x_windows.h"

#include <X11/Xlib.h>

#include <X11/Xatom.h>

#include <X11/Xutil.h>

#include <chrono>
#include <set>
#include <thread>

namespace {

// Windows of other processes come and go while the test looks at them (tests run in parallel):
// asking about one that just went is no reason to end the test program.
int ignoreXError(Display*, XErrorEvent*) {
    return 0;
}

} // namespace

XTestConnection::XTestConnection() : display(XOpenDisplay(nullptr)) {
    XSetErrorHandler(ignoreXError);
}

XTestConnection::~XTestConnection() {
    if (display != nullptr)
        XCloseDisplay(display);
}

std::optional<XWindowId> XTestConnection::waitForWindowOf(pid_t pid, double seconds) {
    const Atom pidAtom = XInternAtom(display, "_NET_WM_PID", False);
    for (int tries = static_cast<int>(seconds * 50); tries >= 0; --tries) {
        Window root = 0, parent = 0;
        Window* children = nullptr;
        unsigned count = 0;
        XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &count);
        std::optional<XWindowId> found;
        for (unsigned i = 0; i < count && !found; ++i) {
            Atom type = None;
            int format = 0;
            unsigned long items = 0, remaining = 0;
            unsigned char* value = nullptr;
            if (XGetWindowProperty(display, children[i], pidAtom, 0, 1, False, XA_CARDINAL, &type,
                                   &format, &items, &remaining, &value) == Success &&
                value != nullptr) {
                XWindowAttributes attributes{};
                if (items == 1 && *reinterpret_cast<long*>(value) == pid &&
                    XGetWindowAttributes(display, children[i], &attributes) &&
                    attributes.map_state == IsViewable)
                    found = children[i];
                XFree(value);
            }
        }
        if (children != nullptr)
            XFree(children);
        if (found)
            return found;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return std::nullopt;
}

XTestConnection::Geometry XTestConnection::geometry(XWindowId window) {
    Window root = 0, child = 0;
    int x = 0, y = 0;
    unsigned width = 0, height = 0, border = 0, depth = 0;
    XGetGeometry(display, window, &root, &x, &y, &width, &height, &border, &depth);
    XTranslateCoordinates(display, window, root, 0, 0, &x, &y, &child);
    return {x, y, static_cast<int>(width), static_cast<int>(height)};
}

size_t XTestConnection::distinctColours(XWindowId window) {
    const auto where = geometry(window);
    // From the root window, so that the editor's own child windows are in the picture.
    XImage* image = XGetImage(display, DefaultRootWindow(display), where.x, where.y,
                              static_cast<unsigned>(where.width),
                              static_cast<unsigned>(where.height), AllPlanes, ZPixmap);
    std::set<unsigned long> colours;
    for (int y = 0; image != nullptr && y < where.height; ++y)
        for (int x = 0; x < where.width; ++x)
            colours.insert(XGetPixel(image, x, y));
    if (image != nullptr)
        XDestroyImage(image);
    return colours.size();
}

int XTestConnection::rootWidth() const {
    return DisplayWidth(display, DefaultScreen(display));
}

int XTestConnection::rootHeight() const {
    return DisplayHeight(display, DefaultScreen(display));
}

void XTestConnection::destroy(XWindowId window) {
    XDestroyWindow(display, window);
    XFlush(display);
}

void XTestConnection::requestClose(XWindowId window) {
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = window;
    event.xclient.message_type = XInternAtom(display, "WM_PROTOCOLS", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = static_cast<long>(XInternAtom(display, "WM_DELETE_WINDOW", False));
    event.xclient.data.l[1] = CurrentTime;
    XSendEvent(display, window, False, NoEventMask, &event);
    XFlush(display);
}
