#pragma once

#include "hosting/vst2/vst2_abi.h"

#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"

#include <optional>
#include <string>
#include <vector>

// The audio buses of a VST 3 component in both directions, and the channel buffers a block
// hands over. VST 2 callers see only the main buses, one pin per channel; auxiliary buses
// (side chains) stay listed for the processor, fed silence and read by nobody. Read and
// negotiated on the main thread while the component is inactive; bound per block on the
// processing thread without allocating.
class Vst3BusTable {
  public:
    struct Bus {
        std::string name;
        Steinberg::Vst::BusType type = Steinberg::Vst::kMain;
        Steinberg::int32 channels = 0;
        Steinberg::Vst::SpeakerArrangement arrangement = 0;
    };

    // Reads every audio bus and whether event buses exist. Calls plug-in code.
    void read(Steinberg::Vst::IComponent& component, Steinberg::Vst::IAudioProcessor& processor);
    // Main buses on, auxiliary buses off. Calls plug-in code.
    void activate(Steinberg::Vst::IComponent& component) const;
    // Asks for `input` on input bus 0 and `output` on output bus 0 when they are main buses,
    // every other bus keeping its arrangement; reads the buses back either way. True when the
    // processor accepted. Calls plug-in code.
    bool requestMain(Steinberg::Vst::IComponent& component,
                     Steinberg::Vst::IAudioProcessor& processor,
                     std::optional<Steinberg::Vst::SpeakerArrangement> input,
                     std::optional<Steinberg::Vst::SpeakerArrangement> output);

    const std::vector<Bus>& buses(Steinberg::Vst::BusDirection direction) const;
    Steinberg::int32 mainChannels(Steinberg::Vst::BusDirection direction) const;
    // The arrangement of the first main bus, 0 when there is none.
    Steinberg::Vst::SpeakerArrangement
    mainArrangement(Steinberg::Vst::BusDirection direction) const;
    bool hasEventInputs() const { return eventInputs; }
    bool hasEventOutputs() const { return eventOutputs; }

    // The VST 2 pin record of main-bus channel `pin`; false past the last pin.
    bool pinProperties(Steinberg::Vst::BusDirection direction, Steinberg::int32 pin,
                       VstPinProperties& properties) const;

    // Makes buffers for blocks of up to `maxFrames`. Main thread.
    void prepare(Steinberg::int32 maxFrames);
    // Points `data` at the caller's main channels and at silent scratch for everything else
    // (auxiliary buses, and channels the caller gives as null). Processing thread.
    template <typename Sample>
    void bind(Sample** mainInputs, Sample** mainOutputs, Steinberg::int32 frames,
              Steinberg::Vst::ProcessData& data);

  private:
    struct Direction {
        std::vector<Bus> buses;
        std::vector<Steinberg::Vst::AudioBusBuffers> buffers;
        std::vector<void*> channelPointers; // all buses' channels, bus after bus
        std::vector<double> scratch;        // one block per channel, either precision
    };
    Direction& side(Steinberg::Vst::BusDirection direction);
    const Direction& side(Steinberg::Vst::BusDirection direction) const;
    static Steinberg::int32 totalChannels(const Direction& direction);
    static bool matchesBuses(const Direction& direction);
    template <typename Sample>
    static void bindSide(Direction& direction, Sample** mainChannels, Steinberg::int32 frames,
                         Steinberg::int32 stride);

    Direction inputs;
    Direction outputs;
    Steinberg::int32 framesPrepared = 0;
    bool eventInputs = false;
    bool eventOutputs = false;
};
