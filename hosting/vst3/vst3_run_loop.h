#pragma once

#include "pluginterfaces/base/funknown.h"

#include <memory>
#include <vector>

// What plug-in editors need of the host's event loop. On Linux they register timers and
// descriptors with it (IRunLoop), kept in a PollRunLoop that the editor idle dispatches and the
// editor window waits on; on macOS editors use the system run loop, so it offers no interface
// there. Platform files: vst3_run_loop_linux.cpp,
// vst3_run_loop_mac.mm. Owned by the bridge; UI thread.
class Vst3RunLoop {
  public:
    virtual ~Vst3RunLoop() = default;

    // Answers a query for the platform's run-loop interface with a counted reference; false
    // for any other interface.
    virtual bool query(const Steinberg::TUID iid, void** object) = 0;
    // Fires the timers that are due and the handlers whose descriptors are readable, without
    // waiting. Handlers may register and unregister from inside their callbacks.
    virtual void dispatchDue() = 0;
    // Descriptors an editor's event loop should wait on besides its own.
    virtual std::vector<int> descriptors() const = 0;
    // Milliseconds until the next timer is due; negative when none is registered.
    virtual int millisecondsToNextTimer() const = 0;

    static std::unique_ptr<Vst3RunLoop> create();
};

// The platform type editors are attached with: an X11 window id on Linux, an NSView on macOS.
const char* vst3EditorPlatformType();
