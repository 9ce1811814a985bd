#include "checks/check_common.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace {

constexpr double closeEnoughDb = -120.0;

} // namespace

CheckResult verdict(CheckStatus status, std::string message, nlohmann::json figures) {
    return CheckResult{status, std::move(message), std::move(figures)};
}

uint32_t measurementFrames(int level, uint32_t rate) {
    const double seconds = level <= 1 ? 0.5 : level == 2 ? 2.0 : 5.0;
    return static_cast<uint32_t>(seconds * rate);
}

std::unique_ptr<PluginUnderTest> openConfigured(const CheckTarget& target, uint32_t rate,
                                                uint32_t channels) {
    auto plugin = std::make_unique<PluginUnderTest>(target, rate);
    if (!plugin->configure(rate, channels, channels))
        throw std::runtime_error("the plug-in refused " + std::to_string(rate) + " Hz with " +
                                 std::to_string(channels) + " channels");
    return plugin;
}

nlohmann::json decibelFigure(double db) {
    if (std::isinf(db) && db < 0)
        return nullptr;
    return std::isinf(db) ? nlohmann::json("different shape")
                          : nlohmann::json(std::round(db * 10) / 10);
}

CheckStatus sameOutputStatus(double differenceDb) {
    if (std::isinf(differenceDb) && differenceDb < 0)
        return CheckStatus::pass;
    return differenceDb <= closeEnoughDb ? CheckStatus::warn : CheckStatus::fail;
}

std::string decibelText(double db) {
    if (std::isinf(db))
        return db < 0 ? "bit-exact" : "different lengths or channels";
    char text[32];
    std::snprintf(text, sizeof text, "%.1f dB", db);
    return text;
}

std::string lastLine(std::string text) {
    text.erase(text.find_last_not_of("\r\n") + 1);
    text.erase(0, text.find_last_of('\n') + 1);
    return text;
}
