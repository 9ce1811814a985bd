#include "scan/scan_child.h"

#include "hosting/load_failure.h"
#include "hosting/module/module_library.h"
#include "hosting/plugin_loading.h"
#include "hosting/plugin_stage.h"
#include "hosting/vst3/vst3_module.h"
#include "scan/plugin_description.h"
#include "support/message_text.h"

namespace scan {

namespace {

ChildAnswer answer(const char* status, std::string message) {
    return {{{"status", status}}, Vesk::escapedForMessage(message)};
}

// The system loader's reason names the file and what is wrong with it; ours only the file.
std::string moduleFailureText(const LoadFailure& failure, const std::string& fallback) {
    return failure.what()[0] != '\0' ? failure.what() : fallback;
}

ChildAnswer examineVst2(PluginSlot& slot, const std::string& path) {
    std::shared_ptr<ModuleLibrary> module;
    try {
        module = ModuleLibrary::open(path);
    } catch (const LoadFailure& failure) {
        return answer("failed", moduleFailureText(failure, "Could not load VST bundle: " + path));
    }
    // Without an entry function the file is some other library, not a plug-in that refused.
    if (module->symbol("VSTPluginMain") == nullptr && module->symbol("main") == nullptr)
        return answer("failed", "Could not load VST: " + path);
    auto host = std::make_unique<PluginHost>();
    try {
        loadVst2(*host, std::move(module));
    } catch (const LoadFailure&) {
        return answer("refused", "Could not load VST: " + path);
    }
    slot = std::move(host);
    return {{{"status", "ok"}}, ""};
}

ChildAnswer examineVst3(PluginSlot& slot, const std::string& path, size_t effectClass) {
    std::shared_ptr<Vst3Module> module;
    try {
        module = Vst3Module::load(path);
    } catch (const LoadFailure& failure) {
        return answer("failed", moduleFailureText(failure, "Could not load VST 3 module: " + path));
    }
    const size_t classes = vst3EffectClasses(*module).size();
    if (classes == 0)
        return answer("failed", "No effect class in VST 3 module: " + path);
    auto host = std::make_unique<PluginHost>();
    ChildAnswer result{{{"status", "ok"}}, ""};
    try {
        openVst3EffectClass(*host, std::move(module), effectClass);
        slot = std::move(host);
    } catch (const LoadFailure&) {
        result = answer("refused", "Could not load VST: " + path);
    }
    result.answer["classes"] = classes;
    return result;
}

} // namespace

ChildAnswer examinePlugin(PluginSlot& slot, const std::string& path, PluginKind kind,
                          size_t effectClass) {
    ChildAnswer result;
    {
        const PluginStageScope stage(PluginStage::loading);
        result = kind == PluginKind::vst3 ? examineVst3(slot, path, effectClass)
                                          : examineVst2(slot, path);
    }
    if (slot) {
        const PluginStageScope stage(PluginStage::opening);
        result.answer.update(describePlugin(*slot));
    }
    return result;
}

} // namespace scan
