#pragma once

#include <cstdint>
#include <vector>

class PluginHost;

// Settings bytes in and out of the loaded plug-in. The layout depends on the plug-in: one
// little-endian float per parameter, or the plug-in's own bank chunk when it keeps one; VST 3
// plug-ins go through the bridge's preset layouts. Exceptions thrown by plug-in code pass through.

// Applies settings bytes; nothing happens without a plug-in or without bytes.
void loadState(PluginHost& host, const uint8_t* bytes, uint64_t length);

// The plug-in's current settings; empty without a plug-in or when it offers none.
std::vector<uint8_t> saveState(PluginHost& host);
