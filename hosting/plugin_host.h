#pragma once

#include <cstdint>

// Owns the one loaded plug-in for the whole run of a command. Main thread, or the processing
// thread while it owns the plug-in.
class PluginHost {
public:
    PluginHost() = default;
    PluginHost(const PluginHost&) = delete;
    PluginHost& operator=(const PluginHost&) = delete;

    // Stored now, sent to the plug-in once one is attached.
    void setSampleRate(int32_t rate) { sampleRate = rate; }

    bool hasEditorFlag() const { return false; }
    int32_t parameterCount() const { return 0; }

    int32_t processLevel = 4;
    int32_t sampleRate = 0;
};
