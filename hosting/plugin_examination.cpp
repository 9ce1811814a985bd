#include "hosting/plugin_examination.h"

#include "hosting/load_failure.h"
#include "hosting/module/module_library.h"
#include "hosting/plugin_host.h"
#include "hosting/plugin_loading.h"
#include "hosting/plugin_slot.h"
#include "hosting/vst3/vst3_module.h"

namespace {

Examination notAPlugin(std::string message) {
    return {Examination::Outcome::notAPlugin, std::move(message), 0};
}

// The system loader's reason names the file and what is wrong with it; ours only the file.
std::string moduleFailureText(const LoadFailure& failure, const std::string& fallback) {
    return failure.what()[0] != '\0' ? failure.what() : fallback;
}

Examination examineVst2(PluginSlot& slot, const std::string& path) {
    std::shared_ptr<ModuleLibrary> module;
    try {
        module = ModuleLibrary::open(path);
    } catch (const LoadFailure& failure) {
        return notAPlugin(moduleFailureText(failure, "Could not load VST bundle: " + path));
    }
    // Without an entry function the file is some other library, not a plug-in that refused.
    if (module->symbol("VSTPluginMain") == nullptr && module->symbol("main") == nullptr)
        return notAPlugin("Could not load VST: " + path);
    auto host = std::make_unique<PluginHost>();
    try {
        loadVst2(*host, std::move(module));
    } catch (const LoadFailure&) {
        return {Examination::Outcome::refused, "Could not load VST: " + path, 1};
    }
    slot.adopt(std::move(host));
    return {Examination::Outcome::opened, "", 1};
}

Examination examineVst3(PluginSlot& slot, const std::string& path, size_t effectClass) {
    std::shared_ptr<Vst3Module> module;
    try {
        module = Vst3Module::load(path);
    } catch (const LoadFailure& failure) {
        return notAPlugin(moduleFailureText(failure, "Could not load VST 3 module: " + path));
    }
    const size_t classes = vst3EffectClasses(*module).size();
    if (classes == 0)
        return notAPlugin("No effect class in VST 3 module: " + path);
    auto host = std::make_unique<PluginHost>();
    try {
        openVst3EffectClass(*host, std::move(module), effectClass);
    } catch (const LoadFailure&) {
        return {Examination::Outcome::refused, "Could not load VST: " + path, classes};
    }
    slot.adopt(std::move(host));
    return {Examination::Outcome::opened, "", classes};
}

} // namespace

Examination examinePluginFile(PluginSlot& slot, const std::string& path, PluginKind kind,
                              size_t effectClass) {
    return kind == PluginKind::vst3 ? examineVst3(slot, path, effectClass)
                                    : examineVst2(slot, path);
}
