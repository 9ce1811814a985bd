#include "app/commands.h"
#include "app/state_file.h"

#include "hosting/editor/editor_session.h"

bool runConfigureCommand(VSTGlobals& globals) {
    if (!globals.plugin)
        return false;
    // Returns only for a plug-in without an editor; otherwise the process ends when the window
    // is closed, the settings written back.
    return runEditorWindow(*globals.plugin, [&globals] { saveStateToFile(globals); });
}
