#include "app/commands.h"
#include "app/state_file.h"

#include "hosting/editor/editor_session.h"
#include "hosting/plugin_stage.h"

bool runConfigureCommand(VSTGlobals& globals) {
    if (!globals.plugin)
        return false;
    // Returns only for a plug-in without an editor; otherwise the process ends when the window
    // is closed, the settings written back (status 255 when they could not be).
    const PluginStageScope stage(PluginStage::editor);
    return runEditorWindow(globals.plugin,
                           [&globals] { return saveStateToFileReporting(globals); });
}
