#pragma once

#include "hosting/stream_format_value.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

enum class PluginKind { vst2, vst3 };

// Who a plug-in is, as it says itself. Empty texts where it says nothing.
struct PluginIdentity {
    PluginKind kind = PluginKind::vst2;
    std::string name;
    std::string vendor;
    std::string version;
    // The VST 2 unique id in decimal, or the VST 3 class id as 32 hexadecimal digits.
    std::string id;
    // The VST 2 category ("Effect", "Mastering", ...) or the VST 3 subcategories ("Fx|Delay").
    std::string category;
};

enum class PinSide { input, output };

// What a plug-in says of one of its pins: its label (at most the 64 bytes the interface allows,
// not cleaned), flags and speaker arrangement type as it reports them.
struct PinProperties {
    std::string label;
    int32_t flags = 0;
    int32_t arrangementType = 0;
};

// The loaded plug-in in the words its callers use, whatever kind it is. Commands, the audio path
// and checks reach a plug-in only through this.
//
// Threads: one thread processes at a time: the main thread, or in configure-live the live worker
// (format, precision, processing, settings messages), while the main thread keeps the editor and
// idling. Identity, pins, parameters and state are read on the thread that processes or, between
// blocks, the main thread. No lock inside: callers never share one plug-in between two threads
// for the same group.
class Plugin {
  public:
    // Frames in every block handed to a plug-in, whatever the stream carries; every channel
    // buffer holds at least this many samples.
    static constexpr int32_t blockFrames = 512;

    virtual ~Plugin() = default;

    virtual PluginIdentity identity() const = 0;

    virtual int32_t inputCount() const = 0;
    virtual int32_t outputCount() const = 0;
    virtual PinProperties pin(PinSide side, int32_t index) const = 0;

    virtual int32_t parameterCount() const = 0;
    // What a user names parameter `index` by: the index itself, or a VST 3 plug-in's own id.
    virtual uint32_t parameterNumber(int32_t index) const = 0;
    virtual std::string parameterName(int32_t index) const = 0;
    virtual std::string parameterDisplay(int32_t index) const = 0;
    virtual std::string parameterUnit(int32_t index) const = 0;
    // Normalised 0..1; 0 for a plug-in that cannot tell.
    virtual float parameterValue(int32_t index) const = 0;
    virtual void setParameterValue(int32_t index, float value) = 0;

    virtual bool hasEditor() const = 0;

    // Settings in the form the plug-in keeps them (VST 2: its chunk or one float per parameter;
    // VST 3: a preset image, or id/value records on the way in). Exceptions thrown by plug-in
    // code pass through. Loading nothing does nothing; saving gives nothing when it offers none.
    virtual void loadState(std::span<const uint8_t> bytes) = 0;
    virtual std::vector<uint8_t> saveState() = 0;

    // The delay the plug-in reports in frames (may change while processing), and its tail as
    // it reports it: 0 for unknown, 1 for none.
    virtual int32_t latency() const = 0;
    virtual intptr_t tailSize() const = 0;

    // Whether blocks can be processed at each precision.
    virtual bool canProcessFloat() const = 0;
    virtual bool canProcessDouble() const = 0;
    // Precision and stream format in one suspension (some plug-ins do real work on resume). May
    // lower the record's channel counts and rewrite its masks to what the plug-in can use; false
    // when it cannot be used with that format. Asking again for what is in force sends nothing.
    virtual bool configure(bool useDouble, StreamFormat& format) = 0;
    virtual void suspend() = 0;
    virtual void resume() = 0;
    // One block of the configured format; false when the plug-in cannot process now.
    virtual bool processFloat(float** inputs, float** outputs, int32_t frames) = 0;
    virtual bool processDouble(double** inputs, double** outputs, int32_t frames) = 0;

    // The first request for the main thread's work (the editor's size, an idle call, an edit
    // gesture) that the plug-in made on another thread, in words ("the editor's size"); empty
    // when none. Such work is left to the main thread.
    virtual std::string offThreadRequest() const = 0;

    // 0 until a rate is set.
    virtual int32_t sampleRate() const = 0;
    // Whether the plug-in may read the rate only while it opens, so that only a fresh instance
    // can be told another; and whether one would learn `rate`, which this one could not.
    virtual bool readsRateOnlyWhenOpening() const = 0;
    virtual bool wouldLearnRateByReopening(uint32_t rate) const = 0;
};
