#pragma once

#include "pluginterfaces/vst/ivsteditcontroller.h"

#include <optional>
#include <unordered_map>
#include <vector>

// VST 2 parameter indices over a controller's VST 3 parameter ids. Built on the main thread
// after the controller knows the component's state; read-only afterwards.
class Vst3ParameterMap {
  public:
    struct Entry {
        Steinberg::Vst::ParamID id = 0;
        Steinberg::int32 controllerIndex = 0;
        Steinberg::int32 stepCount = 0;
        Steinberg::int32 flags = 0;
    };

    // Read-only values (meters, host information) cannot be set, and program changes and bypass
    // have their own VST 2 calls; everything else is offered, hidden parameters included.
    static bool exported(Steinberg::int32 flags);

    // Walks the controller's parameters in its order. Calls plug-in code.
    void build(Steinberg::Vst::IEditController& controller);
    // From already-read parameter records, in controller order.
    void build(const std::vector<Steinberg::Vst::ParameterInfo>& parameters);

    Steinberg::int32 size() const { return static_cast<Steinberg::int32>(entries.size()); }
    const Entry* at(Steinberg::int32 index) const;
    std::optional<Steinberg::int32> indexOf(Steinberg::Vst::ParamID id) const;
    // Every parameter the controller lists, exported or not.
    Steinberg::int32 controllerCount() const { return allParameters; }
    std::optional<Entry> bypass() const { return bypassEntry; }
    std::optional<Entry> programChange() const { return programEntry; }

  private:
    std::vector<Entry> entries;
    std::unordered_map<Steinberg::Vst::ParamID, Steinberg::int32> indices;
    std::optional<Entry> bypassEntry;
    std::optional<Entry> programEntry;
    Steinberg::int32 allParameters = 0;
};
