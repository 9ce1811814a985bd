#pragma once

#include "audio/fmt_converter.h"
#include "audio/vst_process_shared.h"

class PluginHost;
class PluginSlot;

// The processor the process and live commands drive: converts stream bytes (`bits` and
// `formatTag` as the front end read them) to T channel buffers, runs them through the plug-in
// in `plugin` at T precision, and writes the converted output to `output`. Owned by the running
// command; that command's thread only.
template <typename T> class vstProcess2 final : public vstProcessShared {
public:
    vstProcess2(PluginSlot& plugin, int32_t bits, int32_t formatTag, Vesk::streamOut* output);

    void setStreamFormat(StreamFormat& format) override;
    void processBytes(const uint8_t* data, uint64_t length) override;
    void renderTail(const tailSink& sink) override;
    uint32_t latencyFrames() override;
    void reopenPlugin() override;
    void applyState(const uint8_t* data, uint64_t length) override;

private:
    PluginHost& plugin() const;
    bool runBlock(uint32_t frames);

    PluginSlot& slot;
    FmtConverter2<T> converter;
    StreamFormat applied;
};

extern template class vstProcess2<float>;
extern template class vstProcess2<double>;
