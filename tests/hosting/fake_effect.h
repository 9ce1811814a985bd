#pragma once

#include "hosting/editor/editor_window.h"
#include "hosting/vst2/vst2_abi.h"

#include <functional>
#include <string>
#include <vector>

// A plug-in record whose dispatcher records every call and answers from a table the test sets.
struct FakeEffect {
    struct Call {
        int32_t opcode;
        int32_t index;
        intptr_t value;
        float opt;
    };

    FakeEffect() {
        effect.magic = kEffectMagic;
        effect.dispatcher = &FakeEffect::dispatch;
        effect.processReplacing = &FakeEffect::processFloat;
        effect.process = &FakeEffect::accumulate;
        effect.processDoubleReplacing = &FakeEffect::processDouble;
        effect.setParameter = &FakeEffect::setParameter;
        effect.getParameter = &FakeEffect::getParameter;
        effect.numInputs = 2;
        effect.numOutputs = 2;
        effect.flags = effFlagsCanReplacing;
        effect.object = this;
    }

    static FakeEffect& of(AEffect* e) { return *static_cast<FakeEffect*>(e->object); }

    static intptr_t dispatch(AEffect* e, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                             float opt) {
        auto& self = of(e);
        self.calls.push_back({opcode, index, value, opt});
        if (opcode == effSetSpeakerArrangement)
            self.lastArrangement = *static_cast<VstSpeakerArrangement*>(ptr);
        if ((opcode == effGetInputProperties || opcode == effGetOutputProperties) && ptr) {
            const auto& types =
                opcode == effGetInputProperties ? self.inputTypes : self.outputTypes;
            if (static_cast<size_t>(index) < types.size())
                static_cast<VstPinProperties*>(ptr)->arrangementType =
                    types[static_cast<size_t>(index)];
        }
        if (self.onDispatch)
            return self.onDispatch(opcode, index, value, ptr, opt);
        return 0;
    }

    static void processFloat(AEffect* e, float** in, float** out, int32_t frames) {
        auto& self = of(e);
        self.processed.push_back("replacing");
        self.lastFloatPins.assign(in, in + e->numInputs);
        self.lastFloatPins.insert(self.lastFloatPins.end(), out, out + e->numOutputs);
        for (int32_t c = 0; c < e->numOutputs && frames > 0; ++c)
            for (int32_t i = 0; i < frames; ++i)
                out[c][i] = c < e->numInputs ? in[c][i] + 1.0f : 1.0f;
    }

    static void accumulate(AEffect* e, float** in, float** out, int32_t frames) {
        of(e).processed.push_back("accumulating");
        for (int32_t c = 0; c < e->numOutputs && frames > 0; ++c)
            for (int32_t i = 0; i < frames; ++i)
                out[c][i] += c < e->numInputs ? in[c][i] : 0.0f;
    }

    static void processDouble(AEffect* e, double**, double**, int32_t) {
        of(e).processed.push_back("double");
    }

    // Parameters live in `parameters`; numParams follows withParameters().
    static void setParameter(AEffect* e, int32_t index, float value) {
        auto& self = of(e);
        self.parameterWrites.push_back(index);
        if (index >= 0 && static_cast<size_t>(index) < self.parameters.size())
            self.parameters[static_cast<size_t>(index)] = value;
    }

    static float getParameter(AEffect* e, int32_t index) {
        const auto& self = of(e);
        return index >= 0 && static_cast<size_t>(index) < self.parameters.size()
                   ? self.parameters[static_cast<size_t>(index)]
                   : 0.0f;
    }

    void withParameters(std::vector<float> values) {
        parameters = std::move(values);
        effect.numParams = static_cast<int32_t>(parameters.size());
    }

    std::vector<int32_t> opcodes() const {
        std::vector<int32_t> result;
        for (const auto& call : calls)
            result.push_back(call.opcode);
        return result;
    }

    AEffect effect{};
    std::vector<Call> calls;
    std::vector<std::string> processed;
    std::vector<float> parameters;
    std::vector<int32_t> parameterWrites;
    std::vector<float*> lastFloatPins;
    std::vector<int32_t> inputTypes, outputTypes;
    VstSpeakerArrangement lastArrangement{};
    std::function<intptr_t(int32_t, int32_t, intptr_t, void*, float)> onDispatch;
};

// A window that remembers the sizes it was given.
struct FakeWindow final : EditorWindow {
    void setContentSize(int width, int height) override { sizes.push_back({width, height}); }
    void* nativeHandle() const override { return nullptr; }
    std::vector<std::pair<int, int>> sizes;
};
