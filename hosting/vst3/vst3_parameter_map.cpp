#include "hosting/vst3/vst3_parameter_map.h"

using namespace Steinberg;
using namespace Steinberg::Vst;

bool Vst3ParameterMap::exported(int32 flags) {
    constexpr int32 notForVst2 =
        ParameterInfo::kIsReadOnly | ParameterInfo::kIsProgramChange | ParameterInfo::kIsBypass;
    return (flags & notForVst2) == 0;
}

void Vst3ParameterMap::build(IEditController& controller) {
    std::vector<ParameterInfo> parameters;
    const int32 count = controller.getParameterCount();
    for (int32 index = 0; index < count; ++index) {
        ParameterInfo info{};
        // A parameter whose record cannot be read keeps its place, so indices stay the
        // controller's; it is simply not offered.
        if (controller.getParameterInfo(index, info) != kResultOk)
            info.flags = ParameterInfo::kIsReadOnly;
        parameters.push_back(info);
    }
    build(parameters);
}

void Vst3ParameterMap::build(const std::vector<ParameterInfo>& parameters) {
    entries.clear();
    indices.clear();
    bypassEntry.reset();
    programEntry.reset();
    allParameters = static_cast<int32>(parameters.size());
    for (int32 index = 0; index < allParameters; ++index) {
        const ParameterInfo& info = parameters[static_cast<size_t>(index)];
        const Entry entry{info.id, index, info.stepCount, info.flags};
        if ((info.flags & ParameterInfo::kIsBypass) && !bypassEntry)
            bypassEntry = entry;
        if ((info.flags & ParameterInfo::kIsProgramChange) && !programEntry)
            programEntry = entry;
        if (!exported(info.flags) || indices.contains(info.id))
            continue;
        indices.emplace(info.id, static_cast<int32>(entries.size()));
        entries.push_back(entry);
    }
}

const Vst3ParameterMap::Entry* Vst3ParameterMap::at(int32 index) const {
    if (index < 0 || index >= size())
        return nullptr;
    return &entries[static_cast<size_t>(index)];
}

std::optional<int32> Vst3ParameterMap::indexOf(ParamID id) const {
    const auto found = indices.find(id);
    if (found == indices.end())
        return std::nullopt;
    return found->second;
}
