#include "hosting/plugin_loading.h"

#include "hosting/guarded_call.h"
#include "hosting/host_callback.h"
#include "hosting/plugin_host.h"

namespace {
constexpr intptr_t pluginBlockSize = 512;
}

bool attachEffect(PluginHost& host, AEffect* effect) {
    if (effect == nullptr || effect->magic != kEffectMagic || (effect->flags & effFlagsIsSynth))
        return false;
    host.effect = effect;
    effect->user = &host;
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

bool loadVst2(PluginHost& host, std::shared_ptr<ModuleLibrary> module) {
    if (!module)
        return false;
    auto entry = reinterpret_cast<VstPluginMainProc>(module->symbol("VSTPluginMain"));
    if (entry == nullptr)
        entry = reinterpret_cast<VstPluginMainProc>(module->symbol("main"));
    if (entry == nullptr)
        return false;
    host.library = std::move(module);
    host.entryPoint = entry;
    AEffect* effect = nullptr;
    if (!guardedCall([&] { effect = entry(hostCallback); }))
        return false;
    return attachEffect(host, effect);
}

bool loadVst3(PluginHost&, const std::string&) { return false; }
