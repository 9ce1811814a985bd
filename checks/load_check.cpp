#include "checks/check_common.h"
#include "checks/check_list.h"

#include "support/process_memory.h"

namespace {

constexpr int cycles = 10;
// Memory a plug-in may keep after its first cycle (caches, allocator slack) before it counts as
// held by every cycle.
constexpr double mostGrowthMiB = 4.0;

} // namespace

CheckResult runLoadCheck(const CheckTarget& target) {
    uint64_t afterFirst = 0;
    for (int cycle = 1; cycle <= cycles; ++cycle) {
        {
            auto plugin = openConfigured(target);
            plugin->process(noise(plugin->inputs(), 4 * Plugin::blockFrames, cycle));
        }
        if (cycle == 1)
            afterFirst = Vesk::residentBytes();
    }
    const double growthMiB =
        (static_cast<double>(Vesk::residentBytes()) - static_cast<double>(afterFirst)) / 1048576.0;
    nlohmann::json figures = {{"cycles", cycles}, {"memory_growth_mib", growthMiB}};
    if (afterFirst != 0 && growthMiB > mostGrowthMiB)
        return verdict(CheckStatus::fail,
                       "memory held grew by " + std::to_string(static_cast<int>(growthMiB)) +
                           " MiB over " + std::to_string(cycles - 1) + " more cycles",
                       figures);
    return verdict(CheckStatus::pass, std::to_string(cycles) + " cycles", figures);
}
