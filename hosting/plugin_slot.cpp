#include "hosting/plugin_slot.h"

#include "hosting/load_failure.h"
#include "hosting/plugin_loading.h"

void PluginSlot::close() {
    const std::unique_ptr<PluginHost> closing = std::move(host);
    if (closing)
        closing->close();
}

void PluginSlot::reopen(int32_t sampleRate) {
    if (!host)
        throw LoadFailure(LoadFailure::Stage::plugin);
    const int32_t processLevel = host->processLevel();
    PluginSource source = takeSource(*host);
    // The old instance goes first: a plug-in may not be opened twice at once.
    close();
    auto fresh = std::make_unique<PluginHost>();
    fresh->setProcessLevel(processLevel);
    // Known before the new instance opens, as a session's rate would be.
    fresh->setSampleRate(sampleRate);
    ::reopen(*fresh, std::move(source));
    host = std::move(fresh);
}
