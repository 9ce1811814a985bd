#include "checks/check_common.h"
#include "checks/check_list.h"

CheckResult runDeterminismCheck(const CheckTarget& target) {
    auto run = [&] {
        auto plugin = openConfigured(target);
        return plugin->process(noise(plugin->inputs(), measurementFrames(target.level), 5));
    };
    const Audio first = run();
    const Audio second = run();
    const double db = differenceDb(first, second);
    const nlohmann::json figures = {{"difference_db", decibelFigure(db)}};
    if (sameOutputStatus(db) == CheckStatus::pass)
        return verdict(CheckStatus::pass, "two fresh instances agree bit for bit", figures);
    return verdict(CheckStatus::fail, "two fresh instances differ by " + decibelText(db), figures);
}
