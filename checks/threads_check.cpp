#include "checks/audio_thread.h"
#include "checks/check_common.h"
#include "checks/check_list.h"

#include <chrono>
#include <cmath>
#include <random>
#include <thread>

namespace {

// A value read back this far from the one read when set from the audio's thread has not arrived.
constexpr float arrivalTolerance = 1e-4f;
// Blocks the audio thread processes after the last edit before the values are read back.
constexpr uint64_t settlingBlocks = 8;

std::chrono::milliseconds editingTime(int level) {
    return std::chrono::milliseconds(level <= 1 ? 500 : level == 2 ? 3000 : 10000);
}

int32_t parametersEdited(int level, int32_t count) {
    return level >= 3 ? count : std::min(count, level <= 1 ? 8 : 32);
}

std::string parameterText(Plugin& plugin, int32_t index) {
    return "parameter " + std::to_string(index) + " (" + plugin.parameterName(index) + ")";
}

} // namespace

CheckResult runThreadsCheck(const CheckTarget& target) {
    PluginUnderTest plugin(target, checkRate);
    Plugin& parameters = plugin.plugin();
    const int32_t count = parametersEdited(target.level, parameters.parameterCount());
    if (count == 0)
        return verdict(CheckStatus::skip, "no parameters to edit from a second thread");
    // The values each parameter reads back when set from the thread that processes, blocks
    // later (a plug-in may round them there): what must arrive from a second thread too.
    if (!plugin.configure(checkRate, checkChannels, checkChannels))
        throw std::runtime_error("the plug-in refused " + std::to_string(checkRate) + " Hz");
    std::mt19937 generator(47);
    std::uniform_real_distribution<float> anyValue(0.05f, 0.95f);
    std::vector<float> finalValues(static_cast<size_t>(count));
    std::vector<float> expected(static_cast<size_t>(count));
    for (int32_t index = 0; index < count; ++index) {
        finalValues[static_cast<size_t>(index)] = anyValue(generator);
        parameters.setParameterValue(index, finalValues[static_cast<size_t>(index)]);
    }
    const Audio settling = noise(plugin.inputs(), settlingBlocks * Plugin::blockFrames, 53);
    plugin.process(settling);
    for (int32_t index = 0; index < count; ++index)
        expected[static_cast<size_t>(index)] = parameters.parameterValue(index);
    // Then far from them, so that an edit that never arrives shows.
    for (int32_t index = 0; index < count; ++index)
        parameters.setParameterValue(index, finalValues[static_cast<size_t>(index)] < 0.5f ? 1 : 0);
    plugin.process(settling);

    AudioThread audio(plugin);
    // Parameters the audio moves by itself (meters and the like) cannot show an edit arriving.
    std::vector<float> before(static_cast<size_t>(count));
    for (int32_t index = 0; index < count; ++index)
        before[static_cast<size_t>(index)] = parameters.parameterValue(index);
    audio.waitForBlocks(settlingBlocks);
    std::vector<bool> watched(static_cast<size_t>(count));
    for (int32_t index = 0; index < count; ++index)
        watched[static_cast<size_t>(index)] =
            std::fabs(parameters.parameterValue(index) - before[static_cast<size_t>(index)]) <=
            arrivalTolerance;

    // As an editor would: set, read and show values while the audio runs.
    const auto until = std::chrono::steady_clock::now() + editingTime(target.level);
    uint64_t edits = 0;
    while (std::chrono::steady_clock::now() < until && !audio.stopped()) {
        for (int32_t index = 0; index < count && !audio.stopped(); ++index) {
            parameters.setParameterValue(index, anyValue(generator));
            (void)parameters.parameterValue(index);
            (void)parameters.parameterDisplay(index);
            ++edits;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (int32_t index = 0; index < count; ++index)
        parameters.setParameterValue(index, finalValues[static_cast<size_t>(index)]);
    audio.waitForBlocks(settlingBlocks);
    std::string lost;
    for (int32_t index = 0; index < count && lost.empty(); ++index) {
        const float read = parameters.parameterValue(index);
        if (watched[static_cast<size_t>(index)] &&
            !(std::fabs(read - expected[static_cast<size_t>(index)]) <= arrivalTolerance))
            lost = parameterText(parameters, index) + " set to " +
                   std::to_string(finalValues[static_cast<size_t>(index)]) +
                   " from a second thread reads " + std::to_string(read) + " (" +
                   std::to_string(expected[static_cast<size_t>(index)]) + " from one thread)";
    }
    const uint64_t blocks = audio.blocks();
    audio.stop();
    const nlohmann::json figures = {{"edits", edits}, {"blocks", blocks}, {"parameters", count}};
    if (!audio.problem().empty())
        return verdict(CheckStatus::fail, audio.problem(), figures);
    if (!lost.empty())
        return verdict(CheckStatus::fail, "a value never arrived: " + lost, figures);
    if (const std::string request = parameters.offThreadRequest(); !request.empty())
        return verdict(CheckStatus::warn,
                       "the plug-in asked for the main thread's work (" + request +
                           ") from another thread",
                       figures);
    return verdict(CheckStatus::pass,
                   std::to_string(edits) + " edits from a second thread during " +
                       std::to_string(blocks) + " blocks",
                   figures);
}
