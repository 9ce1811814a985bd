#include "support/pipe_buffer.h"

namespace Vesk {

// macOS pipes size themselves (up to 64 KiB) and offer no call to ask for more.
void enlargePipeBuffer(int, size_t) {}

} // namespace Vesk
