#include "checks/audio_thread.h"
#include "checks/check_common.h"
#include "checks/check_list.h"

#include <chrono>
#include <cmath>
#include <random>
#include <stdexcept>
#include <thread>

namespace {

// A value read back this far from the one read when set from the audio's thread has not arrived.
constexpr float arrivalTolerance = 1e-4f;
// Blocks the audio thread processes after the last edit before the values are read back.
constexpr uint64_t settlingBlocks = 8;

std::chrono::milliseconds editingTime(int level) {
    return std::chrono::milliseconds(level <= 1 ? 250 : level == 2 ? 3000 : 10000);
}

int32_t parametersEdited(int level, int32_t count) {
    return level >= 3 ? count : std::min(count, level <= 1 ? 8 : 32);
}

std::vector<float> valuesOf(const Plugin& plugin, size_t count) {
    std::vector<float> values(count);
    for (size_t index = 0; index < count; ++index)
        values[index] = plugin.parameterValue(static_cast<int32_t>(index));
    return values;
}

void setAll(Plugin& plugin, const std::vector<float>& values) {
    for (size_t index = 0; index < values.size(); ++index)
        plugin.setParameterValue(static_cast<int32_t>(index), values[index]);
}

// As an editor would: set, read and show values while the audio runs. Returns the edits made.
uint64_t editWhileAudioRuns(Plugin& plugin, size_t count, const AudioThread& audio,
                            std::chrono::milliseconds duration) {
    std::mt19937 generator(61);
    std::uniform_real_distribution<float> anyValue(0.0f, 1.0f);
    const auto until = std::chrono::steady_clock::now() + duration;
    uint64_t edits = 0;
    while (std::chrono::steady_clock::now() < until && !audio.stopped()) {
        for (size_t index = 0; index < count && !audio.stopped(); ++index) {
            const auto parameter = static_cast<int32_t>(index);
            plugin.setParameterValue(parameter, anyValue(generator));
            (void)plugin.parameterValue(parameter);
            (void)plugin.parameterDisplay(parameter);
            ++edits;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return edits;
}

} // namespace

CheckResult runThreadsCheck(const CheckTarget& target) {
    PluginUnderTest plugin(target, checkRate);
    Plugin& parameters = plugin.plugin();
    const auto count =
        static_cast<size_t>(parametersEdited(target.level, parameters.parameterCount()));
    if (count == 0)
        return verdict(CheckStatus::skip, "no parameters to edit from a second thread");
    if (!plugin.configure(checkRate, checkChannels, checkChannels))
        throw std::runtime_error("the plug-in refused " + std::to_string(checkRate) + " Hz");

    // What each parameter reads back when set from the thread that processes, blocks later (a
    // plug-in may round it there): what must arrive from a second thread too. Then every value
    // far from it, so that an edit that never arrives shows.
    std::mt19937 generator(47);
    std::uniform_real_distribution<float> anyValue(0.05f, 0.95f);
    std::vector<float> finalValues(count);
    std::vector<float> farValues(count);
    for (size_t index = 0; index < count; ++index) {
        finalValues[index] = anyValue(generator);
        farValues[index] = finalValues[index] < 0.5f ? 1.0f : 0.0f;
    }
    const Audio settling = noise(plugin.inputs(), settlingBlocks * Plugin::blockFrames, 53);
    setAll(parameters, finalValues);
    plugin.process(settling);
    const std::vector<float> expected = valuesOf(parameters, count);
    setAll(parameters, farValues);
    plugin.process(settling);

    AudioThread audio(plugin);
    // Parameters the audio moves by itself (meters and the like) cannot show an edit arriving.
    const std::vector<float> before = valuesOf(parameters, count);
    audio.waitForBlocks(settlingBlocks);
    const std::vector<float> after = valuesOf(parameters, count);
    const uint64_t edits = editWhileAudioRuns(parameters, count, audio, editingTime(target.level));
    setAll(parameters, finalValues);
    audio.waitForBlocks(settlingBlocks);
    const std::vector<float> arrived = valuesOf(parameters, count);
    const uint64_t blocks = audio.blocks();
    audio.stop();

    const nlohmann::json figures = {{"edits", edits}, {"blocks", blocks}, {"parameters", count}};
    if (!audio.problem().empty())
        return verdict(CheckStatus::fail, audio.problem(), figures);
    for (size_t index = 0; index < count; ++index) {
        const bool still = std::fabs(after[index] - before[index]) <= arrivalTolerance;
        if (still && !(std::fabs(arrived[index] - expected[index]) <= arrivalTolerance))
            return verdict(CheckStatus::fail,
                           "a value never arrived: parameter " + std::to_string(index) + " (" +
                               parameters.parameterName(static_cast<int32_t>(index)) + ") set to " +
                               std::to_string(finalValues[index]) + " from a second thread reads " +
                               std::to_string(arrived[index]) + " (" +
                               std::to_string(expected[index]) + " from one thread)",
                           figures);
    }
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
