#pragma once

#include "hosting/vst2/vst2_abi.h"

#include <algorithm>
#include <vector>

// A plug-in record whose dispatcher records every call and the speaker arrangements it is sent;
// pin types and parameters come from the test.
struct FakeEffect {
    struct Call {
        int32_t opcode;
        int32_t index;
        intptr_t value;
    };

    FakeEffect() {
        effect.magic = kEffectMagic;
        effect.dispatcher = &FakeEffect::dispatch;
        effect.processReplacing = [](AEffect*, float**, float**, int32_t) {};
        effect.setParameter = &FakeEffect::setParameter;
        effect.getParameter = [](AEffect* e, int32_t index) { return of(e).parameters.at(index); };
        effect.numInputs = 2;
        effect.numOutputs = 2;
        effect.flags = effFlagsCanReplacing;
        effect.object = this;
    }

    static FakeEffect& of(AEffect* e) { return *static_cast<FakeEffect*>(e->object); }

    static intptr_t dispatch(AEffect* e, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                             float) {
        auto& self = of(e);
        self.calls.push_back({opcode, index, value});
        if (opcode == effSetSpeakerArrangement)
            for (const auto* side : {reinterpret_cast<VstSpeakerArrangement*>(value),
                                     static_cast<VstSpeakerArrangement*>(ptr)}) {
                self.arrangements.push_back({side->type, side->numChannels});
                for (int32_t s = 0; s < std::min(side->numChannels, kSpeakerArrMaxSpeakers); ++s)
                    self.arrangements.back().push_back(side->speakers[s].type);
            }
        if ((opcode == effGetInputProperties || opcode == effGetOutputProperties) && ptr) {
            const auto& types =
                opcode == effGetInputProperties ? self.inputTypes : self.outputTypes;
            if (static_cast<size_t>(index) < types.size())
                static_cast<VstPinProperties*>(ptr)->arrangementType =
                    types[static_cast<size_t>(index)];
        }
        return 0;
    }

    static void setParameter(AEffect* e, int32_t index, float value) {
        auto& self = of(e);
        self.parameterWrites.push_back(index);
        if (index >= 0 && static_cast<size_t>(index) < self.parameters.size())
            self.parameters[static_cast<size_t>(index)] = value;
    }

    void withParameters(std::vector<float> values) {
        parameters = std::move(values);
        effect.numParams = static_cast<int32_t>(parameters.size());
    }

    AEffect effect{};
    std::vector<Call> calls;
    std::vector<float> parameters;
    std::vector<int32_t> parameterWrites;
    std::vector<int32_t> inputTypes, outputTypes;
    std::vector<std::vector<int32_t>> arrangements; // each side: type, count, speaker types
};
