#pragma once

#include "audio/fmt_converter.h"
#include "audio/vst_process_shared.h"

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

private:
    PluginHost& plugin() const;
    bool runBlock(uint32_t frames);

    VSTGlobals& globals;
    FmtConverter2<T> converter;
    StreamFormat applied;
};

extern template class vstProcess2<float>;
extern template class vstProcess2<double>;
