#include "checks/check_common.h"
#include "checks/check_list.h"

#include <cmath>
#include <vector>

namespace {

struct Setting {
    uint32_t rate;
    uint32_t channels;
};

std::vector<Setting> settingsFor(int level) {
    std::vector<Setting> settings = {{44100, 2}, {48000, 1}};
    if (level >= 2)
        settings.push_back({96000, 2});
    if (level >= 3)
        settings.insert(settings.end(), {{22050, 2}, {192000, 2}, {44100, 6}});
    return settings;
}

// Output after silent input this far above zero is sound the plug-in made up.
constexpr double audible = 1e-4; // -80 dB full scale

std::string formatText(const Setting& setting) {
    return std::to_string(setting.rate) + " Hz, " + std::to_string(setting.channels) + " channels";
}

} // namespace

CheckResult runProcessCheck(const CheckTarget& target) {
    nlohmann::json tried = nlohmann::json::array();
    for (const Setting& setting : settingsFor(target.level)) {
        PluginUnderTest plugin(target, setting.rate);
        if (!plugin.configure(setting.rate, setting.channels, setting.channels)) {
            tried.push_back({{"format", formatText(setting)}, {"result", "refused"}});
            continue;
        }
        const uint32_t frames = setting.rate / 2;
        const uint32_t inputs = plugin.inputs();
        // Silence first, from a fresh start: whatever comes out is the plug-in's own.
        const Audio quiet = plugin.process(silence(inputs, frames));
        const Audio signal =
            joined(joined(noise(inputs, frames, 1), impulses(inputs, frames, setting.rate / 10)),
                   fullScaleSine(inputs, frames, 1000.0 / setting.rate));
        const Audio loud = plugin.process(signal);
        const std::string where = " at " + formatText(setting);
        if (hasNonFinite(quiet) || hasNonFinite(loud))
            return verdict(CheckStatus::fail, "NaN or infinity in the output" + where,
                           {{"formats", tried}});
        if (hasSubnormal(quiet) || hasSubnormal(loud))
            return verdict(CheckStatus::fail, "subnormal values in the output" + where,
                           {{"formats", tried}});
        const double madeUp = peak(quiet);
        if (madeUp > audible)
            return verdict(CheckStatus::fail,
                           "sound from silent input (" + decibelText(20 * std::log10(madeUp)) +
                               ")" + where,
                           {{"formats", tried}, {"silent_input_peak", madeUp}});
        tried.push_back({{"format", formatText(setting)},
                         {"inputs", inputs},
                         {"outputs", plugin.outputs()},
                         {"peak", peak(loud)}});
    }
    return verdict(CheckStatus::pass, std::to_string(tried.size()) + " formats",
                   {{"formats", tried}});
}
