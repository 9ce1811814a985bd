// The bridge's editor opcodes over the controller's IPlugView.
#include "hosting/vst3/vst3_editor.h"

#include "hosting/guarded_call.h"

#include <algorithm>
#include <limits>
#include <mutex>

namespace vst3 {

using Steinberg::int16;
using Steinberg::int32;
using Steinberg::IPtr;
using Steinberg::kInvalidArgument;
using Steinberg::kResultFalse;
using Steinberg::kResultOk;
using Steinberg::kResultTrue;
using Steinberg::owned;
using Steinberg::tresult;
using Steinberg::ViewRect;

namespace {

int16 toRectSide(int32 value) {
    return static_cast<int16>(std::clamp<int32>(value, 0, std::numeric_limits<int16>::max()));
}

} // namespace

Vst3RunLoop* Vst3Editor::makeRunLoop() {
    loop = Vst3RunLoop::create();
    return loop.get();
}

bool Vst3Editor::available() const {
    if (!parts.controller())
        return false;
    // Cheap on most plug-ins; some open their display here, so a throw or null just means no
    // editor, and the view made for asking is not kept.
    bool hasView = false;
    guardedCall([&] {
        IPtr<Steinberg::IPlugView> probe =
            owned(parts.controller()->createView(Steinberg::Vst::ViewType::kEditor));
        hasView = probe != nullptr;
    });
    return hasView;
}

bool Vst3Editor::ensureView() {
    if (view)
        return true;
    if (!parts.controller())
        return false;
    IPtr<Steinberg::IPlugView> made =
        owned(parts.controller()->createView(Steinberg::Vst::ViewType::kEditor));
    if (!made)
        return false;
    if (!frame)
        frame = owned(new Vst3PlugFrame(*this, *loop));
    // The frame goes in at once: editors ask it for the run loop and may resize from attached().
    made->setFrame(frame);
    if (made->isPlatformTypeSupported(vst3EditorPlatformType()) != kResultTrue) {
        made->setFrame(nullptr);
        return false;
    }
    view = made;
    return true;
}

intptr_t Vst3Editor::rect(void* ptr) {
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

intptr_t Vst3Editor::open(void* parent) {
    const std::lock_guard lock(processing.lifecycleLock());
    if (viewAttached || !ensureView())
        return 0;
    if (view->attached(parent, vst3EditorPlatformType()) != kResultOk)
        return 0;
    viewAttached = true;
    return 1;
}

intptr_t Vst3Editor::close() {
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

tresult Vst3Editor::resizeView(Steinberg::IPlugView* resized, ViewRect& size) {
    if (resized != view.get() && view)
        return kInvalidArgument;
    const bool changed =
        size.getWidth() != lastViewSize.getWidth() || size.getHeight() != lastViewSize.getHeight();
    lastViewSize = size;
    // The window must follow before the view is told its new size; a host that cannot resize
    // leaves the view as it was.
    if (changed && hostCallback(&effect, audioMasterSizeWindow, size.getWidth(), size.getHeight(),
                                nullptr, 0.0f) == 0)
        return kResultFalse;
    resized->onSize(&size);
    return kResultTrue;
}

void Vst3Editor::detachFrame() {
    if (frame)
        frame->detach();
}

} // namespace vst3
