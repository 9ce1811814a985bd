#pragma once

#include "checks/plugin_under_test.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

// A second thread that runs a plug-in's audio while the check's thread plays the editor: it
// configures the plug-in (the thread that processes also configures, as in a live host), then
// processes noise until stopped, noting the first block that is not finite or could not be
// processed. Starting waits until the format is set.
class AudioThread {
  public:
    explicit AudioThread(PluginUnderTest& plugin);
    ~AudioThread();
    AudioThread(const AudioThread&) = delete;
    AudioThread& operator=(const AudioThread&) = delete;

    void stop();
    uint64_t blocks() const { return processed; }
    // Returns once `count` more blocks are processed, or the thread has ended.
    void waitForBlocks(uint64_t count) const;
    bool stopped() const { return ended; }
    // What went wrong, if anything; read once stopped().
    const std::string& problem() const { return failure; }

  private:
    void run();

    PluginUnderTest& plugin;
    std::atomic<bool> ready{false};
    std::atomic<bool> finish{false};
    std::atomic<bool> ended{false};
    std::atomic<uint64_t> processed{0};
    std::string failure;
    std::thread thread;
};
