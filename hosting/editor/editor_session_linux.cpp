#include "hosting/editor/editor_session.h"

#include "hosting/editor/editor_host.h"
#include "hosting/editor/editor_placement.h"
#include "hosting/editor/main_thread_queue_linux.h"
#include "hosting/editor/x11_editor_window_linux.h"
#include "hosting/plugin_host.h"
#include "hosting/plugin_slot.h"
#include "hosting/poll_run_loop.h"

#include <X11/Xlib.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>

namespace {

// Linux editors draw and take input only when the host idles them; macOS editors run on the
// system's own run loop and need no timer. About 30 Hz, as hosts commonly do.
constexpr auto idleInterval = std::chrono::milliseconds(33);

struct DisplayCloser {
    void operator()(Display* display) const { XCloseDisplay(display); }
};
using DisplayConnection = std::unique_ptr<Display, DisplayCloser>;

// What must still happen when the display goes away under us: X gives its handler no context.
const std::function<bool()>* terminateOnLostDisplay = nullptr;

// Plug-in editors provoke X errors (a stale window id, a missing extension); none of them is a
// reason to lose the user's session.
int reportXError(Display* display, XErrorEvent* error) {
    char text[256] = {};
    XGetErrorText(display, error->error_code, text, sizeof text);
    std::fprintf(stderr, "X error in the editor (ignored): %s (request %d.%d)\n", text,
                 error->request_code, error->minor_code);
    return 0;
}

int onLostDisplay(Display*) {
    std::fputs("Lost the connection to the X display\n", stderr);
    if (terminateOnLostDisplay != nullptr)
        (*terminateOnLostDisplay)();
    std::fflush(nullptr);
    ::_exit(255);
}

// SIGTERM and SIGINT end the session like closing the window. A handler may only write to a
// descriptor; the run loop does the rest.
int stopSignalWriteEnd = -1;

void onStopSignal(int) {
    const char signalled = 1;
    [[maybe_unused]] const auto written = ::write(stopSignalWriteEnd, &signalled, 1);
}

class StopSignals {
  public:
    StopSignals() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
            throw std::system_error(errno, std::generic_category(),
                                    "Could not watch for stop signals");
        readEnd = ends[0];
        stopSignalWriteEnd = ends[1];
        struct sigaction action {};
        action.sa_handler = onStopSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        sigaction(SIGTERM, &action, &previousTerm);
        sigaction(SIGINT, &action, &previousInt);
    }
    ~StopSignals() {
        sigaction(SIGTERM, &previousTerm, nullptr);
        sigaction(SIGINT, &previousInt, nullptr);
        ::close(stopSignalWriteEnd);
        stopSignalWriteEnd = -1;
        ::close(readEnd);
    }
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    int descriptor() const { return readEnd; }

  private:
    int readEnd = -1;
    struct sigaction previousTerm {};
    struct sigaction previousInt {};
};

DisplayConnection openDisplay() {
    // Editors may call Xlib from threads of their own; Xlib needs to know before any other call.
    XInitThreads();
    DisplayConnection display(XOpenDisplay(nullptr));
    if (!display) {
        const char* name = std::getenv("DISPLAY");
        throw std::runtime_error(std::string("Cannot open the X display \"") + (name ? name : "") +
                                 "\": the editor needs a graphical session");
    }
    return display;
}

int centred(int screenSize, int editorSize) {
    return static_cast<int>(std::floor(centredOrigin(0, screenSize, editorSize)));
}

[[noreturn]] void finish(const std::function<bool()>& terminate) {
    const bool finished = terminate();
    std::fflush(nullptr);
    // Plug-in code may still run threads and exit handlers: leave without unloading anything.
    ::_exit(finished ? 0 : 255);
}

// The editor opened on a window of its size, centred on the screen, and shown.
std::unique_ptr<X11EditorWindow> showEditorWindow(Display* display, PluginHost& host) {
    int width = 0;
    int height = 0;
    host.editorSize(width, height);
    const int screen = DefaultScreen(display);
    const int screenWidth = DisplayWidth(display, screen);
    const int screenHeight = DisplayHeight(display, screen);
    auto window = std::make_unique<X11EditorWindow>(display, centred(screenWidth, width),
                                                    centred(screenHeight, height), width, height);
    host.openEditor(*window);
    // Many Linux editors know their size only once open; the window is not shown yet, so it
    // can still be centred for the size they settle on.
    int openWidth = 0;
    int openHeight = 0;
    host.editorSize(openWidth, openHeight);
    if (openWidth != width || openHeight != height)
        window->setFrame(centred(screenWidth, openWidth), centred(screenHeight, openHeight),
                         openWidth, openHeight);
    window->show();
    XFlush(display);
    return window;
}

// Serves the editor on `loop`: the window's events (a close request stops the loop), work
// posted to the main thread, the idle timer and the plug-in's own event sources.
void serveEditor(PollRunLoop& loop, Display* display, X11EditorWindow& window, PluginHost& host) {
    const auto handleXEvents = [&loop, display, &window] {
        while (XPending(display) > 0) {
            XEvent event;
            XNextEvent(display, &event);
            if (window.isCloseRequest(event))
                loop.stop();
        }
    };
    auto& mainThreadQueue = MainThreadQueue::instance();
    loop.addDescriptor(&window, ConnectionNumber(display), handleXEvents);
    loop.addDescriptor(&mainThreadQueue, mainThreadQueue.wakeDescriptor(),
                       [&mainThreadQueue] { mainThreadQueue.runPending(); });
    loop.addTimer(&host, idleInterval, [&host, display, handleXEvents] {
        host.idleStep();
        // Replies read during idling leave events in Xlib's queue, where poll cannot see them.
        handleXEvents();
        XFlush(display);
    });
    host.watchEditorEvents(loop, [&host, handleXEvents] {
        host.idleStep();
        handleXEvents();
    });
    handleXEvents();
}

} // namespace

bool runEditorWindow(PluginSlot& plugin, const std::function<bool()>& terminate) {
    PluginHost* const shown = hostWithEditor(plugin);
    if (shown == nullptr)
        return false;
    PluginHost& host = *shown;
    terminateOnLostDisplay = &terminate;
    const DisplayConnection display = openDisplay();
    XSetErrorHandler(reportXError);
    XSetIOErrorHandler(onLostDisplay);
    // Before the window shows: whoever sees it may already ask the session to end.
    const StopSignals stopSignals;
    const auto window = showEditorWindow(display.get(), host);
    PollRunLoop loop;
    serveEditor(loop, display.get(), *window, host);
    loop.addDescriptor(&stopSignals, stopSignals.descriptor(), [&] { loop.stop(); });
    loop.run();
    finish(terminate);
}

namespace {

class X11EditorScreen final : public EditorScreen {
  public:
    explicit X11EditorScreen(DisplayConnection display) : display(std::move(display)) {
        XSetErrorHandler(reportXError);
        XSetIOErrorHandler(onLostDisplay);
    }

    bool showEditorFor(PluginSlot& plugin, std::chrono::milliseconds shownFor) override {
        PluginHost* const shown = hostWithEditor(plugin);
        if (shown == nullptr)
            return false;
        PluginHost& host = *shown;
        {
            const auto window = showEditorWindow(display.get(), host);
            PollRunLoop loop;
            serveEditor(loop, display.get(), *window, host);
            int shownTimer = 0;
            loop.addTimer(&shownTimer, shownFor, [&loop] { loop.stop(); });
            loop.run();
            host.closeEditor();
        }
        XSync(display.get(), False);
        return true;
    }

  private:
    DisplayConnection display;
};

} // namespace

std::unique_ptr<EditorScreen> EditorScreen::open() {
    try {
        return std::make_unique<X11EditorScreen>(openDisplay());
    } catch (const std::runtime_error&) {
        return nullptr;
    }
}
