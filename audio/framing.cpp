#include "audio/framing.h"

#include "audio/stream_format.h"
#include "audio/vst_process_shared.h"
#include "support/errors.h"
#include "support/stream.h"
#include "support/thread_abort.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <vector>

namespace {

enum ChunkCommand : uint32_t { audio = 1, state = 2, format = 3, tail = 4, reopen = 5 };

constexpr uint32_t chunkHeaderBytes = 8;
// A length is only a claim: the payload buffer grows from this size as bytes really arrive.
constexpr uint64_t firstPayloadPiece = 1 << 16;

[[noreturn]] void formatNotSet() {
    throw std::runtime_error("audio format not set");
}

uint32_t readLittle32(const uint8_t* bytes) {
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 |
           uint32_t{bytes[3]} << 24;
}

void flushOutput(vstProcessShared& processor) {
    if (processor.output() != nullptr)
        processor.output()->flush();
}

// Up to one block of whole frames: what the source has at hand, completed to a frame boundary.
// Taking what is at hand lets a parent that waits for output before writing more go on. Only
// an input that ends inside a frame leaves a partial frame, which processing then refuses.
uint64_t readFrames(Vesk::streamIn& input, uint8_t* buffer, uint32_t blockBytes,
                    uint32_t frameBytes) {
    uint64_t got = input.readSome(buffer, blockBytes);
    if (got == 0 || frameBytes == 0)
        return got;
    const uint64_t partial = got % frameBytes;
    if (partial != 0)
        got += input.read(buffer + got, frameBytes - partial);
    return got;
}

// False when the input ends first.
bool readPayload(Vesk::streamIn& input, std::vector<uint8_t>& payload, uint64_t length) {
    uint64_t got = 0;
    while (got < length) {
        const uint64_t target = std::min(length, std::max(firstPayloadPiece, got * 2));
        if (payload.size() < target)
            payload.resize(target);
        const uint64_t wanted = target - got;
        const uint64_t arrived = input.read(payload.data() + got, wanted);
        got += arrived;
        if (arrived < wanted)
            return false;
    }
    return true;
}

void processPayload(vstProcessShared& processor, const uint8_t* data, uint64_t length) {
    const uint64_t block = processor.inputBlockBytes();
    uint64_t offset = 0;
    do {
        const uint64_t piece = block != 0 ? std::min(block, length - offset) : length - offset;
        if (piece > 0)
            processor.processBytes(data + offset, piece);
        offset += piece;
    } while (offset < length);
}

class ChunkedSession {
  public:
    ChunkedSession(vstProcessShared& processor, bool formatSet)
        : processor(processor), formatSet(formatSet) {}

    void run(uint32_t command, const uint8_t* payload, uint64_t length) {
        switch (command) {
        case audio:
            processAudio(payload, length);
            break;
        case state:
            if (length != 0)
                processor.applyState(payload, length);
            break;
        case format:
            applyFormat(payload, length);
            break;
        case tail:
            sendTail();
            break;
        case reopen:
            processor.reopenPlugin();
            break;
        default:
            throw std::runtime_error("unknown command");
        }
    }

  private:
    bool replies() const { return processor.output() != nullptr && !processor.outputMuted(); }

    void processAudio(const uint8_t* payload, uint64_t length) {
        if (!formatSet)
            formatNotSet();
        processPayload(processor, payload, length);
        if (replies())
            Vesk::writeInt32(*processor.output(), processor.latencyFrames());
        flushOutput(processor);
    }

    void applyFormat(const uint8_t* payload, uint64_t length) {
        if (length != streamFormatBytes)
            throw std::runtime_error("bad input");
        StreamFormat record = decodeStreamFormat(payload);
        processor.setStreamFormat(record);
        // The parent learns of any change the plug-in made from the echo; no error here.
        if (replies()) {
            const auto bytes = encodeStreamFormat(record);
            processor.output()->write(bytes.data(), bytes.size());
        }
        formatSet = true;
        flushOutput(processor);
    }

    void sendTail() {
        if (!formatSet)
            formatNotSet();
        Vesk::streamOut* out = processor.output();
        if (out == nullptr)
            return;
        // Sent even when muted: the parent asked and waits for the length.
        const std::vector<uint8_t> bytes = processor.renderTail();
        if (bytes.size() > std::numeric_limits<uint32_t>::max())
            throw Vesk::invalid_input();
        Vesk::writeInt32(*out, static_cast<uint32_t>(bytes.size()));
        if (!bytes.empty())
            out->write(bytes.data(), bytes.size());
        out->flush();
    }

    vstProcessShared& processor;
    bool formatSet;
};

} // namespace

void runPlainFraming(vstProcessShared& processor, Vesk::streamIn& input, bool formatSet) {
    if (!formatSet)
        formatNotSet();
    for (;;) {
        const uint64_t got = readFrames(input, processor.byteBuffer(), processor.inputBlockBytes(),
                                        processor.inputFrameBytes());
        if (got == 0)
            break;
        processor.processBytes(processor.byteBuffer(), got);
    }
    if (processor.output() == nullptr)
        return;
    const std::vector<uint8_t> tail = processor.renderTail();
    if (!tail.empty() && !processor.outputMuted())
        processor.output()->write(tail.data(), tail.size());
    processor.output()->flush();
}

namespace {

enum class ChunkRead { complete, inputEnded, payloadCut };

// One message: its header, then its whole payload (the buffer grows as bytes arrive).
ChunkRead readChunk(Vesk::streamIn& input, std::vector<uint8_t>& payload, uint32_t& command,
                    uint32_t& length) {
    uint8_t header[chunkHeaderBytes];
    if (input.read(header, chunkHeaderBytes) < chunkHeaderBytes)
        return ChunkRead::inputEnded;
    command = readLittle32(header);
    length = readLittle32(header + 4);
    return readPayload(input, payload, length) ? ChunkRead::complete : ChunkRead::payloadCut;
}

} // namespace

bool runChunkedFraming(vstProcessShared& processor, Vesk::streamIn& input, bool formatSet) {
    ChunkedSession session(processor, formatSet);
    std::vector<uint8_t> payload;
    uint32_t command = 0;
    uint32_t length = 0;
    for (;;) {
        const ChunkRead read = readChunk(input, payload, command, length);
        if (read != ChunkRead::complete) {
            flushOutput(processor);
            return read == ChunkRead::inputEnded;
        }
        session.run(command, payload.data(), length);
    }
}

void runLiveFraming(vstProcessShared& processor, Vesk::streamIn& input) {
    std::vector<uint8_t> payload;
    uint32_t command = 0;
    uint32_t length = 0;
    bool ready = false;
    for (;;) {
        Vesk::throwIfStopRequested();
        if (readChunk(input, payload, command, length) != ChunkRead::complete)
            return;
        Vesk::throwIfStopRequested();
        if (command == audio) {
            if (ready)
                processPayload(processor, payload.data(), length);
        } else if (command == format) {
            if (length != streamFormatBytes)
                throw std::runtime_error("bad input");
            StreamFormat record = decodeStreamFormat(payload.data());
            const uint32_t requestedInputs = record.inputChannels;
            processor.setStreamFormat(record);
            // A changed rate or output count is the plug-in's choice; fewer inputs than the
            // parent sends would misread every frame.
            ready = record.inputChannels == requestedInputs;
        } else {
            throw std::runtime_error("unknown command");
        }
    }
}
