// macOS: the editor lives in an AppKit window on the application's run loop, which also draws
// it: there is no idle timer. Closing the last window terminates the application, whose
// delegate writes the settings back first.
#include "hosting/editor/editor_session.h"

#include "hosting/editor/editor_host.h"
#include "hosting/editor/editor_placement.h"
#include "hosting/editor/editor_window.h"
#include "hosting/plugin_host.h"
#include "hosting/plugin_slot.h"

#import <AppKit/AppKit.h>
#include <dispatch/dispatch.h>

#include <csignal>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <memory>
#include <unistd.h>

@interface VSTConfigDelegate : NSObject <NSApplicationDelegate>
@property(nonatomic, assign) const std::function<bool()>* g;
@end

@implementation VSTConfigDelegate
- (BOOL)applicationShouldTerminateAfterLastWindowClosed:(NSApplication*)sender {
    return YES;
}
- (void)applicationWillTerminate:(NSNotification*)notification {
    // The framework would end with 0: settings that could not be saved end with 255 instead.
    if (self.g != nullptr && !(*self.g)()) {
        std::fflush(nullptr);
        ::_exit(255);
    }
}
@end

// VST 2 editors expect a parent view with its origin at the top left.
@interface VSTViewFlipped : NSView
@end

@implementation VSTViewFlipped
- (BOOL)isFlipped {
    return YES;
}
@end

@interface VSTWindow : NSWindow
- (instancetype)initWithContentRect:(NSRect)rect;
@end

@implementation VSTWindow
- (instancetype)initWithContentRect:(NSRect)rect {
    // Titled and closable: no resize box, no miniaturise button.
    self = [super initWithContentRect:rect styleMask:3 backing:NSBackingStoreBuffered defer:NO];
    if (self)
        [self setContentView:[[[VSTViewFlipped alloc] init] autorelease]];
    return self;
}
- (instancetype)init {
    self = [super init];
    if (self) {
        [self setStyleMask:3];
        [self setContentView:[[[VSTViewFlipped alloc] init] autorelease]];
    }
    return self;
}
@end

namespace {

class AppKitEditorWindow final : public EditorWindow {
  public:
    explicit AppKitEditorWindow(VSTWindow* window) : window(window) {}
    void setContentSize(int width, int height) override {
        [window setContentSize:NSMakeSize(width, height)];
    }
    void* nativeHandle() const override { return (__bridge void*)[window contentView]; }

  private:
    VSTWindow* window;
};

// SIGTERM and SIGINT end the session as closing the window does: the delegate saves first.
void terminateOnStopSignals() {
    for (const int signalNumber : {SIGTERM, SIGINT}) {
        std::signal(signalNumber, SIG_IGN);
        dispatch_source_t source = dispatch_source_create(DISPATCH_SOURCE_TYPE_SIGNAL,
                                                          static_cast<uintptr_t>(signalNumber), 0,
                                                          dispatch_get_main_queue());
        dispatch_source_set_event_handler(source, ^{
          [NSApp terminate:nil];
        });
        // Kept for the life of the process, which ends with the session.
        dispatch_resume(source);
    }
}

// A window of the editor's size, centred on the main screen; the caller opens the editor on it
// and releases it.
VSTWindow* centredEditorWindow(PluginHost& host) {
    int width = 0;
    int height = 0;
    host.editorSize(width, height);
    const NSRect screen = [[NSScreen mainScreen] frame];
    const NSRect frame =
        NSMakeRect(centredOrigin(screen.origin.x, screen.size.width, width),
                   centredOrigin(screen.origin.y, screen.size.height, height), width, height);
    return [[VSTWindow alloc] initWithContentRect:frame];
}

} // namespace

bool runEditorWindow(PluginSlot& plugin, const std::function<bool()>& terminate) {
    PluginHost* const shown = hostWithEditor(plugin);
    if (shown == nullptr)
        return false;
    PluginHost& host = *shown;
    @autoreleasepool {
        NSApplication* application = [NSApplication sharedApplication];
        VSTConfigDelegate* delegate = [VSTConfigDelegate new];
        delegate.g = &terminate;
        [application setDelegate:delegate];

        VSTWindow* window = centredEditorWindow(host);
        AppKitEditorWindow editorWindow(window);
        host.openEditor(editorWindow);
        terminateOnStopSignals();
        [window orderFrontRegardless];
        [window makeKeyWindow];
        [application run];

        // Only a stop request ends run without ending the process.
        [application setDelegate:nil];
        [window release];
        [delegate release];
    }
    return false;
}

namespace {

class AppKitEditorScreen final : public EditorScreen {
  public:
    bool showEditorFor(PluginSlot& plugin, std::chrono::milliseconds shownFor) override {
        PluginHost* const shown = hostWithEditor(plugin);
        if (shown == nullptr)
            return false;
        PluginHost& host = *shown;
        @autoreleasepool {
            VSTWindow* window = centredEditorWindow(host);
            [window setReleasedWhenClosed:NO];
            AppKitEditorWindow editorWindow(window);
            host.openEditor(editorWindow);
            [window orderFrontRegardless];
            // The run loop draws and serves the editor meanwhile, as in the session above.
            const double seconds = static_cast<double>(shownFor.count()) / 1000.0;
            [[NSRunLoop currentRunLoop] runUntilDate:[NSDate dateWithTimeIntervalSinceNow:seconds]];
            host.closeEditor();
            [window close];
            [window release];
        }
        return true;
    }
};

} // namespace

std::unique_ptr<EditorScreen> EditorScreen::open() {
    // A process of a logged-in user reaches the window server; one started elsewhere (a remote
    // shell) may not, which NSScreen tells.
    @autoreleasepool {
        [NSApplication sharedApplication];
        if ([NSScreen mainScreen] == nil)
            return nullptr;
    }
    return std::make_unique<AppKitEditorScreen>();
}
