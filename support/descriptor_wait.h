#pragma once

// Readiness waits on one descriptor, abortable through the calling thread's aborter.
namespace Vesk {

enum class waitDirection { read, write };

// Blocks until `fd` is ready in `direction`. Negative seconds wait without limit, 0 polls once.
// Throws network_error_timeout, function_interrupted, network_error, file_access_error (POLLERR)
// or user_abort.
void waitForDescriptor(int fd, waitDirection direction, double timeoutSeconds);

// Whether `fd` is ready now.
bool descriptorReady(int fd, waitDirection direction);

// Milliseconds for poll(): -1 for no limit, else floor(seconds * 1000 + 0.5), at least 1 unless 0.
int pollMilliseconds(double timeoutSeconds);

} // namespace Vesk
