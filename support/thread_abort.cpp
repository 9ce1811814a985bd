#include "support/thread_abort.h"

namespace Vesk {

// Threads get aborters with the thread library; until one is installed nothing aborts a wait.
int currentAbortDescriptor() noexcept { return -1; }

} // namespace Vesk
