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

namespace {

bool openFromEntry(PluginHost& host, VstPluginMainProc entry,
                   std::shared_ptr<ModuleLibrary> library) {
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

PluginSource takeSource(PluginHost& host) {
    return PluginSource{host.entryPoint, host.library};
}

bool reopen(PluginHost& host, PluginSource source) {
    if (source.entryPoint == nullptr)
        return false;
    return openFromEntry(host, source.entryPoint, std::move(source.library));
}

bool loadVst3(PluginHost&, const std::string&) {
    return false;
}
