#include "hosting/plugin_stage.h"

namespace {

// Constant-initialised and of a trivial type, so that a signal handler may read it.
thread_local pluginStage stageOfThisThread = pluginStage::none;

} // namespace

pluginStageScope::pluginStageScope(pluginStage stage) : previous(stageOfThisThread) {
    stageOfThisThread = stage;
}

pluginStageScope::~pluginStageScope() {
    stageOfThisThread = previous;
}

pluginStage currentPluginStage() {
    return stageOfThisThread;
}

const char* pluginStageName(pluginStage stage) {
    switch (stage) {
    case pluginStage::loading:
        return "loading";
    case pluginStage::opening:
        return "opening";
    case pluginStage::processing:
        return "processing";
    case pluginStage::editor:
        return "editor";
    case pluginStage::closing:
        return "closing";
    case pluginStage::none:
        break;
    }
    return nullptr;
}
