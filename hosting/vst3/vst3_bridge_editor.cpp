// The bridge's editor opcodes over the controller's IPlugView, and the idle work that belongs
// to the UI thread: meter values into the controller, the run loop's due timers.
#include "hosting/vst3/vst3_bridge.h"

#include <algorithm>
#include <limits>

namespace vst3 {

namespace {

int16 toRectSide(int32 value) {
    return static_cast<int16>(std::clamp<int32>(value, 0, std::numeric_limits<int16>::max()));
}

} // namespace

bool Vst3Bridge::ensureView() {
    if (view)
        return true;
    if (!parts.controller())
        return false;
    IPtr<IPlugView> made = owned(parts.controller()->createView(ViewType::kEditor));
    if (!made)
        return false;
    if (!frame)
        frame = owned(new Vst3PlugFrame(*this, *runLoop));
    // The frame goes in at once: editors ask it for the run loop and may resize from attached().
    made->setFrame(frame);
    if (made->isPlatformTypeSupported(vst3EditorPlatformType()) != kResultTrue) {
        made->setFrame(nullptr);
        return false;
    }
    view = made;
    return true;
}

intptr_t Vst3Bridge::editorRect(void* ptr) {
    if (ptr == nullptr)
        return 0;
    const std::lock_guard lock(processing.lifecycleLock());
    if (!ensureView())
        return 0;
    ViewRect size = lastViewSize;
    if (size.getWidth() <= 0 || size.getHeight() <= 0) {
        // Some editors know their size only once attached: 0 x 0 is "no rectangle yet".
        if (view->getSize(&size) != kResultOk || size.getWidth() <= 0 || size.getHeight() <= 0)
            return 0;
    }
    rectAnswer = ERect{0, 0, toRectSide(size.getHeight()), toRectSide(size.getWidth())};
    *static_cast<ERect**>(ptr) = &rectAnswer;
    return 1;
}

intptr_t Vst3Bridge::openEditor(void* parent) {
    const std::lock_guard lock(processing.lifecycleLock());
    if (viewAttached || !ensureView())
        return 0;
    if (view->attached(parent, vst3EditorPlatformType()) != kResultOk)
        return 0;
    viewAttached = true;
    return 1;
}

intptr_t Vst3Bridge::closeEditor() {
    const std::lock_guard lock(processing.lifecycleLock());
    if (!view)
        return 0;
    if (viewAttached)
        view->removed();
    view->setFrame(nullptr);
    // The run loop stays: editors unregister their timers while being removed and released.
    view = nullptr;
    viewAttached = false;
    lastViewSize = ViewRect();
    return 1;
}

tresult Vst3Bridge::resizeView(IPlugView* resized, ViewRect& size) {
    if (resized != view.get() && view)
        return kInvalidArgument;
    const bool changed =
        size.getWidth() != lastViewSize.getWidth() || size.getHeight() != lastViewSize.getHeight();
    lastViewSize = size;
    // The window must follow before the view is told its new size; a host that cannot resize
    // leaves the view as it was.
    if (changed && callHost(audioMasterSizeWindow, size.getWidth(), size.getHeight()) == 0)
        return kResultFalse;
    resized->onSize(&size);
    return kResultTrue;
}

intptr_t Vst3Bridge::idle(bool editor) {
    // A state load makes plug-ins ask for display updates, which come back here: neither the
    // controller nor the editor's timers are entered again while it is busy with the state.
    if (!onUiThread() || loadingState)
        return 0;
    parameters.drainOutputChanges();
    if (editor)
        runLoop->dispatchDue();
    return 0;
}

} // namespace vst3
