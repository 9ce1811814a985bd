#pragma once

#include "hosting/plugin_kind_ops.h"

// A plug-in that is a VST 2.4 record of its own: settings are its bank chunk when it keeps one,
// otherwise one little-endian float per parameter; parameters are numbered by index; its editor
// needs nothing but idling; it may learn the rate only while it opens.
class Vst2Kind final : public PluginKindOps {
  public:
    PluginKind kind() const override { return PluginKind::vst2; }
    PluginIdentity identity(const PluginHost& host) const override;
    uint32_t parameterNumber(int32_t index) const override { return static_cast<uint32_t>(index); }
    void loadState(PluginHost& host, std::span<const uint8_t> bytes) override;
    std::vector<uint8_t> saveState(PluginHost& host) override;
    bool learnsRateOnlyWhenOpening() const override { return true; }
    void watchEditorEvents(PollRunLoop&, std::function<void()>) const override {}
};
