#include "scan/scan_child.h"

#include "hosting/plugin_examination.h"
#include "hosting/plugin_stage.h"
#include "scan/plugin_description.h"
#include "support/message_text.h"

namespace scan {

ChildAnswer examinePlugin(PluginSlot& slot, const std::string& path, PluginKind kind,
                          size_t effectClass) {
    Examination found;
    {
        const PluginStageScope stage(PluginStage::loading);
        found = examinePluginFile(slot, path, kind, effectClass);
    }
    static constexpr const char* statuses[] = {"ok", "refused", "failed"};
    ChildAnswer result{{{"status", statuses[static_cast<int>(found.outcome)]}},
                       Vesk::escapedForMessage(found.message)};
    if (kind == PluginKind::vst3 && found.effectClasses > 0)
        result.answer["classes"] = found.effectClasses;
    if (slot) {
        const PluginStageScope stage(PluginStage::opening);
        result.answer.update(describePlugin(*slot));
    }
    return result;
}

} // namespace scan
