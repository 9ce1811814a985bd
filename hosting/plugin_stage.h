#pragma once

#include <stdexcept>

// What the calling thread is doing with the plug-in, so that a plug-in that ends the process or
// crashes can be reported with the stage it was in. Each thread has its own; a plain value read
// by signal handlers.
enum class PluginStage : int { none, loading, opening, listing, processing, editor, closing };

// Sets the calling thread's stage for the scope's life and restores the one before.
class PluginStageScope {
  public:
    explicit PluginStageScope(PluginStage stage);
    ~PluginStageScope();
    PluginStageScope(const PluginStageScope&) = delete;
    PluginStageScope& operator=(const PluginStageScope&) = delete;

  private:
    PluginStage previous;
};

PluginStage currentPluginStage();
// "loading", "opening", "listing", "processing", "editor", "closing"; null for none.
const char* pluginStageName(PluginStage stage);

// Plug-in code threw: "VST threw an exception (stage: STAGE)" with the calling thread's stage.
class PluginThrew : public std::runtime_error {
  public:
    PluginThrew();
};
