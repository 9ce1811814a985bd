#pragma once

// What the calling thread is doing with the plug-in, so that a plug-in that ends the process or
// crashes can be reported with the stage it was in. Each thread has its own; a plain value read
// by signal handlers.
enum class pluginStage : int { none, loading, opening, processing, editor, closing };

// Sets the calling thread's stage for the scope's life and restores the one before.
class pluginStageScope {
  public:
    explicit pluginStageScope(pluginStage stage);
    ~pluginStageScope();
    pluginStageScope(const pluginStageScope&) = delete;
    pluginStageScope& operator=(const pluginStageScope&) = delete;

  private:
    pluginStage previous;
};

pluginStage currentPluginStage();
// "loading", "opening", "processing", "editor", "closing"; null for none.
const char* pluginStageName(pluginStage stage);
