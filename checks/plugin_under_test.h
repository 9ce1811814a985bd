#pragma once

#include "checks/check.h"
#include "checks/signals.h"
#include "hosting/plugin_slot.h"

#include <cstdint>
#include <span>

// A fresh instance of the plug-in a check looks at, set up for one format, and the means to run
// audio through it in blocks of the check's choosing. Owned by one check; its thread only.
class PluginUnderTest {
  public:
    // Opens a fresh instance as the worker would (VST 3, then VST 2, unless the target names
    // one), told `sampleRate` before it opens, with process-wide state as a fresh process has
    // it. Throws std::runtime_error naming the path when it cannot be opened.
    PluginUnderTest(const CheckTarget& target, uint32_t sampleRate);

    Plugin& plugin() { return *slot; }
    PluginSlot& pluginSlot() { return slot; }
    // Rate and channel counts (lowered to what the plug-in uses); false when it refuses them.
    bool configure(uint32_t sampleRate, uint32_t inputs, uint32_t outputs);
    // The same with speaker masks, as a parent's stream format brings them.
    bool configure(StreamFormat wanted);
    uint32_t inputs() const { return format.inputChannels; }
    uint32_t outputs() const { return format.outputChannels; }
    uint32_t sampleRate() const { return format.sampleRate; }

    // Runs `input` (inputs() channels) through the plug-in in blocks of `blockSizes` frames in
    // turn (each at most Plugin::blockFrames); the output has outputs() channels of the same
    // length. Throws std::runtime_error when a block cannot be processed.
    Audio process(const Audio& input, std::span<const uint32_t> blockSizes);
    Audio process(const Audio& input);

  private:
    PluginSlot slot;
    StreamFormat format;
};
