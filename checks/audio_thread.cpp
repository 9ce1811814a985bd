#include "checks/audio_thread.h"

#include "checks/check_common.h"

#include <stdexcept>

AudioThread::AudioThread(PluginUnderTest& plugin) : plugin(plugin) {
    thread = std::thread([this] { run(); });
    while (!ready && !ended)
        std::this_thread::yield();
}

AudioThread::~AudioThread() {
    stop();
}

void AudioThread::stop() {
    finish = true;
    if (thread.joinable())
        thread.join();
}

void AudioThread::waitForBlocks(uint64_t count) const {
    const uint64_t until = processed + count;
    while (processed < until && !ended)
        std::this_thread::yield();
}

void AudioThread::run() {
    try {
        if (!plugin.configure(checkRate, checkChannels, checkChannels))
            throw std::runtime_error("the plug-in refused the audio thread's format");
        const Audio input = noise(plugin.inputs(), Plugin::blockFrames, 43);
        ready = true;
        while (!finish) {
            if (hasNonFinite(plugin.process(input)))
                throw std::runtime_error(
                    "NaN or infinity in the output while another thread used the plug-in");
            ++processed;
        }
    } catch (const std::exception& error) {
        failure = error.what();
    }
    ended = true;
}
