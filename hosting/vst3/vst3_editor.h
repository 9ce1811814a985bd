#pragma once

#include "hosting/vst2/vst2_abi.h"
#include "hosting/vst3/vst3_host_objects.h"
#include "hosting/vst3/vst3_plugin_parts.h"
#include "hosting/vst3/vst3_processing.h"
#include "hosting/vst3/vst3_run_loop.h"

#include "pluginterfaces/gui/iplugview.h"

#include <cstdint>
#include <memory>

namespace vst3 {

// The bridge's editor: the controller's view in our frame, and the run loop its timers and
// descriptors are registered with. Owned by the bridge, which keeps it until after the plug-in's
// parts are released: editors unregister from the run loop while their view goes. UI thread;
// the editor opcodes take the lifecycle lock, so that they stay apart from reconfiguration.
class Vst3Editor final : private Vst3FrameTarget {
  public:
    // `hostCallback` and `effect` are for asking the host to resize the window.
    Vst3Editor(const Vst3PluginParts& parts, Vst3Processing& processing,
               audioMasterCallback hostCallback, AEffect& effect)
        : parts(parts), processing(processing), hostCallback(hostCallback), effect(effect) {}

    // At creation, before the parts are made: the host application offers it to plug-ins.
    Vst3RunLoop* makeRunLoop();
    const Vst3RunLoop& runLoop() const { return *loop; }
    // Whether the controller makes an editor view at all. Calls plug-in code.
    bool available() const;

    // The editor opcodes, answered as VST 2 would.
    intptr_t rect(void* ptr);
    intptr_t open(void* parent);
    intptr_t close();
    // Fires the run loop's due timers and readable descriptors.
    void dispatchDue() { loop->dispatchDue(); }
    // At teardown: the plug-in may keep the frame, which must not reach back into us.
    void detachFrame();

  private:
    bool ensureView();
    Steinberg::tresult resizeView(Steinberg::IPlugView* view, Steinberg::ViewRect& size) override;

    const Vst3PluginParts& parts;
    Vst3Processing& processing;
    audioMasterCallback hostCallback;
    AEffect& effect;

    // Declared first of the plug-in side so that it goes last: editors unregister from it
    // while their view is released.
    std::unique_ptr<Vst3RunLoop> loop;
    Steinberg::IPtr<Vst3PlugFrame> frame;
    Steinberg::IPtr<Steinberg::IPlugView> view;
    bool viewAttached = false;
    Steinberg::ViewRect lastViewSize;
    ERect rectAnswer{};
};

} // namespace vst3
