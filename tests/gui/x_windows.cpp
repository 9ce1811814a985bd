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

bool before(std::chrono::steady_clock::time_point deadline) {
    return std::chrono::steady_clock::now() < deadline;
}

std::chrono::steady_clock::time_point after(double seconds) {
    return std::chrono::steady_clock::now() +
           std::chrono::duration_cast<std::chrono::steady_clock::duration>(
               std::chrono::duration<double>(seconds));
}

} // namespace

XTestConnection::XTestConnection() : display(XOpenDisplay(nullptr)) {
    XSetErrorHandler(ignoreXError);
}

XTestConnection::~XTestConnection() {
    if (display != nullptr)
        XCloseDisplay(display);
}

std::optional<XWindowId> XTestConnection::findWindowOf(pid_t pid) {
    const Atom pidAtom = XInternAtom(display, "_NET_WM_PID", True);
    if (pidAtom == None)
        return std::nullopt;
    Window root = 0, parent = 0;
    Window* children = nullptr;
    unsigned count = 0;
    if (!XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &count))
        return std::nullopt;
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
    return found;
}

std::optional<XWindowId> XTestConnection::waitForWindowOf(pid_t pid, double seconds) {
    const auto deadline = after(seconds);
    do {
        if (const auto window = findWindowOf(pid))
            return window;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    } while (before(deadline));
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

bool XTestConnection::waitForSize(XWindowId window, int width, int height, double seconds) {
    const auto deadline = after(seconds);
    do {
        const auto now = geometry(window);
        if (now.width == width && now.height == height)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    } while (before(deadline));
    return false;
}

std::vector<uint8_t> XTestConnection::capture(XWindowId window, int& width, int& height) {
    const auto where = geometry(window);
    width = where.width;
    height = where.height;
    // From the root window, so that the editor's own child windows are in the picture.
    XImage* image =
        XGetImage(display, DefaultRootWindow(display), where.x, where.y,
                  static_cast<unsigned>(width), static_cast<unsigned>(height), AllPlanes, ZPixmap);
    std::vector<uint8_t> pixels;
    if (image == nullptr)
        return pixels;
    pixels.reserve(static_cast<size_t>(width) * static_cast<size_t>(height) * 3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const unsigned long pixel = XGetPixel(image, x, y);
            pixels.push_back(
                static_cast<uint8_t>((pixel & image->red_mask) >> __builtin_ctzl(image->red_mask)));
            pixels.push_back(static_cast<uint8_t>((pixel & image->green_mask) >>
                                                  __builtin_ctzl(image->green_mask)));
            pixels.push_back(static_cast<uint8_t>((pixel & image->blue_mask) >>
                                                  __builtin_ctzl(image->blue_mask)));
        }
    XDestroyImage(image);
    return pixels;
}

size_t XTestConnection::distinctColours(XWindowId window) {
    int width = 0, height = 0;
    const auto pixels = capture(window, width, height);
    std::set<uint32_t> colours;
    for (size_t at = 0; at + 3 <= pixels.size(); at += 3)
        colours.insert(
            static_cast<uint32_t>(pixels[at] << 16 | pixels[at + 1] << 8 | pixels[at + 2]));
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
