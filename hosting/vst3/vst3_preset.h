#pragma once

#include "pluginterfaces/base/funknown.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"

#include <cstdint>
#include <span>

// Applying a preset image to a VST 3 component and controller. The bytes are untrusted: their
// header and chunk list are checked before the SDK's reader sees them, and everything reads
// through a bounds-checked copy. Runs on the thread that owns the plug-in.
enum class Vst3PresetResult {
    applied,
    damaged,    // nothing was handed to the plug-in
    otherClass, // made for another plug-in: nothing was handed over
    refused,    // the plug-in answered with an error; it may have taken part of it
};

// What loadVst3Preset would find before handing anything over: `applied` when the image is
// sound and made for `classId`.
Vst3PresetResult checkVst3Preset(std::span<const uint8_t> bytes, const Steinberg::FUID& classId);

Vst3PresetResult loadVst3Preset(std::span<const uint8_t> bytes, const Steinberg::FUID& classId,
                                Steinberg::Vst::IComponent* component,
                                Steinberg::Vst::IEditController* controller);

// The one line that tells the user their settings were not (wholly) applied; empty for applied.
const char* vst3PresetMessage(Vst3PresetResult result);
