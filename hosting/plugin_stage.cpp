#include "hosting/plugin_stage.h"

#include <string>

namespace {

// Constant-initialised and of a trivial type, so that a signal handler may read it.
thread_local PluginStage stageOfThisThread = PluginStage::none;

} // namespace

PluginStageScope::PluginStageScope(PluginStage stage) : previous(stageOfThisThread) {
    stageOfThisThread = stage;
}

PluginStageScope::~PluginStageScope() {
    stageOfThisThread = previous;
}

PluginStage currentPluginStage() {
    return stageOfThisThread;
}

const char* pluginStageName(PluginStage stage) {
    switch (stage) {
    case PluginStage::loading:
        return "loading";
    case PluginStage::opening:
        return "opening";
    case PluginStage::listing:
        return "listing";
    case PluginStage::processing:
        return "processing";
    case PluginStage::editor:
        return "editor";
    case PluginStage::closing:
        return "closing";
    case PluginStage::none:
        break;
    }
    return nullptr;
}

namespace {

std::string threwText() {
    const char* stage = pluginStageName(currentPluginStage());
    return std::string("VST threw an exception") +
           (stage != nullptr ? std::string(" (stage: ") + stage + ")" : std::string());
}

} // namespace

PluginThrew::PluginThrew() : std::runtime_error(threwText()) {}
