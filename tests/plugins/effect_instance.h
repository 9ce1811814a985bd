#pragma once

#include "hosting/vst2/vst2_abi.h"
#include "tests/plugins/call_log.h"
#include "tests/plugins/effect_options.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace test_effect {

// Which export the host called; an instance made through "main" says so.
enum class Entry { vstPluginMain, main };

// A ring of N samples: what goes in comes out N pushes later. Kept in double so that the float
// and the double paths both pass samples through unchanged.
class DelayLine {
  public:
    explicit DelayLine(size_t frames) : samples(frames, 0.0) {}
    double push(double sample) {
        if (samples.empty())
            return sample;
        std::swap(sample, samples[position]);
        position = (position + 1) % samples.size();
        return sample;
    }
    void clear() {
        std::fill(samples.begin(), samples.end(), 0.0);
        position = 0;
    }

  private:
    std::vector<double> samples;
    size_t position = 0;
};

// One plug-in instance. Made by the entry function, destroyed by effClose; the host calls it
// from its main thread and from its processing thread, never from both at once.
class TestEffect {
  public:
    TestEffect(const Options& options, audioMasterCallback host, Entry entry, CallLog log);

    AEffect& record() { return effect; }
    void askHostAtEntry();
    intptr_t dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt);
    void setParameter(int32_t index, float value);
    float getParameter(int32_t index) const;
    template <typename Sample>
    void process(std::string_view name, Sample** inputs, Sample** outputs, int32_t frames,
                 bool accumulate);

  private:
    intptr_t ask(int32_t opcode, intptr_t value = 0, void* ptr = nullptr);
    void askTimeAndIdle();
    std::string askText(int32_t opcode);
    intptr_t open();
    void resume();
    bool isParameter(int32_t index) const {
        return index >= 0 && static_cast<size_t>(index) < parameters.size();
    }
    std::string parameterText(int32_t opcode, int32_t index) const;
    intptr_t pinProperties(bool input, int32_t index, void* ptr) const;
    intptr_t setSpeakerArrangement(const VstSpeakerArrangement* input,
                                   const VstSpeakerArrangement* output) const;
    intptr_t getChunk(void* ptr);
    intptr_t setChunk(intptr_t size, const void* data);
    intptr_t editorCall(int32_t opcode, void* ptr);
    intptr_t processPrecision(intptr_t precision) const;
    double gain() const { return parameters.empty() ? 1.0 : loadParameter(0); }
    // Editors change parameters on the main thread while audio runs on another, as in real
    // plug-ins: each value is read and written whole.
    float loadParameter(size_t index) const {
        return std::atomic_ref<float>(const_cast<float&>(parameters[index]))
            .load(std::memory_order_relaxed);
    }
    void storeParameter(size_t index, float value) {
        std::atomic_ref<float>(parameters[index]).store(value, std::memory_order_relaxed);
    }

    AEffect effect{};
    Options options;
    audioMasterCallback host;
    Entry entry;
    CallLog log;
    std::vector<float> parameters;
    std::vector<DelayLine> delayLines;
    std::vector<char> chunk;
    ERect editorRect{};
    void actLikeAUser();
    int64_t framesProcessed = 0;
    int editorOpens = 0;
    int editorCloses = 0;
    int editorIdles = 0;
};

// Turns a finished instance into the record the entry function returns; effClose deletes it.
AEffect* handOver(std::unique_ptr<TestEffect> instance);

// Writes a line naming `where` to standard output, once through printf and once through write(1).
void say(std::string_view where);
// Ends the process the way TEST_EFFECT asks for at `place`: exit(3) or SIGSEGV, logged first.
void leaveIfAsked(const Options& options, const CallLog& log, std::string_view place);

} // namespace test_effect
