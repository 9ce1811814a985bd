#include "audio/stream_format_codec.h"
#include "checks/check_common.h"
#include "checks/check_list.h"

#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

constexpr uint32_t mostChannelsTried = 8;
// Blocks each layout processes: enough for a plug-in that sets up lazily to have done so.
constexpr uint32_t blocksPerLayout = 4;

// Every pair of counts from 1 to 8; the quick level only the same count each way and mono to
// stereo and back.
std::vector<std::pair<uint32_t, uint32_t>> layoutsTried(int level) {
    std::vector<std::pair<uint32_t, uint32_t>> layouts;
    for (uint32_t inputs = 1; inputs <= mostChannelsTried; ++inputs)
        for (uint32_t outputs = 1; outputs <= mostChannelsTried; ++outputs)
            if (level >= 2 || inputs == outputs || inputs + outputs == 3)
                layouts.emplace_back(inputs, outputs);
    return layouts;
}

// As a parent asking for these counts sends it: each side with its usual speaker mask.
StreamFormat requested(uint32_t inputs, uint32_t outputs) {
    StreamFormat format;
    format.sampleRate = checkRate;
    format.inputChannels = inputs;
    format.inputChannelMask = effectiveMask(inputs, 0);
    format.outputChannels = outputs;
    format.outputChannelMask = effectiveMask(outputs, 0);
    return format;
}

std::string named(uint32_t inputs, uint32_t outputs) {
    return std::to_string(inputs) + "x" + std::to_string(outputs);
}

// A few blocks of noise; a message when they cannot be processed or are not finite.
std::optional<std::string> processFault(PluginUnderTest& plugin) {
    try {
        const Audio output =
            plugin.process(noise(plugin.inputs(), blocksPerLayout * Plugin::blockFrames, 59));
        if (hasNonFinite(output))
            return "NaN or infinity in the output";
    } catch (const std::runtime_error& error) {
        return std::string(error.what());
    }
    return std::nullopt;
}

} // namespace

CheckResult runBusLayoutsCheck(const CheckTarget& target) {
    PluginUnderTest plugin(target, checkRate);
    std::vector<std::string> exact;
    std::vector<std::string> refused;
    uint32_t narrowed = 0;
    std::optional<StreamFormat> previous;
    for (const auto& [inputs, outputs] : layoutsTried(target.level)) {
        const std::string layout = named(inputs, outputs);
        const StreamFormat wanted = requested(inputs, outputs);
        if (plugin.configure(wanted)) {
            const std::string used = named(plugin.inputs(), plugin.outputs());
            if (used == layout)
                exact.push_back(layout);
            else
                ++narrowed;
            if (const auto fault = processFault(plugin))
                return verdict(CheckStatus::fail, *fault + " with " + layout + " accepted" +
                                                      (used == layout ? "" : " as " + used));
            previous = wanted;
            continue;
        }
        refused.push_back(layout);
        if (!previous)
            continue;
        // A refusal must leave the plug-in as it was.
        const std::string before = named(previous->inputChannels, previous->outputChannels);
        if (!plugin.configure(*previous))
            return verdict(CheckStatus::fail, "after refusing " + layout +
                                                  " it refused its previous layout " + before);
        if (const auto fault = processFault(plugin))
            return verdict(CheckStatus::fail, *fault + " with its previous layout " + before +
                                                  " after refusing " + layout);
    }
    const nlohmann::json figures = {{"exact", exact}, {"narrowed", narrowed}, {"refused", refused}};
    if (exact.empty() && narrowed == 0)
        return verdict(CheckStatus::fail, "no layout from 1 to 8 channels was accepted", figures);
    std::string accepted;
    for (const auto& layout : exact)
        accepted += (accepted.empty() ? "" : ", ") + layout;
    return verdict(CheckStatus::pass,
                   "takes " + (accepted.empty() ? "none" : accepted) + " as asked, " +
                       std::to_string(narrowed) + " with fewer channels; " +
                       std::to_string(refused.size()) + " refused cleanly",
                   figures);
}
