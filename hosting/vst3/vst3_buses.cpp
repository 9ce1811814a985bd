#include "hosting/vst3/vst3_buses.h"

#include "hosting/vst3/vst3_speakers.h"
#include "hosting/vst3/vst3_text.h"

#include <algorithm>

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

std::vector<Vst3BusTable::Bus> readBuses(IComponent& component, IAudioProcessor& processor,
                                         BusDirection direction) {
    std::vector<Vst3BusTable::Bus> buses;
    const int32 count = std::max(component.getBusCount(kAudio, direction), 0);
    for (int32 index = 0; index < count; ++index) {
        BusInfo info{};
        Vst3BusTable::Bus bus;
        if (component.getBusInfo(kAudio, direction, index, info) == kResultOk) {
            bus.name = vst3_text::fromUtf16(info.name, sizeof info.name / sizeof info.name[0]);
            bus.type = info.busType;
            bus.channels = std::max(info.channelCount, 0);
        }
        SpeakerArrangement arrangement = 0;
        if (processor.getBusArrangement(direction, index, arrangement) == kResultOk)
            bus.arrangement = arrangement;
        // The process data must list every bus, so one that cannot be read still takes a place.
        buses.push_back(std::move(bus));
    }
    return buses;
}

} // namespace

Vst3BusTable::Direction& Vst3BusTable::side(BusDirection direction) {
    return direction == kInput ? inputs : outputs;
}

const Vst3BusTable::Direction& Vst3BusTable::side(BusDirection direction) const {
    return direction == kInput ? inputs : outputs;
}

void Vst3BusTable::read(IComponent& component, IAudioProcessor& processor) {
    inputs.buses = readBuses(component, processor, kInput);
    outputs.buses = readBuses(component, processor, kOutput);
    eventInputs = component.getBusCount(kEvent, kInput) > 0;
    eventOutputs = component.getBusCount(kEvent, kOutput) > 0;
}

void Vst3BusTable::activate(IComponent& component) const {
    for (const BusDirection direction : {kInput, kOutput}) {
        const auto& list = buses(direction);
        for (size_t index = 0; index < list.size(); ++index)
            component.activateBus(kAudio, direction, static_cast<int32>(index),
                                  list[index].type == kMain);
    }
}

bool Vst3BusTable::requestMain(IComponent& component, IAudioProcessor& processor,
                               std::optional<SpeakerArrangement> input,
                               std::optional<SpeakerArrangement> output) {
    std::vector<SpeakerArrangement> in, out;
    for (const auto& bus : inputs.buses)
        in.push_back(bus.arrangement);
    for (const auto& bus : outputs.buses)
        out.push_back(bus.arrangement);
    if (input && !in.empty() && inputs.buses[0].type == kMain)
        in[0] = *input;
    if (output && !out.empty() && outputs.buses[0].type == kMain)
        out[0] = *output;
    const tresult answer = processor.setBusArrangements(in.data(), static_cast<int32>(in.size()),
                                                        out.data(), static_cast<int32>(out.size()));
    read(component, processor);
    return answer == kResultTrue;
}

const std::vector<Vst3BusTable::Bus>& Vst3BusTable::buses(BusDirection direction) const {
    return side(direction).buses;
}

int32 Vst3BusTable::mainChannels(BusDirection direction) const {
    int32 channels = 0;
    for (const auto& bus : buses(direction))
        if (bus.type == kMain)
            channels += bus.channels;
    return channels;
}

SpeakerArrangement Vst3BusTable::mainArrangement(BusDirection direction) const {
    for (const auto& bus : buses(direction))
        if (bus.type == kMain)
            return bus.arrangement;
    return 0;
}

bool Vst3BusTable::pinProperties(BusDirection direction, int32 pin,
                                 VstPinProperties& properties) const {
    if (pin < 0)
        return false;
    for (const auto& bus : buses(direction)) {
        if (bus.type != kMain)
            continue;
        if (pin >= bus.channels) {
            pin -= bus.channels;
            continue;
        }
        vst3_text::copyCut(bus.name, properties.label, sizeof properties.label);
        properties.flags =
            kVstPinIsActive | kVstPinUseSpeaker | (bus.channels == 2 ? kVstPinIsStereo : 0);
        properties.arrangementType = vst3_speakers::vst2Type(bus.arrangement, bus.channels);
        return true;
    }
    return false;
}

bool Vst3BusTable::matchesBuses(const Direction& direction) {
    return direction.buffers.size() == direction.buses.size() &&
           direction.channelPointers.size() == static_cast<size_t>(totalChannels(direction));
}

int32 Vst3BusTable::totalChannels(const Direction& direction) {
    int32 channels = 0;
    for (const auto& bus : direction.buses)
        channels += bus.channels;
    return channels;
}

void Vst3BusTable::prepare(int32 maxFrames) {
    framesPrepared = std::max(maxFrames, 1);
    for (Direction* direction : {&inputs, &outputs}) {
        const auto channels = static_cast<size_t>(totalChannels(*direction));
        direction->buffers.assign(direction->buses.size(), AudioBusBuffers());
        direction->channelPointers.assign(channels, nullptr);
        direction->scratch.assign(channels * static_cast<size_t>(framesPrepared), 0.0);
    }
}

template <typename Sample>
void Vst3BusTable::bindSide(Direction& direction, Sample** mainChannels, int32 frames,
                            int32 stride) {
    size_t flat = 0;
    int32 mainIndex = 0;
    for (size_t index = 0; index < direction.buses.size(); ++index) {
        const Bus& bus = direction.buses[index];
        const size_t first = flat;
        for (int32 channel = 0; channel < bus.channels; ++channel, ++flat) {
            Sample* given = nullptr;
            if (bus.type == kMain) {
                if (mainChannels != nullptr)
                    given = mainChannels[mainIndex];
                ++mainIndex;
            }
            if (given == nullptr) {
                // Plug-ins may process in place, so silence is laid down again every block.
                given = reinterpret_cast<Sample*>(direction.scratch.data() +
                                                  flat * static_cast<size_t>(stride));
                std::fill_n(given, frames, Sample(0));
            }
            direction.channelPointers[flat] = given;
        }
        AudioBusBuffers& buffers = direction.buffers[index];
        buffers.numChannels = bus.channels;
        buffers.silenceFlags = 0;
        auto** channels = reinterpret_cast<Sample**>(direction.channelPointers.data() + first);
        if constexpr (sizeof(Sample) == sizeof(Sample64))
            buffers.channelBuffers64 = reinterpret_cast<Sample64**>(channels);
        else
            buffers.channelBuffers32 = reinterpret_cast<Sample32**>(channels);
    }
}

template <typename Sample>
void Vst3BusTable::bind(Sample** mainInputs, Sample** mainOutputs, int32 frames,
                        ProcessData& data) {
    frames = std::max(frames, 0);
    // Callers keep to the block size and buses are re-read only while inactive, after which the
    // buffers are prepared again; anything else costs an allocation here, never an overrun.
    if (frames > framesPrepared || !matchesBuses(inputs) || !matchesBuses(outputs))
        prepare(std::max(frames, framesPrepared));
    bindSide(inputs, mainInputs, frames, framesPrepared);
    bindSide(outputs, mainOutputs, frames, framesPrepared);
    data.numInputs = static_cast<int32>(inputs.buses.size());
    data.numOutputs = static_cast<int32>(outputs.buses.size());
    data.inputs = inputs.buffers.empty() ? nullptr : inputs.buffers.data();
    data.outputs = outputs.buffers.empty() ? nullptr : outputs.buffers.data();
    data.numSamples = frames;
}

template void Vst3BusTable::bind<float>(float**, float**, int32, ProcessData&);
template void Vst3BusTable::bind<double>(double**, double**, int32, ProcessData&);
