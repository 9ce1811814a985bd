#pragma once

#include "audio/fmt_converter.h"
#include "audio/settings_spool.h"
#include "audio/vst_process_shared.h"

#include <functional>
#include <optional>

class Plugin;
class PluginSlot;

// The processor the process and live commands drive: converts stream bytes (`bits` and
// `formatTag` as the front end read them) to T channel buffers, runs them through the plug-in
// in `plugin` at T precision, and writes the converted output to `output`. `giveSettingsFile`
// hands the settings file to an instance opened afresh. Owned by the running command; that
// command's thread only.
template <typename T> class vstProcess2 final : public vstProcessShared {
  public:
    vstProcess2(PluginSlot& plugin, int32_t bits, int32_t formatTag, Vesk::streamOut* output,
                std::function<void()> giveSettingsFile);

    void setStreamFormat(StreamFormat& format) override;
    void processBytes(const uint8_t* data, uint64_t length) override;
    void renderTail(const TailSink& sink) override;
    uint64_t tailBytesAtMost() override;
    uint32_t latencyFrames() override;
    void reopenPlugin() override;
    void applyState(const uint8_t* data, uint64_t length) override;

    // Whether a VST 2 plug-in that has not processed audio yet may be opened afresh when a
    // format brings a rate it could not learn while opening (some read the rate only then).
    // Not while an editor shows the instance.
    void setReopenForRate(bool allowed) { reopenForRate = allowed; }

  private:
    Plugin& plugin() const;
    bool runBlock(uint32_t frames);
    // Frames of tail to render, as the plug-in reports it; 0 for none.
    int64_t tailFrames() const;
    void openFreshInstance(int32_t rate);
    void reopenAtRate(uint32_t rate);

    PluginSlot& slot;
    std::function<void()> giveSettingsFile;
    FmtConverter2<T> converter;
    std::optional<StreamFormat> requested; // as the parent asked, for a reopened plug-in
    StreamFormat applied;
    bool reopenForRate = true;
    bool audioSinceOpen = false;
    // What settings the instance got since it opened, for one opened afresh before any audio:
    // the settings file unless a reopen message dropped it, and state messages.
    bool settingsFileInForce = true;
    SettingsSpool statesSinceOpen;
};

extern template class vstProcess2<float>;
extern template class vstProcess2<double>;
