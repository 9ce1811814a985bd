#pragma once

#include "hosting/plugin_host.h"
#include "hosting/plugin_slot.h"

// The host of the slot's plug-in when it has an editor to show; null otherwise (no plug-in, or
// one without an editor).
inline PluginHost* hostWithEditor(PluginSlot& plugin) {
    if (!plugin)
        return nullptr;
    PluginHost& host = plugin.pluginHost();
    return host.effect() != nullptr && host.hasEditor() ? &host : nullptr;
}
