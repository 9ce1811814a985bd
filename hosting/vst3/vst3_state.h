#pragma once

#include <cstdint>
#include <vector>

class PluginHost;
namespace vst3 {
class Vst3Bridge;
}

// The settings layouts of a bridged VST 3 plug-in (`host` holds its record): a preset image
// written by the adapter, or on input also a flat list of (id, normalised value) records.
void loadVst3State(vst3::Vst3Bridge& bridge, const uint8_t* bytes, uint64_t length);
std::vector<uint8_t> saveVst3State(vst3::Vst3Bridge& bridge, PluginHost& host);
