#pragma once

#include "hosting/plugin.h"

#include <memory>
#include <string>

class ModuleLibrary;
class PluginHost;

// The one place the loaded plug-in lives for a run: its host, and through it where the plug-in
// came from, so that a fresh instance can replace it. Callers reach the plug-in as a `Plugin`;
// hosting code (the editor session) reaches its host. Owned by the program state; main thread,
// or the processing thread while it owns the plug-in.
class PluginSlot {
  public:
    PluginSlot();
    ~PluginSlot();
    PluginSlot(const PluginSlot&) = delete;
    PluginSlot& operator=(const PluginSlot&) = delete;

    // Load and open the plug-in at `path` as that kind, at `processLevel` (the host callback's
    // answer), replacing any held. A VST 2 plug-in is told `sampleRate` (when not 0) before it
    // opens. Throw LoadFailure, leaving the slot empty, when it cannot be loaded.
    void openVst3(const std::string& path, int32_t processLevel);
    void openVst2(const std::string& path, int32_t processLevel, int32_t sampleRate);
    // The same from code already loaded, which stays loaded while the plug-in lives.
    void openVst2(std::shared_ptr<ModuleLibrary> module, int32_t processLevel, int32_t sampleRate);

    explicit operator bool() const { return host != nullptr; }
    Plugin& operator*() const;
    Plugin* operator->() const;
    PluginHost& pluginHost() const { return *host; }
    // Takes a host a loader has opened, closing any held (what it throws then is dropped).
    void adopt(std::unique_ptr<PluginHost> opened);
    // Closes the plug-in, if any, leaving the slot empty; throws PluginThrew when it threw.
    void close();

    // Closes the plug-in and opens a fresh instance of it from the code already loaded, at the
    // same process level, told `sampleRate` before it opens. Throws LoadFailure, leaving the slot
    // empty, when it cannot, and PluginThrew when the old instance threw as it closed.
    void reopen(int32_t sampleRate);

  private:
    std::unique_ptr<PluginHost> host;
};
