// macOS editors run on the main thread's own run loop, which the editor window keeps turning;
// the host offers no run-loop interface of its own and has nothing to dispatch.
#include "hosting/vst3/vst3_run_loop.h"

#include "pluginterfaces/gui/iplugview.h"

namespace {

class MacRunLoop final : public Vst3RunLoop {
  public:
    bool query(const Steinberg::TUID, void**) override { return false; }
    void dispatchDue() override {}
    std::vector<int> descriptors() const override { return {}; }
    int millisecondsToNextTimer() const override { return -1; }
};

} // namespace

std::unique_ptr<Vst3RunLoop> Vst3RunLoop::create() {
    return std::make_unique<MacRunLoop>();
}

const char* vst3EditorPlatformType() {
    return Steinberg::kPlatformTypeNSView;
}
