#pragma once

#include "hosting/vst3/vst3_chunk.h"
#include "hosting/vst3/vst3_parameters.h"
#include "hosting/vst3/vst3_plugin_parts.h"
#include "hosting/vst3/vst3_processing.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

namespace vst3 {

// The plug-in's state in and out of the bridge as a VST 2 chunk (vst3_chunk.h), whether a state
// is being loaded, and settling the values still queued before a state is read. Owned by the
// bridge. Chunks and settling come from the thread that owns the plug-in host, under the
// lifecycle lock; the UI thread reads the loading flag.
class Vst3StateTransfer {
  public:
    Vst3StateTransfer(const Vst3PluginParts& parts, Vst3Processing& processing,
                      Vst3Parameters& parameters)
        : parts(parts), processing(processing), parameters(parameters) {}

    // The component's and the controller's state as one chunk, which stays ours until the next
    // call; 0 when neither side has any.
    intptr_t getChunk(void* ptr);
    // The two parts of the chunk `ptr` points at; none when the bytes cannot be one.
    static std::optional<vst3_chunk::Parts> readChunk(intptr_t length, const void* ptr);
    // Gives each side its part. Expects a state load to be under way.
    void loadChunk(const vst3_chunk::Parts& chunkParts);

    void setLoading(bool on) { loadingState = on; }
    bool loading() const { return loadingState; }
    // Runs one frame of silence through the processor when values are still queued (an empty
    // block is not enough for every plug-in).
    void settle();

  private:
    const Vst3PluginParts& parts;
    Vst3Processing& processing;
    Vst3Parameters& parameters;
    std::vector<uint8_t> chunk;
    std::atomic<bool> loadingState{false};
};

} // namespace vst3
