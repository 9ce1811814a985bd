#include "checks/plugin_under_test.h"

#include "hosting/load_failure.h"
#include "hosting/plugin_stage.h"
#include "hosting/process_defaults.h"

#include <algorithm>
#include <stdexcept>

namespace {

// As the worker runs plug-ins: offline.
constexpr int32_t offlineLevel = 4;

void openInto(PluginSlot& slot, const CheckTarget& target, uint32_t sampleRate) {
    restoreProcessDefaults();
    if (target.vstVersion != 2) {
        try {
            slot.openVst3(target.path, offlineLevel);
            return;
        } catch (const LoadFailure&) {
            if (target.vstVersion == 3)
                throw;
        }
    }
    slot.openVst2(target.path, offlineLevel, static_cast<int32_t>(sampleRate));
}

} // namespace

PluginUnderTest::PluginUnderTest(const CheckTarget& target, uint32_t sampleRate) {
    const PluginStageScope stage(PluginStage::loading);
    try {
        openInto(slot, target, sampleRate);
    } catch (const LoadFailure&) {
        throw std::runtime_error("the plug-in could not be opened");
    }
}

bool PluginUnderTest::configure(uint32_t sampleRate, uint32_t inputs, uint32_t outputs) {
    StreamFormat wanted;
    wanted.sampleRate = sampleRate;
    wanted.inputChannels = inputs;
    wanted.outputChannels = outputs;
    return configure(wanted);
}

bool PluginUnderTest::configure(StreamFormat wanted) {
    if (!slot->canProcessFloat() || !slot->configure(false, wanted))
        return false;
    format = wanted;
    return format.inputChannels >= 1 && format.outputChannels >= 1;
}

Audio PluginUnderTest::process(const Audio& input, std::span<const uint32_t> blockSizes) {
    const PluginStageScope stage(PluginStage::processing);
    const uint32_t frames = frameCount(input);
    Audio output = silence(format.outputChannels, frames);
    std::vector<std::vector<float>> inBlock(format.inputChannels,
                                            std::vector<float>(Plugin::blockFrames));
    std::vector<std::vector<float>> outBlock(format.outputChannels,
                                             std::vector<float>(Plugin::blockFrames));
    std::vector<float*> inputs(inBlock.size());
    std::vector<float*> outputs(outBlock.size());
    for (size_t channel = 0; channel < inBlock.size(); ++channel)
        inputs[channel] = inBlock[channel].data();
    for (size_t channel = 0; channel < outBlock.size(); ++channel)
        outputs[channel] = outBlock[channel].data();
    size_t turn = 0;
    for (uint32_t at = 0; at < frames;) {
        const uint32_t asked =
            blockSizes.empty() ? Plugin::blockFrames : blockSizes[turn++ % blockSizes.size()];
        const uint32_t count =
            std::min({asked, static_cast<uint32_t>(Plugin::blockFrames), frames - at});
        for (size_t channel = 0; channel < inBlock.size(); ++channel) {
            const float* source = channel < input.size() ? input[channel].data() + at : nullptr;
            for (uint32_t frame = 0; frame < count; ++frame)
                inBlock[channel][frame] = source != nullptr ? source[frame] : 0.0f;
        }
        if (!slot->processFloat(inputs.data(), outputs.data(), static_cast<int32_t>(count)))
            throw std::runtime_error("a block could not be processed");
        for (size_t channel = 0; channel < outBlock.size(); ++channel)
            std::copy_n(outBlock[channel].begin(), count, output[channel].begin() + at);
        at += std::max<uint32_t>(count, 1);
    }
    return output;
}

Audio PluginUnderTest::process(const Audio& input) {
    static constexpr uint32_t wholeBlocks[] = {Plugin::blockFrames};
    return process(input, wholeBlocks);
}
