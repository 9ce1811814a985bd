#include "checks/audio_thread.h"
#include "checks/check_common.h"
#include "checks/check_list.h"
#include "hosting/editor/editor_session.h"

#include <chrono>

namespace {

constexpr int quietOpenings = 5;

std::chrono::milliseconds shownFor(int level) {
    return std::chrono::milliseconds(level <= 1 ? 100 : level == 2 ? 500 : 1500);
}

} // namespace

CheckResult runEditorCheck(const CheckTarget& target) {
    PluginUnderTest plugin(target, checkRate);
    if (!plugin.plugin().hasEditor())
        return verdict(CheckStatus::skip, "no editor");
    const auto screen = EditorScreen::open();
    if (!screen)
        return verdict(CheckStatus::skip, "no display to show the editor on");
    // Opened and closed on the main thread as a host does; a crash, a hang or an X error that
    // ends the process is the runner's to report.
    for (int opening = 0; opening < quietOpenings; ++opening)
        screen->showEditorFor(plugin.pluginSlot(), shownFor(target.level));
    AudioThread audio(plugin);
    audio.waitForBlocks(1);
    screen->showEditorFor(plugin.pluginSlot(), shownFor(target.level));
    const uint64_t blocks = audio.blocks();
    audio.stop();
    const nlohmann::json figures = {{"openings", quietOpenings + 1}, {"blocks", blocks}};
    if (!audio.problem().empty())
        return verdict(CheckStatus::fail, audio.problem(), figures);
    return verdict(CheckStatus::pass,
                   "opened and closed " + std::to_string(quietOpenings) +
                       " times, and once while audio ran (" + std::to_string(blocks) + " blocks)",
                   figures);
}
