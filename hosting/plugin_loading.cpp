#include "hosting/plugin_loading.h"

#include "hosting/guarded_call.h"
#include "hosting/host_callback.h"
#include "hosting/plugin_host.h"
#include "hosting/plugin_stage.h"
#include "hosting/vst3/vst3_bridge.h"
#include "hosting/vst3/vst3_module.h"

#include <cstring>

namespace {
constexpr intptr_t pluginBlockSize = 512;
}

bool attachEffect(PluginHost& host, AEffect* effect) {
    if (effect == nullptr || effect->magic != kEffectMagic || (effect->flags & effFlagsIsSynth))
        return false;
    host.effect = effect;
    effect->user = &host;
    // Absurd pin counts are refused before any call could walk them.
    if (!host.pinCountsWithinLimits())
        return false;
    const pluginStageScope stage(pluginStage::opening);
    const bool opened = guardedCall([&] {
        host.dispatch(effOpen);
        if (host.sampleRate != 0)
            host.dispatch(effSetSampleRate, 0, 0, nullptr, static_cast<float>(host.sampleRate));
        host.dispatch(effSetBlockSize, 0, pluginBlockSize);
    });
    if (!opened)
        return false;
    guardedCall([&] { host.dispatch(effMainsChanged, 0, 1); });
    host.active = true;
    return true;
}

namespace {

bool openFromEntry(PluginHost& host, VstPluginMainProc entry, std::shared_ptr<ModuleLibrary> library) {
    host.library = std::move(library);
    host.entryPoint = entry;
    AEffect* effect = nullptr;
    if (!guardedCall([&] { effect = entry(hostCallback); }))
        return false;
    return attachEffect(host, effect);
}

} // namespace

bool loadVst2(PluginHost& host, std::shared_ptr<ModuleLibrary> module) {
    if (!module)
        return false;
    auto entry = reinterpret_cast<VstPluginMainProc>(module->symbol("VSTPluginMain"));
    if (entry == nullptr)
        entry = reinterpret_cast<VstPluginMainProc>(module->symbol("main"));
    if (entry == nullptr)
        return false;
    return openFromEntry(host, entry, std::move(module));
}

namespace {

// The wrapper of a record that was refused before the host took it: nobody else will close it,
// and the module must not go while it lives.
void closeRefused(PluginHost& host, AEffect* effect) {
    if (host.effect == effect)
        return;
    guardedCall([&] { effect->dispatcher(effect, effClose, 0, 0, nullptr, 0.0f); });
    host.wrapper = nullptr;
}

// Factory order decides: the first audio module class that can be bridged is the plug-in, so a
// controller class listed first is passed over.
bool openVst3Module(PluginHost& host, std::shared_ptr<Vst3Module> module) {
    host.module = std::move(module);
    for (const auto& info : host.module->classes()) {
        if (!info.isAudioModule())
            continue;
        Steinberg::TUID classId;
        std::memcpy(classId, info.classId.data(), sizeof classId);
        auto* wrapper =
            vst3::Vst3Bridge::create(&host.module->factory(), classId, 0, hostCallback);
        if (wrapper == nullptr)
            continue;
        host.wrapper = wrapper;
        AEffect* effect = wrapper->getAEffect();
        if (attachEffect(host, effect))
            return true;
        closeRefused(host, effect);
        return false;
    }
    return false;
}

} // namespace

bool loadVst3(PluginHost& host, const std::string& path) {
    auto module = Vst3Module::load(path);
    if (!module)
        return false;
    return openVst3Module(host, std::move(module));
}

PluginSource takeSource(PluginHost& host) {
    return PluginSource{host.entryPoint, host.library, host.module};
}

bool reopen(PluginHost& host, PluginSource source) {
    if (source.entryPoint != nullptr)
        return openFromEntry(host, source.entryPoint, std::move(source.library));
    if (source.module)
        return openVst3Module(host, std::move(source.module));
    return false;
}
