#include "hosting/plugin_host.h"

#include <algorithm>

#include "hosting/editor/editor_window.h"

namespace {

constexpr int defaultEditorSize = 100;

} // namespace

void PluginHost::editorSize(int& width, int& height) const {
    width = defaultEditorSize;
    height = defaultEditorSize;
    if (!hasEditor())
        return;
    ERect* rect = nullptr;
    dispatch(effEditGetRect, 0, 0, &rect);
    if (rect != nullptr) {
        width = rect->right - rect->left;
        height = rect->bottom - rect->top;
    }
}

void PluginHost::openEditor(EditorWindow& window) {
    if (loaded.effect == nullptr || editor.open || !hasEditor())
        return;
    editor.open = true;
    dispatch(effEditOpen, 0, 0, window.nativeHandle());
    editor.window = &window;
}

void PluginHost::closeEditor() {
    if (loaded.effect == nullptr || !editor.open.exchange(false))
        return;
    editor.window = nullptr;
    editor.resizeCountdown = 0;
    dispatch(effEditClose);
}

void PluginHost::idleStep() {
    if (loaded.effect == nullptr)
        return;
    if (deferredEditorIdle.exchange(false))
        editorIdle();
    if (const uint32_t size = deferredEditorSize.exchange(0); size != 0)
        resizeEditorWindow(static_cast<int>(size >> 16), static_cast<int>(size & 0xFFFF));
    if (needIdle)
        needIdle = dispatch(effIdle) != 0;
    if (editor.open)
        dispatch(effEditIdle);
    if (editor.resizeCountdown >= 1) {
        --editor.resizeCountdown;
        int width = 0;
        int height = 0;
        editorSize(width, height);
        if (width == editor.baselineWidth && height == editor.baselineHeight)
            return;
        resizeEditorWindow(width, height);
        editor.resizeCountdown = 0;
    }
}

void PluginHost::idleOnRequest() {
    const bool remembered = needIdle;
    needIdle = true;
    idleStep();
    idleStep();
    needIdle = remembered;
}

void PluginHost::noteOffThreadRequest(const char* what) {
    const char* none = nullptr;
    firstOffThreadRequest.compare_exchange_strong(none, what);
}

std::string PluginHost::offThreadRequest() const {
    const char* first = firstOffThreadRequest.load();
    return first == nullptr ? "" : first;
}

void PluginHost::deferEditorSize(int width, int height) {
    const auto clamp = [](int side) { return static_cast<uint32_t>(std::clamp(side, 1, 0xFFFF)); };
    deferredEditorSize = clamp(width) << 16 | clamp(height);
}

void PluginHost::editorIdle() {
    if (!editor.open)
        return;
    if (needIdle)
        needIdle = dispatch(effIdle) != 0;
    dispatch(effEditIdle);
}

void PluginHost::resizeEditorWindow(int width, int height) {
    if (editor.window != nullptr)
        editor.window->setContentSize(width, height);
}

void PluginHost::rememberEditorSize() {
    if (!editor.open)
        return;
    int width = 0;
    int height = 0;
    editorSize(width, height);
    editor.baselineWidth = width;
    editor.baselineHeight = height;
}

void PluginHost::letEditorCatchUp() {
    if (!editor.open)
        return;
    dispatch(effEditIdle);
    editorIdle();
    editor.resizeCountdown = 100;
}

void PluginHost::watchEditorEvents(PollRunLoop& loop, std::function<void()> idle) const {
    if (loaded.kind)
        loaded.kind->watchEditorEvents(loop, std::move(idle));
}
