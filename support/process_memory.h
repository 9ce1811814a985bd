#pragma once

#include <cstdint>

namespace Vesk {

// Bytes of this process's memory resident now; 0 when the system does not say. Any thread.
uint64_t residentBytes();

} // namespace Vesk
