#include "audio/vst_process_shared.h"

#include "support/stream.h"

#include <algorithm>
#include <stdexcept>

vstProcessShared::vstProcessShared(int32_t bits, int32_t formatTag, Vesk::streamOut* output)
    : sampleBits(bits), sampleFormatTag(std::max(formatTag, 1)), outputStream(output) {}

void vstProcessShared::applyFrameSizes(uint32_t inputChannels, uint32_t outputChannels) {
    const uint32_t sampleBytes = static_cast<uint32_t>(std::max(sampleBits, 0)) / 8;
    inputFrameSize = sampleBytes * inputChannels;
    outputFrameSize = sampleBytes * outputChannels;
    inputBlockSize = inputFrameSize * blockFrames;
    outputBlockSize = outputFrameSize * blockFrames;
    bytes.assign(std::max(inputBlockSize, outputBlockSize), 0);
}

uint32_t vstProcessShared::framesIn(uint64_t length) const {
    if (inputFrameSize == 0)
        return 0;
    if (length % inputFrameSize != 0)
        throw std::runtime_error("bad data alignment");
    return static_cast<uint32_t>(length / inputFrameSize);
}

void vstProcessShared::emitOutputFrames(uint32_t frames) {
    if (outputStream != nullptr && !muted)
        outputStream->write(bytes.data(), uint64_t{outputFrameSize} * frames);
}
