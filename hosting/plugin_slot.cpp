#include "hosting/plugin_slot.h"

#include "hosting/load_failure.h"
#include "hosting/module/module_library.h"
#include "hosting/plugin_host.h"
#include "hosting/plugin_loading.h"

namespace {

std::unique_ptr<PluginHost> newHost(int32_t processLevel, int32_t sampleRate) {
    auto host = std::make_unique<PluginHost>();
    host->setProcessLevel(processLevel);
    if (sampleRate >= 1)
        host->setSampleRate(sampleRate);
    return host;
}

} // namespace

PluginSlot::PluginSlot() = default;
PluginSlot::~PluginSlot() = default;

Plugin& PluginSlot::operator*() const {
    return *host;
}

Plugin* PluginSlot::operator->() const {
    return host.get();
}

void PluginSlot::close() {
    const std::unique_ptr<PluginHost> closing = std::move(host);
    if (closing)
        closing->close();
}

void PluginSlot::adopt(std::unique_ptr<PluginHost> opened) {
    host = std::move(opened);
}

void PluginSlot::openVst3(const std::string& path, int32_t processLevel) {
    host.reset();
    auto fresh = newHost(processLevel, 0);
    loadVst3(*fresh, path);
    host = std::move(fresh);
}

void PluginSlot::openVst2(const std::string& path, int32_t processLevel, int32_t sampleRate) {
    host.reset();
    openVst2(ModuleLibrary::open(path), processLevel, sampleRate);
}

void PluginSlot::openVst2(std::shared_ptr<ModuleLibrary> module, int32_t processLevel,
                          int32_t sampleRate) {
    host.reset();
    auto fresh = newHost(processLevel, sampleRate);
    loadVst2(*fresh, std::move(module));
    host = std::move(fresh);
}

void PluginSlot::reopen(int32_t sampleRate) {
    if (!host)
        throw LoadFailure(LoadFailure::Stage::plugin);
    const int32_t processLevel = host->processLevel();
    PluginSource source = takeSource(*host);
    // The old instance goes first: a plug-in may not be opened twice at once.
    close();
    // Known before the new instance opens, as a session's rate would be.
    auto fresh = newHost(processLevel, sampleRate);
    ::reopen(*fresh, std::move(source));
    host = std::move(fresh);
}
