#include "support/process_memory.h"

#include <cstdio>
#include <unistd.h>

namespace Vesk {

uint64_t residentBytes() {
    // The second field of statm counts resident pages.
    std::FILE* statm = std::fopen("/proc/self/statm", "re");
    if (statm == nullptr)
        return 0;
    unsigned long long size = 0;
    unsigned long long resident = 0;
    const int read = std::fscanf(statm, "%llu %llu", &size, &resident);
    std::fclose(statm);
    if (read != 2)
        return 0;
    return resident * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
}

} // namespace Vesk
