#pragma once

#include <cstdint>

namespace Vesk {
class streamIn;
}
class vstProcessShared;

// The two loops that move a data stream through a processor. Input comes from `input`; every
// reply and all processed audio go to the processor's own output stream (which may be null),
// so that audio and replies keep their order. `formatSet` says whether the command line's
// format was valid and accepted. Both run on the calling thread until the input ends.

// Bare interleaved samples until the input ends, then the tail. Throws "audio format not set"
// when no format was set, and whatever the processor throws.
void runPlainFraming(vstProcessShared& processor, Vesk::streamIn& input, bool formatSet);

// Commands with a length and a payload, each answered in order, until the input ends between
// chunks (or inside a header). Throws "truncated message: input ended inside a payload" (after
// flushing what was processed), "unknown command", "bad input", "audio format not set", "tail
// too long for one reply" and whatever the processor throws.
void runChunkedFraming(vstProcessShared& processor, Vesk::streamIn& input, bool formatSet);

// The live session's loop: audio and format messages only, never a reply. Audio before an
// accepted format (one that keeps the input channel count) is dropped. Returns when the input
// ends, also inside a payload; throws "bad input", "unknown command", user_abort when the
// thread is asked to stop, and whatever the processor throws.
void runLiveFraming(vstProcessShared& processor, Vesk::streamIn& input);
