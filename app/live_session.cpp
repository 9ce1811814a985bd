#include "app/commands.h"
#include "app/state_file.h"

#include "audio/framing.h"
#include "audio/vst_process.h"
#include "hosting/editor/editor_session.h"
#include "hosting/plugin_stage.h"
#include "support/thread.h"

#include <cstdio>
#include <exception>
#include <stdexcept>

namespace {

// The worker only drives the plug-in: the parent hears nothing back, so failures end the worker
// with a line on standard error (no line end, as the parent reads it) and the editor stays.
void runLiveWorker(VSTGlobals& globals) noexcept {
    const PluginStageScope stage(PluginStage::processing);
    try {
        if (!globals.plugin)
            throw std::runtime_error("no VST set");
        const SampleEncoding encoding = sampleEncodingFromArguments(globals.arguments);
        // Never opened afresh here (the editor shows the instance): no settings to give again.
        vstProcess2<float> processor(globals.plugin, encoding.bits, encoding.formatTag,
                                     globals.output.get(), nullptr);
        processor.setOutputMuted(true);
        processor.setReopenForRate(false);
        runLiveFraming(processor, *globals.input);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "Live data processing error: %s", failure.what());
        std::fflush(stderr);
    } catch (...) {
    }
}

} // namespace

bool runConfigureLiveCommand(VSTGlobals& globals) {
    Vesk::threadEx worker([&globals](void*) { runLiveWorker(globals); }, "Live data worker");
    // As urgent as the thread that asked for the session.
    worker.start(Vesk::schedulingOfCallingThread());
    // Closing the editor ends the process here, whatever the worker is doing.
    const PluginStageScope stage(PluginStage::editor);
    const bool shown = globals.plugin && runEditorWindow(globals.plugin, [&globals] {
                           return saveStateToFileReporting(globals);
                       });
    // Only without an editor do we get here: the worker is stopped, also inside a read.
    worker.requestStop();
    worker.join();
    return shown;
}
