#include "checks/check_common.h"
#include "checks/check_list.h"

#include <random>
#include <vector>

namespace {

struct Blocking {
    const char* name;
    std::vector<uint32_t> sizes;
};

std::vector<Blocking> blockingsFor(int level) {
    // Varying sizes, the same every run.
    std::mt19937 generator(7);
    std::uniform_int_distribution<uint32_t> size(1, Plugin::blockFrames);
    std::vector<uint32_t> varying(97);
    for (auto& frames : varying)
        frames = size(generator);
    std::vector<Blocking> blockings = {{"17", {17}}, {"64", {64}}, {"varying", varying}};
    if (level >= 2)
        blockings.insert(blockings.begin(), {"1", {1}});
    return blockings;
}

} // namespace

CheckResult runBlockSizeCheck(const CheckTarget& target) {
    const Audio reference = [&] {
        auto plugin = openConfigured(target);
        return plugin->process(noise(plugin->inputs(), measurementFrames(target.level), 3));
    }();
    nlohmann::json differences = nlohmann::json::object();
    CheckStatus worst = CheckStatus::pass;
    std::string worstText = "every block size gives the same output bit for bit";
    for (const Blocking& blocking : blockingsFor(target.level)) {
        auto plugin = openConfigured(target);
        const Audio output = plugin->process(
            noise(plugin->inputs(), measurementFrames(target.level), 3), blocking.sizes);
        const double db = differenceDb(reference, output);
        differences[blocking.name] = decibelFigure(db);
        const CheckStatus status = sameOutputStatus(db);
        if (status == CheckStatus::fail ||
            (status == CheckStatus::warn && worst == CheckStatus::pass)) {
            worst = status;
            worstText = std::string("blocks of ") + blocking.name + " frames differ from 512 by " +
                        decibelText(db);
        }
    }
    return verdict(worst, worstText, {{"difference_db", differences}});
}
