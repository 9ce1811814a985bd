#pragma once

#include <cstddef>

namespace Vesk {

// When `fd` is a pipe, asks the system to let it hold `bytes` (fewer system calls and task
// switches per byte on both ends). Anything else, or a size the system does not allow, leaves
// the descriptor as it was: a small pipe is slower, not wrong.
void enlargePipeBuffer(int fd, size_t bytes);

} // namespace Vesk
