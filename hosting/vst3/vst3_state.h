#pragma once

#include <cstdint>
#include <vector>

class PluginHost;

// The settings layouts of a bridged VST 3 plug-in (the host holds its bridge): a preset image
// written by the adapter, or on input also a flat list of (id, normalised value) records.
void loadVst3State(PluginHost& host, const uint8_t* bytes, uint64_t length);
std::vector<uint8_t> saveVst3State(PluginHost& host);
