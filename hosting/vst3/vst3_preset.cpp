#include "hosting/vst3/vst3_preset.h"

#include "hosting/vst3/vst3_preset_layout.h"
#include "hosting/vst3/vst3_read_stream.h"

#include "public.sdk/source/vst/vstpresetfile.h"

using namespace Steinberg;
using namespace Steinberg::Vst;

Vst3PresetResult checkVst3Preset(std::span<const uint8_t> bytes, const FUID& classId) {
    if (!vst3_preset_layout::isSound(bytes))
        return Vst3PresetResult::damaged;
    FUID presetClass;
    if (!presetClass.fromString(vst3_preset_layout::classIdText(bytes).c_str()) ||
        presetClass != classId)
        return Vst3PresetResult::otherClass;
    return Vst3PresetResult::applied;
}

Vst3PresetResult loadVst3Preset(std::span<const uint8_t> bytes, const FUID& classId,
                                IComponent* component, IEditController* controller) {
    if (component == nullptr)
        return Vst3PresetResult::damaged;
    if (const auto found = checkVst3Preset(bytes, classId); found != Vst3PresetResult::applied)
        return found;
    IPtr<Vst3ReadStream> stream = owned(new Vst3ReadStream(bytes));
    return PresetFile::loadPreset(stream, classId, component, controller)
               ? Vst3PresetResult::applied
               : Vst3PresetResult::refused;
}

const char* vst3PresetMessage(Vst3PresetResult result) {
    switch (result) {
    case Vst3PresetResult::applied:
        break;
    case Vst3PresetResult::damaged:
        return "Settings not applied: the VST 3 preset is damaged";
    case Vst3PresetResult::otherClass:
        return "Settings not applied: the VST 3 preset is for another plug-in";
    case Vst3PresetResult::refused:
        return "Settings not wholly applied: the plug-in refused its VST 3 preset";
    }
    return "";
}
