#include "checks/realtime_probe.h"

#include "checks/check_common.h"
#include "hosting/plugin_stage.h"

#include <chrono>
#include <random>
#include <stdexcept>

double probeRealtimeSafety(const CheckTarget& target, uint32_t warmUpCalls, uint32_t markedCalls,
                           const RealtimeMarkers& markers) {
    auto opened = openConfigured(target);
    Plugin& plugin = opened->plugin();
    // Every buffer exists before the first call: the window must see the plug-in's work only.
    Audio input = noise(opened->inputs(), Plugin::blockFrames, 37);
    Audio output = silence(opened->outputs(), Plugin::blockFrames);
    std::vector<float*> inputs;
    std::vector<float*> outputs;
    for (auto& channel : input)
        inputs.push_back(channel.data());
    for (auto& channel : output)
        outputs.push_back(channel.data());
    std::mt19937 generator(41);
    std::uniform_real_distribution<float> anyValue(0.0f, 1.0f);
    const int32_t parameters = plugin.parameterCount();
    const PluginStageScope stage(PluginStage::processing);
    std::chrono::steady_clock::duration watched{};
    for (uint32_t call = 0; call < warmUpCalls + markedCalls; ++call) {
        // A host's automation reaches the plug-in between blocks; its effect lands inside one.
        if (parameters > 0 && call % 16 == 15)
            plugin.setParameterValue(static_cast<int32_t>(call / 16) % parameters,
                                     anyValue(generator));
        const bool marked = call >= warmUpCalls;
        const auto start = std::chrono::steady_clock::now();
        if (marked)
            markers.enter();
        const bool processed = plugin.processFloat(inputs.data(), outputs.data(),
                                                   static_cast<int32_t>(Plugin::blockFrames));
        if (marked) {
            markers.leave();
            watched += std::chrono::steady_clock::now() - start;
        }
        if (!processed)
            throw std::runtime_error("a block could not be processed");
    }
    return std::chrono::duration<double>(watched).count();
}
