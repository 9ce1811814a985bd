#include "audio/framing.h"

#include "audio/stream_format_codec.h"
#include "audio/vst_process_shared.h"
#include "support/errors.h"
#include "support/stream.h"
#include "support/thread_abort.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <memory>
#include <span>
#include <stdexcept>
#include <vector>

namespace {

enum ChunkCommand : uint32_t { audio = 1, state = 2, format = 3, tail = 4, reopen = 5 };

constexpr uint32_t chunkHeaderBytes = 8;
// A length is only a claim: the payload buffer grows from this size as bytes really arrive.
constexpr uint64_t firstPayloadPiece = 1 << 16;
// Payloads nobody reads pass through a buffer of this size, whatever their length.
constexpr uint64_t discardPiece = 1 << 16;
// A tail up to this size waits in memory for its length reply; a longer one waits on disk.
constexpr size_t tailInMemory = 1 << 20;

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

// A format record the command line could not have given never reaches the plug-in: a rate of
// 2^31 or no channels at all breaks plug-ins and the frame arithmetic alike.
void checkFormatLimits(const StreamFormat& record) {
    if (!withinStreamLimits(record))
        throw std::runtime_error("unsupported stream format");
}

// The tail of a chunked reply: its length goes first, so the bytes wait here as they are
// rendered; in memory while short, in an anonymous temporary file beyond that.
class TailSpool {
  public:
    void append(const uint8_t* data, uint64_t length) {
        total += length;
        // Stops the rendering as soon as the reply could not say the length.
        if (total > std::numeric_limits<uint32_t>::max())
            throw std::runtime_error("tail too long for one reply");
        if (file == nullptr && memory.size() + length <= tailInMemory) {
            memory.insert(memory.end(), data, data + length);
            return;
        }
        if (file == nullptr) {
            file.reset(std::tmpfile());
            if (file == nullptr)
                throw Vesk::file_access_error();
            put(memory.data(), memory.size());
            std::vector<uint8_t>().swap(memory);
        }
        put(data, length);
    }

    uint64_t size() const { return total; }

    void copyTo(Vesk::streamOut& out, std::vector<uint8_t>& piece) {
        if (file == nullptr) {
            if (!memory.empty())
                out.write(memory.data(), memory.size());
            return;
        }
        std::rewind(file.get());
        piece.resize(discardPiece);
        for (uint64_t left = total; left > 0;) {
            const size_t wanted = static_cast<size_t>(std::min<uint64_t>(left, piece.size()));
            if (std::fread(piece.data(), 1, wanted, file.get()) != wanted)
                throw Vesk::file_access_error();
            out.write(piece.data(), wanted);
            left -= wanted;
        }
    }

  private:
    struct FileCloser {
        void operator()(std::FILE* f) const { std::fclose(f); }
    };

    void put(const uint8_t* data, uint64_t length) {
        if (length != 0 && std::fwrite(data, 1, length, file.get()) != length)
            throw Vesk::file_access_error();
    }

    std::vector<uint8_t> memory;
    std::unique_ptr<std::FILE, FileCloser> file;
    uint64_t total = 0;
};

// Reads one message's payload the way its command needs it: audio block by block straight into
// the processor, settings whole, everything else thrown away in fixed pieces. No reader holds
// more than one block or one piece, except for settings, which the plug-in takes whole.
class PayloadReader {
  public:
    explicit PayloadReader(Vesk::streamIn& input) : input(input) {}

    // False when the input ends first.
    bool discard(uint64_t length) {
        scratch.resize(discardPiece);
        while (length > 0) {
            const uint64_t wanted = std::min<uint64_t>(length, scratch.size());
            if (input.read(scratch.data(), wanted) < wanted)
                return false;
            length -= wanted;
        }
        return true;
    }

    bool whole(uint64_t length) { return readPayload(input, scratch, length); }
    const uint8_t* data() const { return scratch.data(); }
    std::vector<uint8_t>& buffer() { return scratch; }

    // Hands the audio to the processor in blocks as it arrives; false when the input ends
    // first (the whole blocks before that have been processed).
    bool audio(vstProcessShared& processor, uint64_t length) {
        const uint64_t block = processor.inputBlockBytes();
        if (block == 0 || processor.byteBufferSize() < block)
            return discard(length);
        while (length > 0) {
            const uint64_t piece = std::min(block, length);
            if (input.read(processor.byteBuffer(), piece) < piece)
                return false;
            processor.processBytes(processor.byteBuffer(), piece);
            length -= piece;
        }
        return true;
    }

  private:
    Vesk::streamIn& input;
    std::vector<uint8_t> scratch;
};

class ChunkedSession {
  public:
    ChunkedSession(vstProcessShared& processor, Vesk::streamIn& input, bool formatSet)
        : processor(processor), payload(input), formatSet(formatSet) {}

    // False when the input ended inside the payload. The command and length are judged before
    // any of the payload is read, so a bad message costs nothing however long it claims to be.
    bool run(uint32_t command, uint32_t length) {
        switch (command) {
        case audio:
            return processAudio(length);
        case state:
            if (!payload.whole(length))
                return false;
            if (length != 0)
                processor.applyState(payload.data(), length);
            return true;
        case format:
            return applyFormat(length);
        case tail:
            if (!formatSet)
                formatNotSet();
            if (!payload.discard(length))
                return false;
            sendTail();
            return true;
        case reopen:
            if (!payload.discard(length))
                return false;
            processor.reopenPlugin();
            return true;
        default:
            throw std::runtime_error("unknown command");
        }
    }

  private:
    bool replies() const { return processor.output() != nullptr && !processor.outputMuted(); }

    bool processAudio(uint64_t length) {
        if (!formatSet)
            formatNotSet();
        if (!payload.audio(processor, length))
            return false;
        if (replies())
            Vesk::writeInt32(*processor.output(), processor.latencyFrames());
        flushOutput(processor);
        return true;
    }

    bool applyFormat(uint64_t length) {
        if (length != streamFormatBytes)
            throw std::runtime_error("bad input");
        if (!payload.whole(length))
            return false;
        StreamFormat record = decodeStreamFormat(payload.data());
        checkFormatLimits(record);
        processor.setStreamFormat(record);
        // The parent learns of any change the plug-in made from the echo; no error here.
        if (replies()) {
            const auto bytes = encodeStreamFormat(record);
            processor.output()->write(bytes.data(), bytes.size());
        }
        formatSet = true;
        flushOutput(processor);
        return true;
    }

    void sendTail() {
        Vesk::streamOut* out = processor.output();
        if (out == nullptr)
            return;
        // Refused before rendering rather than after spooling gigabytes: the reply's length field
        // could not say it.
        if (processor.tailBytesAtMost() > std::numeric_limits<uint32_t>::max())
            throw std::runtime_error("tail too long for one reply");
        // Sent even when muted: the parent asked and waits for the length.
        TailSpool spool;
        processor.renderTail(
            [&spool](const uint8_t* data, uint64_t length) { spool.append(data, length); });
        Vesk::writeInt32(*out, static_cast<uint32_t>(spool.size()));
        spool.copyTo(*out, payload.buffer());
        out->flush();
    }

    vstProcessShared& processor;
    PayloadReader payload;
    bool formatSet;
};

// False when the input ended inside the header.
bool readHeader(Vesk::streamIn& input, uint32_t& command, uint32_t& length) {
    uint8_t header[chunkHeaderBytes];
    if (input.read(header, chunkHeaderBytes) < chunkHeaderBytes)
        return false;
    command = readLittle32(header);
    length = readLittle32(header + 4);
    return true;
}

} // namespace

void runPlainFraming(vstProcessShared& processor, Vesk::streamIn& input, bool formatSet) {
    if (!formatSet)
        formatNotSet();
    for (;;) {
        // A whole block at hand is converted where it lies; anything less is gathered as
        // readFrames does, so the blocks are the same either way.
        const uint32_t blockBytes = processor.inputBlockBytes();
        if (blockBytes != 0) {
            const std::span<const uint8_t> lent = input.lendSome();
            if (lent.size() >= blockBytes) {
                processor.processBytes(lent.data(), blockBytes);
                input.consumeLent(blockBytes);
                continue;
            }
        }
        const uint64_t got = readFrames(input, processor.byteBuffer(), processor.inputBlockBytes(),
                                        processor.inputFrameBytes());
        if (got == 0)
            break;
        processor.processBytes(processor.byteBuffer(), got);
    }
    Vesk::streamOut* out = processor.output();
    if (out == nullptr)
        return;
    // Each block of the tail leaves as it is rendered.
    const bool muted = processor.outputMuted();
    processor.renderTail([out, muted](const uint8_t* data, uint64_t length) {
        if (!muted)
            out->write(data, length);
    });
    out->flush();
}

void runChunkedFraming(vstProcessShared& processor, Vesk::streamIn& input, bool formatSet) {
    ChunkedSession session(processor, input, formatSet);
    uint32_t command = 0;
    uint32_t length = 0;
    for (;;) {
        if (!readHeader(input, command, length)) {
            flushOutput(processor);
            return;
        }
        if (!session.run(command, length)) {
            // What was processed before the cut is the parent's: it goes out before the line.
            flushOutput(processor);
            throw std::runtime_error("truncated message: input ended inside a payload");
        }
    }
}

void runLiveFraming(vstProcessShared& processor, Vesk::streamIn& input) {
    PayloadReader payload(input);
    uint32_t command = 0;
    uint32_t length = 0;
    bool ready = false;
    for (;;) {
        Vesk::throwIfStopRequested();
        if (!readHeader(input, command, length))
            return;
        if (command == audio) {
            Vesk::throwIfStopRequested();
            const bool complete =
                ready ? payload.audio(processor, length) : payload.discard(length);
            if (!complete)
                return;
        } else if (command == format) {
            if (length != streamFormatBytes)
                throw std::runtime_error("bad input");
            if (!payload.whole(length))
                return;
            Vesk::throwIfStopRequested();
            StreamFormat record = decodeStreamFormat(payload.data());
            checkFormatLimits(record);
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
