#pragma once

#include "audio/fmt_converter.h"
#include "audio/vst_process_shared.h"

#include <optional>
#include <vector>

struct VSTGlobals;
class PluginHost;

// The processor the process and live commands drive: converts stream bytes to T channel
// buffers, runs them through the plug-in held by the program state at T precision, and writes
// the converted output. Owned by the running command; that command's thread only.
template <typename T> class vstProcess2 final : public vstProcessShared {
  public:
    explicit vstProcess2(VSTGlobals& globals);

    void setStreamFormat(StreamFormat& format) override;
    void processBytes(const uint8_t* data, uint64_t length) override;
    void renderTail(const tailSink& sink) override;
    uint32_t latencyFrames() override;
    void reopenPlugin() override;
    void applyState(const uint8_t* data, uint64_t length) override;

    // Whether a VST 2 plug-in that has not processed audio yet may be opened afresh when a
    // format brings a rate it could not learn while opening (some read the rate only then).
    // Not while an editor shows the instance.
    void setReopenForRate(bool allowed) { reopenForRate = allowed; }

  private:
    PluginHost& plugin() const;
    bool runBlock(uint32_t frames);
    void openFreshInstance(int32_t rate);
    void reopenAtRate(uint32_t rate);

    VSTGlobals& globals;
    FmtConverter2<T> converter;
    std::optional<StreamFormat> requested; // as the parent asked, for a reopened plug-in
    StreamFormat applied;
    bool reopenForRate = true;
    bool audioSinceOpen = false;
    // What settings the instance got since it opened, for one opened afresh before any audio:
    // the settings file unless a reopen message dropped it, and state messages.
    bool settingsFileInForce = true;
    std::vector<std::vector<uint8_t>> statesSinceOpen;
};

extern template class vstProcess2<float>;
extern template class vstProcess2<double>;
