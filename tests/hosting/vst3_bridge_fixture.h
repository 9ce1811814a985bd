#pragma once

#include "hosting/vst2/vst2_abi.h"
#include "hosting/vst3/vst3_bridge.h"
#include "hosting/vst3/vst3_module.h"
#include "tests/common/vst3_bundles.h"
#include "tests/hosting/vst3_test_environment.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

// What the bridge asked of its host, and the host's answers. Found through AEffect::user.
struct RecordingHost {
    struct Call {
        int32_t opcode;
        int32_t index;
        intptr_t value;
        float opt;
    };

    static intptr_t callback(AEffect* effect, int32_t opcode, int32_t index, intptr_t value, void*,
                             float opt) {
        if (effect == nullptr || effect->user == nullptr)
            return 0;
        auto& host = *static_cast<RecordingHost*>(effect->user);
        host.calls.push_back({opcode, index, value, opt});
        switch (opcode) {
        case audioMasterGetTime:
            return reinterpret_cast<intptr_t>(&host.time);
        case audioMasterGetCurrentProcessLevel:
            return host.processLevel;
        case audioMasterSizeWindow:
            return host.resizes ? 1 : 0;
        case audioMasterUpdateDisplay:
            // As our host does: a display update idles the editor at once.
            if (host.idleOnUpdateDisplay)
                effect->dispatcher(effect, effEditIdle, 0, 0, nullptr, 0.0f);
            return 0;
        default:
            return 0;
        }
    }

    std::vector<Call> callsOf(int32_t opcode) const {
        std::vector<Call> found;
        for (const auto& call : calls)
            if (call.opcode == opcode)
                found.push_back(call);
        return found;
    }

    std::vector<Call> calls;
    VstTimeInfo time{0, 44100, 0, 0, 120.0, 0, 0,
                     0, 4,     4, 0, 0,     0, kVstTempoValid | kVstTimeSigValid};
    intptr_t processLevel = kVstProcessLevelOffline;
    bool resizes = true;
    bool idleOnUpdateDisplay = false;
};

// One bridged instance of the test plug-in with TEST_VST3 `words`, loaded into this process.
class BridgeRig {
  public:
    BridgeRig(const std::string& tag, const std::string& words)
        : layouts("bridge-" + tag), logPath(layouts.file("log")), environment(words, logPath) {
        module = Vst3Module::load(layouts.bundle("Gain", TEST_VST3_PATH));
        if (!module)
            return;
        for (const auto& info : module->classes()) {
            if (!info.isAudioModule())
                continue;
            Steinberg::TUID id;
            std::memcpy(id, info.classId.data(), sizeof id);
            wrapper = vst3::Vst3Bridge::create(&module->factory(), id, 0,
                                                          &RecordingHost::callback);
        }
        if (wrapper != nullptr) {
            effect = wrapper->getAEffect();
            effect->user = &host;
        }
    }
    ~BridgeRig() { close(); }
    BridgeRig(const BridgeRig&) = delete;
    BridgeRig& operator=(const BridgeRig&) = delete;

    intptr_t dispatch(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr,
                      float opt = 0.0f) {
        return effect->dispatcher(effect, opcode, index, value, ptr, opt);
    }
    void close() {
        if (effect != nullptr)
            dispatch(effClose);
        effect = nullptr;
        wrapper = nullptr;
        module.reset();
    }
    // The start our host makes: open, block size, resume.
    void openAndResume() {
        dispatch(effOpen);
        dispatch(effSetBlockSize, 0, 512);
        dispatch(effMainsChanged, 0, 1);
    }
    // One block of `frames` through processReplacing, input channel c holding `level` (c + 1).
    std::vector<std::vector<float>> process(int32_t frames, float level = 0.25f) {
        std::vector<std::vector<float>> in(static_cast<size_t>(effect->numInputs)),
            out(static_cast<size_t>(effect->numOutputs),
                std::vector<float>(static_cast<size_t>(frames), 9.0f));
        std::vector<float*> inPointers, outPointers;
        for (size_t c = 0; c < in.size(); ++c) {
            in[c].assign(static_cast<size_t>(frames), level * static_cast<float>(c + 1));
            inPointers.push_back(in[c].data());
        }
        for (auto& channel : out)
            outPointers.push_back(channel.data());
        effect->processReplacing(effect, inPointers.data(), outPointers.data(), frames);
        return out;
    }
    std::vector<std::string> log() const { return testing_support::readLines(logPath); }
    // The log lines written since the last call.
    std::vector<std::string> newLog() {
        auto lines = log();
        std::vector<std::string> fresh(
            lines.begin() + static_cast<std::ptrdiff_t>(std::min(seen, lines.size())), lines.end());
        seen = lines.size();
        return fresh;
    }

    testing_support::Vst3Layouts layouts;
    std::string logPath;
    Vst3TestEnvironment environment;
    std::shared_ptr<Vst3Module> module;
    vst3::Vst3Bridge* wrapper = nullptr;
    AEffect* effect = nullptr;
    RecordingHost host;

  private:
    size_t seen = 0;
};

inline bool contains(const std::vector<std::string>& lines, const std::string& line) {
    return testing_support::countLines(lines, line) > 0;
}
