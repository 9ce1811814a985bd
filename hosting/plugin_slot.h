#pragma once

#include "hosting/plugin_host.h"

#include <memory>

// The one place the loaded plug-in lives for a run: its host, and through it where the plug-in
// came from, so that a fresh instance can replace it. Owned by the program state; main thread,
// or the processing thread while it owns the plug-in.
class PluginSlot {
  public:
    PluginSlot() = default;
    PluginSlot& operator=(std::unique_ptr<PluginHost> loaded) {
        host = std::move(loaded);
        return *this;
    }

    explicit operator bool() const { return host != nullptr; }
    PluginHost& operator*() const { return *host; }
    PluginHost* operator->() const { return host.get(); }
    PluginHost* get() const { return host.get(); }
    // Closes the plug-in, if any, leaving the slot empty; throws PluginThrew when it threw.
    void close();

    // Closes the plug-in and opens a fresh instance of it from the code already loaded, at the
    // same process level, told `sampleRate` before it opens. Throws LoadFailure, leaving the
    // slot empty, when it cannot, and PluginThrew when the old instance threw as it closed.
    void reopen(int32_t sampleRate);

  private:
    std::unique_ptr<PluginHost> host;
};
