#include "hosting/host_callback.h"

#include "hosting/guarded_call.h"
#include "hosting/plugin_host.h"

#include <cstring>
#include <string_view>

namespace {

constexpr const char vendorName[] = "Marrowvale";
constexpr const char productName[] = "Marrowvale VST Adapter";
constexpr intptr_t blockSize = Plugin::blockFrames;

bool hostCanDo(const void* text) {
    if (text == nullptr)
        return false;
    const std::string_view asked(static_cast<const char*>(text));
    return asked == "sendVstTimeInfo" || asked == "sizeWindow" || asked == "supplyIdle";
}

intptr_t answerIdle(PluginHost* host) {
    if (host == nullptr)
        return 0;
    if (!host->onMainThread()) {
        host->noteOffThreadRequest("an idle call");
        return 1;
    }
    host->idleOnRequest();
    return 1;
}

// The editor's work is the main thread's: from another thread (the audio thread, a plug-in's
// own) it waits for the next idle step, as window calls from there could break the editor.
void answerSizeWindow(PluginHost& host, int width, int height) {
    if (host.onMainThread()) {
        host.resizeEditorWindow(width, height);
        return;
    }
    host.noteOffThreadRequest("the editor's size");
    host.deferEditorSize(width, height);
}

void answerUpdateDisplay(PluginHost& host) {
    if (host.onMainThread())
        host.editorIdle();
    else
        host.deferEditorIdle();
}

intptr_t answer(PluginHost* host, int32_t opcode, int32_t index, intptr_t value, void* ptr) {
    switch (opcode) {
    case audioMasterVersion:
        return kVstVersion;
    case audioMasterIdle:
        return answerIdle(host);
    case audioMasterGetTime:
        return host ? reinterpret_cast<intptr_t>(fillTimeInfo(*host, value)) : 0;
    case audioMasterProcessEvents:
        return 1;
    case audioMasterIOChanged:
        if (host)
            host->forgetFormat();
        return 1;
    case audioMasterNeedIdle:
        if (host)
            host->requestIdle();
        return 1;
    case audioMasterSizeWindow:
        if (host)
            answerSizeWindow(*host, index, static_cast<int>(value));
        return 1;
    case audioMasterBeginEdit:
    case audioMasterEndEdit:
        // Gestures come from the user, on the editor's thread.
        if (host && !host->onMainThread())
            host->noteOffThreadRequest("an edit gesture");
        return 0;
    case audioMasterGetSampleRate:
        if (const int32_t rate = host ? host->sampleRate() : 0; rate >= 1)
            return rate;
        return PluginHost::defaultSampleRate;
    case audioMasterGetBlockSize:
        return blockSize;
    case audioMasterGetCurrentProcessLevel:
        return host ? host->processLevel() : kVstProcessLevelOffline;
    case audioMasterGetVendorString:
        if (ptr)
            std::memcpy(ptr, vendorName, sizeof vendorName);
        return 1;
    case audioMasterGetProductString:
        if (ptr)
            std::memcpy(ptr, productName, sizeof productName);
        return 1;
    case audioMasterGetVendorVersion:
        return 1;
    case audioMasterCanDo:
        return hostCanDo(ptr) ? 1 : 0;
    case audioMasterGetLanguage:
        return kVstLangEnglish;
    case audioMasterGetDirectory:
        return 0;
    case audioMasterUpdateDisplay:
        if (host)
            answerUpdateDisplay(*host);
        return 0;
    default:
        return 0;
    }
}

} // namespace

const char* hostProductName() noexcept {
    return productName;
}

PluginHost* hostFromEffect(AEffect* effect) noexcept {
    return effect ? static_cast<PluginHost*>(effect->user) : nullptr;
}

VstTimeInfo* fillTimeInfo(PluginHost& host, intptr_t requestedFlags) {
    // One record per calling thread: the plug-in reads it after we return, and its audio and
    // editor threads may ask at the same time. Fields it did not ask for are zero.
    thread_local VstTimeInfo info;
    info = VstTimeInfo{};
    int32_t flags = 0;
    if (requestedFlags & kVstNanosValid) {
        // Positions are never advanced: a plug-in asking for this gets 0 / 0, as it always has.
        info.nanoSeconds = info.samplePos * 1000000.0 / info.sampleRate;
        flags |= kVstNanosValid;
    }
    if (requestedFlags & kVstTempoValid) {
        info.tempo = static_cast<double>(host.tempo());
        flags |= kVstTempoValid;
    }
    if (requestedFlags & kVstTimeSigValid) {
        info.timeSigNumerator = static_cast<int32_t>(host.timeSignature() >> 16);
        info.timeSigDenominator = 1 << (host.timeSignature() & 0x1F);
        flags |= kVstTimeSigValid;
    }
    info.flags = flags | kVstTransportChanged | (host.isActive() ? kVstTransportPlaying : 0);
    return &info;
}

intptr_t hostCallback(AEffect* effect, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                      float) noexcept {
    intptr_t result = 0;
    guardedCall([&] { result = answer(hostFromEffect(effect), opcode, index, value, ptr); });
    return result;
}
