#pragma once

#include "hosting/plugin_kind_ops.h"
#include "hosting/vst3/vst3_module.h"

namespace vst3 {
class Vst3Bridge;
}

// A VST 3 plug-in behind the bridge: settings are preset images (id/value records too, on the
// way in), parameters are numbered by their own ids, its view registers descriptors and timers
// of its own, and it takes a new rate whenever it is inactive. The bridge belongs to the record
// (closing it deletes the bridge), so this is used only while the record is open.
class Vst3Kind final : public PluginKindOps {
  public:
    Vst3Kind(vst3::Vst3Bridge& bridge, Vst3ClassInfo classInfo)
        : bridge(bridge), classInfo(std::move(classInfo)) {}

    PluginKind kind() const override { return PluginKind::vst3; }
    PluginIdentity identity(const PluginHost& host) const override;
    uint32_t parameterNumber(int32_t index) const override;
    void loadState(PluginHost& host, std::span<const uint8_t> bytes) override;
    std::vector<uint8_t> saveState(PluginHost& host) override;
    bool learnsRateOnlyWhenOpening() const override { return false; }
    void watchEditorEvents(PollRunLoop& loop, std::function<void()> idle) const override;

  private:
    vst3::Vst3Bridge& bridge;
    Vst3ClassInfo classInfo;
};
