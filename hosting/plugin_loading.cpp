#include "hosting/plugin_loading.h"

#include "hosting/guarded_call.h"
#include "hosting/host_callback.h"
#include "hosting/load_failure.h"
#include "hosting/plugin_host.h"
#include "hosting/plugin_stage.h"
#include "hosting/process_defaults.h"
#include "hosting/vst2/vst2_kind.h"
#include "hosting/vst3/vst3_bridge.h"
#include "hosting/vst3/vst3_kind.h"
#include "hosting/vst3/vst3_module.h"

#include <cstdlib>
#include <cstring>

void restoreProcessDefaults() {
    std::srand(1);
}

bool attachEffect(PluginHost& host, AEffect* effect) {
    if (effect == nullptr || effect->magic != kEffectMagic)
        return false;
    if (effect->flags & effFlagsIsSynth) {
        // Created, so it is closed before its code can go: an instrument may have threads of
        // its own running by now.
        const PluginStageScope stage(PluginStage::closing);
        if (effect->dispatcher != nullptr)
            guardedCall([&] { effect->dispatcher(effect, effClose, 0, 0, nullptr, 0.0f); });
        return false;
    }
    host.adoptEffect(effect);
    // Absurd pin counts are refused before any call could walk them.
    if (!host.pinCountsWithinLimits())
        return false;
    const PluginStageScope stage(PluginStage::opening);
    const bool opened = guardedCall([&] {
        host.dispatch(effOpen);
        if (const int32_t rate = host.sampleRate(); rate != 0)
            host.dispatch(effSetSampleRate, 0, 0, nullptr, static_cast<float>(rate));
        host.dispatch(effSetBlockSize, 0, Plugin::blockFrames);
    });
    if (!opened)
        return false;
    host.resume();
    return true;
}

namespace {

void openFromEntry(PluginHost& host, VstPluginMainProc entry,
                   std::shared_ptr<ModuleLibrary> library) {
    host.adoptVst2Code(entry, std::move(library));
    host.adoptKind(std::make_unique<Vst2Kind>());
    AEffect* effect = nullptr;
    if (!guardedCall([&] { effect = entry(hostCallback); }) || !attachEffect(host, effect))
        throw LoadFailure(LoadFailure::Stage::plugin);
}

} // namespace

void loadVst2(PluginHost& host, std::shared_ptr<ModuleLibrary> module) {
    if (!module)
        throw LoadFailure(LoadFailure::Stage::module);
    auto entry = reinterpret_cast<VstPluginMainProc>(module->symbol("VSTPluginMain"));
    if (entry == nullptr)
        entry = reinterpret_cast<VstPluginMainProc>(module->symbol("main"));
    if (entry == nullptr)
        throw LoadFailure(LoadFailure::Stage::plugin);
    openFromEntry(host, entry, std::move(module));
}

namespace {

// Makes and opens class `info` of the host's module. False when the class cannot be made; throws
// LoadFailure when it was made but refused.
bool openVst3Class(PluginHost& host, const Vst3ClassInfo& info) {
    Steinberg::TUID classId;
    std::memcpy(classId, info.classId.data(), sizeof classId);
    auto* bridge =
        vst3::Vst3Bridge::create(&host.vst3Module()->factory(), classId, 0, hostCallback);
    if (bridge == nullptr)
        return false;
    host.adoptKind(std::make_unique<Vst3Kind>(*bridge, info));
    AEffect* effect = bridge->getAEffect();
    if (attachEffect(host, effect))
        return true;
    // A record refused before the host took it has been closed, which deleted the bridge.
    if (host.effect() != effect)
        host.adoptKind(nullptr);
    throw LoadFailure(LoadFailure::Stage::plugin);
}

// Factory order decides: the first audio module class that can be bridged is the plug-in, so a
// controller class listed first is passed over.
void openVst3Module(PluginHost& host, std::shared_ptr<Vst3Module> module) {
    host.adoptVst3Module(std::move(module));
    for (const auto& info : host.vst3Module()->classes()) {
        if (info.isAudioModule() && openVst3Class(host, info))
            return;
    }
    throw LoadFailure(LoadFailure::Stage::plugin);
}

} // namespace

std::vector<const Vst3ClassInfo*> vst3EffectClasses(const Vst3Module& module) {
    std::vector<const Vst3ClassInfo*> effects;
    for (const auto& info : module.classes()) {
        if (info.isAudioModule())
            effects.push_back(&info);
    }
    return effects;
}

void openVst3EffectClass(PluginHost& host, std::shared_ptr<Vst3Module> module, size_t index) {
    host.adoptVst3Module(std::move(module));
    const auto effects = vst3EffectClasses(*host.vst3Module());
    if (index >= effects.size() || !openVst3Class(host, *effects[index]))
        throw LoadFailure(LoadFailure::Stage::plugin);
}

void loadVst3(PluginHost& host, const std::string& path) {
    openVst3Module(host, Vst3Module::load(path));
}

PluginSource takeSource(PluginHost& host) {
    return PluginSource{host.entryPoint(), host.library(), host.vst3Module()};
}

void reopen(PluginHost& host, PluginSource source) {
    if (source.entryPoint != nullptr)
        openFromEntry(host, source.entryPoint, std::move(source.library));
    else if (source.module)
        openVst3Module(host, std::move(source.module));
    else
        throw LoadFailure(LoadFailure::Stage::plugin);
}
