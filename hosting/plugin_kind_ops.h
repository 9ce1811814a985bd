#pragma once

#include "hosting/plugin.h"

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

class PluginHost;
class PollRunLoop;

// What differs between the kinds of plug-in that the host drives through one record: who they
// say they are, how parameters are numbered, the form their settings take, whether the rate
// reaches them only while they open, and what their editor needs from the event loop. Made by
// the loader for the plug-in it opened (hosting/vst2, hosting/vst3) and owned by its host; the
// host's threads.
class PluginKindOps {
  public:
    virtual ~PluginKindOps() = default;

    virtual PluginKind kind() const = 0;
    virtual PluginIdentity identity(const PluginHost& host) const = 0;
    virtual uint32_t parameterNumber(int32_t index) const = 0;
    // Exceptions thrown by plug-in code pass through.
    virtual void loadState(PluginHost& host, std::span<const uint8_t> bytes) = 0;
    virtual std::vector<uint8_t> saveState(PluginHost& host) = 0;
    // Whether the plug-in may read the rate only while it opens, so that a fresh instance is
    // the only way to tell it another.
    virtual bool learnsRateOnlyWhenOpening() const = 0;
    // Registers what the editor's event loop must wait on besides the window; `idle` runs when
    // any of it is due. Main thread.
    virtual void watchEditorEvents(PollRunLoop& loop, std::function<void()> idle) const = 0;
};
