#pragma once

#include "audio/stream_format_codec.h"
#include "hosting/plugin.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace Vesk {
class streamOut;
}

// What the framing loops drive: applies a format, runs whole frames through the plug-in, renders
// the tail and reports latency. The part that does not depend on the sample type lives here;
// the concrete processor adds the converter and the calls into the plug-in host. Owned by the
// running command; used from that command's thread only.
class vstProcessShared {
  public:
    // The block size handed to plug-ins, whatever the stream carries.
    static constexpr uint32_t blockFrames = Plugin::blockFrames;

    // `bits` and `formatTag` as read from the options (a tag below 1 counts as 1). `output` is
    // where processed audio goes; it belongs to the caller and may be null.
    vstProcessShared(int32_t bits, int32_t formatTag, Vesk::streamOut* output);
    virtual ~vstProcessShared() = default;
    vstProcessShared(const vstProcessShared&) = delete;
    vstProcessShared& operator=(const vstProcessShared&) = delete;

    // Applies `format`, which the plug-in may rewrite in place.
    virtual void setStreamFormat(StreamFormat& format) = 0;
    // Converts, processes and writes one run of whole input frames, at most one block.
    virtual void processBytes(const uint8_t* data, uint64_t length) = 0;
    // Receives each rendered block of the tail as output bytes, in order.
    using TailSink = std::function<void(const uint8_t* data, uint64_t length)>;
    // Renders the tail after the input ends, handing each block to `sink` as it is made.
    virtual void renderTail(const TailSink& sink) = 0;
    // The most bytes renderTail could hand over: the whole tail the plug-in reports, none of it
    // silent.
    virtual uint64_t tailBytesAtMost() = 0;
    virtual uint32_t latencyFrames() = 0;
    virtual void reopenPlugin() = 0;
    // Hands plug-in state bytes from the stream to the plug-in (never called with 0 bytes).
    virtual void applyState(const uint8_t* data, uint64_t length) = 0;

    int32_t bits() const { return sampleBits; }
    int32_t formatTag() const { return sampleFormatTag; }
    bool isFloatFormat() const { return sampleFormatTag == 3; }
    uint32_t inputFrameBytes() const { return inputFrameSize; }
    uint32_t outputFrameBytes() const { return outputFrameSize; }
    uint32_t inputBlockBytes() const { return inputBlockSize; }
    uint32_t outputBlockBytes() const { return outputBlockSize; }
    uint8_t* byteBuffer() { return bytes.data(); }
    uint64_t byteBufferSize() const { return bytes.size(); }
    Vesk::streamOut* output() const { return outputStream; }
    bool outputMuted() const { return muted; }
    void setOutputMuted(bool value) { muted = value; }

  protected:
    // Frame and block sizes for the applied channel counts, and a fresh zeroed byte buffer large
    // enough for a block either way.
    void applyFrameSizes(uint32_t inputChannels, uint32_t outputChannels);
    // Whole frames in a run of `length` bytes; throws "bad data alignment" for a partial frame.
    uint32_t framesIn(uint64_t length) const;
    // Writes `frames` output frames from the byte buffer unless there is no output or it is muted.
    void emitOutputFrames(uint32_t frames);

  private:
    int32_t sampleBits;
    int32_t sampleFormatTag;
    Vesk::streamOut* outputStream;
    std::vector<uint8_t> bytes;
    uint32_t inputFrameSize = 0;
    uint32_t outputFrameSize = 0;
    uint32_t inputBlockSize = 0;
    uint32_t outputBlockSize = 0;
    bool muted = false;
};
