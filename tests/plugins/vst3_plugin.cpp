// A VST 3 gain effect built only for the tests; behaviour chosen by TEST_VST3 (see README.md).
#include "hosting/vst3/vst3_com.h"
#include "tests/plugins/call_log.h"

#include "pluginterfaces/base/ibstream.h"
#include "pluginterfaces/base/ipluginbase.h"
#include "pluginterfaces/gui/iplugview.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"
#include "pluginterfaces/vst/ivstparameterchanges.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace {

using namespace Steinberg;
using namespace Steinberg::Vst;

// What TEST_VST3 asked for, read when the module is entered; copied into each object.
struct Options {
    bool mono = false, doublePrecision = false, controllerState = false, editor = false,
         secondEffect = false, sideChain = false, allocate = false;
    uint32 latency = 0;  // reported once active, as by plug-ins whose delay follows the set-up
    std::string logPath; // TEST_VST3_LOG
};

// Ids deliberately not 0..n-1, so that index and id cannot be confused: gain (output = input x 2
// x value), polarity (inverts), bypass (output = input), program change (4 programs).
constexpr ParamID gainId = 100, polarityId = 7, bypassId = 300, programId = 400;
constexpr ParamID ids[] = {gainId, polarityId, bypassId, programId};
const TUID componentId = INLINE_UID(0x54455354, 0x56535433, 0x434F4D50, 0x00000001);
const TUID controllerId = INLINE_UID(0x54455354, 0x56535433, 0x4354524C, 0x00000002);
const TUID missingId = INLINE_UID(0x54455354, 0x56535433, 0x4D495353, 0x00000003);

// The values both sides keep, in the order of `ids`; the component's state is "TV3S" and the
// first three as float64.
struct Values {
    double value[4] = {0.5, 0.0, 0.0, 0.0};
    double* find(ParamID id) {
        for (int at = 0; at < 4; ++at)
            if (ids[at] == id)
                return &value[at];
        return nullptr;
    }
};

bool readExactly(IBStream* stream, void* buffer, int32 bytes) {
    int32 read = 0;
    return stream != nullptr && stream->read(buffer, bytes, &read) == kResultOk && read == bytes;
}

bool writeExactly(IBStream* stream, const void* buffer, int32 bytes) {
    int32 written = 0;
    return stream != nullptr &&
           stream->write(const_cast<void*>(buffer), bytes, &written) == kResultOk &&
           written == bytes;
}

bool readTagged(IBStream* stream, const char* tag, double* values, int32 count) {
    char read[4];
    return readExactly(stream, read, 4) && std::memcmp(read, tag, 4) == 0 &&
           readExactly(stream, values, 8 * count);
}

tresult answer(bool ok) {
    return ok ? kResultOk : kResultFalse;
}

// Reference counting and the interface queries of one object; `First` is the way to FUnknown.
template <typename Self, typename First, typename... More>
class Object : public First, public More... {
  public:
    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override {
        if (vst3_com::offerUnknown<First>(this, iid, object) ||
            vst3_com::offer<First>(this, iid, object) ||
            (vst3_com::offer<More>(this, iid, object) || ...))
            return kResultOk;
        if constexpr (std::is_base_of_v<IPluginBase, First>)
            if (vst3_com::offer<IPluginBase>(static_cast<First*>(this), iid, object))
                return kResultOk;
        return vst3_com::refuse(object);
    }
    uint32 PLUGIN_API addRef() override { return refs.add(); }
    uint32 PLUGIN_API release() override { return refs.drop(static_cast<Self*>(this)); }

  private:
    vst3_com::RefCount<Self> refs;
};

class Component final : public Object<Component, IComponent, IAudioProcessor> {
  public:
    explicit Component(const Options& options) : options(options), log(options.logPath.c_str()) {}

    tresult PLUGIN_API initialize(FUnknown*) override { return kResultOk; }
    tresult PLUGIN_API terminate() override { return kResultOk; }
    tresult PLUGIN_API getControllerClassId(TUID classId) override {
        std::memcpy(classId, controllerId, sizeof(TUID));
        return kResultTrue;
    }
    tresult PLUGIN_API setIoMode(IoMode) override { return kNotImplemented; }
    int32 PLUGIN_API getBusCount(MediaType type, BusDirection direction) override {
        return type != kAudio ? 0 : direction == kInput && options.sideChain ? 2 : 1;
    }
    // The side-chain is input bus 1: mono, auxiliary, inactive until activated.
    tresult PLUGIN_API getBusInfo(MediaType type, BusDirection direction, int32 index,
                                  BusInfo& bus) override {
        bus = index == 0 ? BusInfo{kAudio, direction, SpeakerArr::getChannelCount(arrangement),
                                   {},     kMain,     BusInfo::kDefaultActive}
                         : BusInfo{kAudio, direction, 1, {}, kAux, 0};
        return type == kAudio && index < getBusCount(type, direction) ? kResultOk
                                                                      : kInvalidArgument;
    }
    tresult PLUGIN_API getRoutingInfo(RoutingInfo&, RoutingInfo&) override {
        return kNotImplemented;
    }
    tresult PLUGIN_API activateBus(MediaType, BusDirection direction, int32 index,
                                   TBool state) override {
        check(!active, "activateBus while active");
        sideChainActive = direction == kInput && index == 1 ? state != 0 : sideChainActive;
        return kResultOk;
    }
    tresult PLUGIN_API setActive(TBool state) override {
        check(state || !processing, "setActive 0 while processing");
        active = state != 0;
        return kResultOk;
    }
    tresult PLUGIN_API setState(IBStream* state) override {
        return answer(readTagged(state, "TV3S", values.value, 3));
    }
    tresult PLUGIN_API getState(IBStream* state) override {
        return answer(writeExactly(state, "TV3S", 4) && writeExactly(state, values.value, 24));
    }
    tresult PLUGIN_API setBusArrangements(SpeakerArrangement* inputs, int32 numIns,
                                          SpeakerArrangement* outputs, int32 numOuts) override {
        check(!active, "setBusArrangements while active");
        if (numIns != getBusCount(kAudio, kInput) || numOuts != 1 || inputs[0] != outputs[0] ||
            (numIns == 2 && inputs[1] != SpeakerArr::kMono))
            return kResultFalse;
        arrangement = inputs[0];
        return kResultTrue;
    }
    tresult PLUGIN_API getBusArrangement(BusDirection direction, int32 index,
                                         SpeakerArrangement& result) override {
        result = index == 0 ? arrangement : SpeakerArr::kMono;
        return index < getBusCount(kAudio, direction) ? kResultOk : kInvalidArgument;
    }
    tresult PLUGIN_API canProcessSampleSize(int32 size) override {
        return size == kSample32 || (size == kSample64 && options.doublePrecision)
                   ? kResultTrue
                   : kNotImplemented;
    }
    uint32 PLUGIN_API getLatencySamples() override { return active ? options.latency : 0; }
    tresult PLUGIN_API setupProcessing(ProcessSetup& setup) override {
        log.line("setupProcessing " + std::to_string(setup.processMode) + " " +
                 std::to_string(setup.symbolicSampleSize) + " " +
                 std::to_string(setup.maxSamplesPerBlock) + " " +
                 test_effect::number(setup.sampleRate));
        check(!active, "setupProcessing while active");
        sampleSize = setup.symbolicSampleSize;
        return kResultOk;
    }
    tresult PLUGIN_API setProcessing(TBool state) override {
        check(!state || active, "setProcessing 1 while inactive");
        processing = state != 0;
        return kResultOk;
    }
    tresult PLUGIN_API process(ProcessData& data) override {
        check(processing, "process while not processing");
        check(data.symbolicSampleSize == sampleSize, "process with another sample size");
        check(!sideChainActive, "process with the side-chain active");
        applyChanges(data.inputParameterChanges);
        if (options.allocate) {
            void* volatile scratch = ::operator new(4096);
            ::operator delete(scratch);
        }
        if (data.numInputs >= 1 && data.numOutputs >= 1 && data.symbolicSampleSize == kSample64)
            render<double>(data);
        else if (data.numInputs >= 1 && data.numOutputs >= 1)
            render<float>(data);
        return kResultOk;
    }
    uint32 PLUGIN_API getTailSamples() override { return 0; }

  private:
    void check(bool kept, const char* rule) const {
        if (!kept)
            log.line(std::string("violation ") + rule);
    }

    void applyChanges(IParameterChanges* changes) {
        for (int32 index = 0; changes != nullptr && index < changes->getParameterCount(); ++index) {
            IParamValueQueue* queue = changes->getParameterData(index);
            int32 offset = 0;
            ParamValue value = 0.0;
            if (queue == nullptr ||
                queue->getPoint(queue->getPointCount() - 1, offset, value) != kResultOk)
                continue;
            if (log.enabled())
                log.line("paramChange " + std::to_string(queue->getParameterId()) + " " +
                         test_effect::number(value));
            if (double* slot = values.find(queue->getParameterId()))
                *slot = value;
        }
    }

    template <typename Sample> void render(ProcessData& data) {
        const double factor =
            *values.find(bypassId) >= 0.5
                ? 1.0
                : 2.0 * *values.find(gainId) * (*values.find(polarityId) >= 0.5 ? -1.0 : 1.0);
        // A side-chain is added in, then scribbled over: a host must lay down silence each block.
        Sample* side = data.numInputs > 1
                           ? reinterpret_cast<Sample**>(data.inputs[1].channelBuffers32)[0]
                           : nullptr;
        for (int32 channel = 0; channel < data.outputs[0].numChannels; ++channel) {
            auto* target = reinterpret_cast<Sample**>(data.outputs[0].channelBuffers32)[channel];
            const auto* source =
                reinterpret_cast<Sample**>(data.inputs[0].channelBuffers32)[channel];
            for (int32 frame = 0; frame < data.numSamples; ++frame)
                target[frame] =
                    static_cast<Sample>(source[frame] * factor + (side ? side[frame] : 0));
        }
        if (side != nullptr)
            std::fill_n(side, data.numSamples, Sample(0.5));
    }

    Options options;
    test_effect::CallLog log;
    Values values;
    SpeakerArrangement arrangement = options.mono ? SpeakerArr::kMono : SpeakerArr::kStereo;
    bool active = false, processing = false, sideChainActive = false;
    int32 sampleSize = kSample32;
};

// The editor: once attached it makes one edit of its own, Gain to 0.75, as a user turning a knob.
class View final : public Object<View, IPlugView> {
  public:
    explicit View(IComponentHandler* handler) : handler(handler) {}
    tresult PLUGIN_API isPlatformTypeSupported(FIDString type) override {
        return std::string_view(type) == kPlatformTypeX11EmbedWindowID ? kResultTrue : kResultFalse;
    }
    tresult PLUGIN_API attached(void*, FIDString) override {
        if (handler) {
            handler->beginEdit(gainId);
            handler->performEdit(gainId, 0.75);
            handler->endEdit(gainId);
        }
        return kResultOk;
    }
    tresult PLUGIN_API removed() override { return kResultOk; }
    tresult PLUGIN_API onWheel(float) override { return kResultFalse; }
    tresult PLUGIN_API onKeyDown(char16, int16, int16) override { return kResultFalse; }
    tresult PLUGIN_API onKeyUp(char16, int16, int16) override { return kResultFalse; }
    tresult PLUGIN_API getSize(ViewRect* out) override {
        *out = ViewRect(0, 0, 300, 150);
        return kResultOk;
    }
    tresult PLUGIN_API onSize(ViewRect*) override { return kResultOk; }
    tresult PLUGIN_API onFocus(TBool) override { return kResultOk; }
    tresult PLUGIN_API setFrame(IPlugFrame*) override { return kResultOk; }
    tresult PLUGIN_API canResize() override { return kResultFalse; }
    tresult PLUGIN_API checkSizeConstraint(ViewRect*) override { return kResultOk; }

  private:
    IPtr<IComponentHandler> handler;
};

class Controller final : public Object<Controller, IEditController> {
  public:
    explicit Controller(const Options& options) : options(options), log(options.logPath.c_str()) {}

    tresult PLUGIN_API initialize(FUnknown*) override { return kResultOk; }
    tresult PLUGIN_API terminate() override {
        handler = nullptr;
        return kResultOk;
    }
    tresult PLUGIN_API setComponentState(IBStream* state) override {
        return answer(readTagged(state, "TV3S", values.value, 3));
    }
    tresult PLUGIN_API setState(IBStream* state) override {
        if (!options.controllerState)
            return kNotImplemented;
        const bool ok = readTagged(state, "TV3C", &uiValue, 1);
        log.line("controllerSetState " + (ok ? test_effect::number(uiValue) : "refused"));
        return answer(ok);
    }
    tresult PLUGIN_API getState(IBStream* state) override {
        if (!options.controllerState)
            return kNotImplemented;
        return answer(writeExactly(state, "TV3C", 4) && writeExactly(state, &uiValue, 8));
    }
    int32 PLUGIN_API getParameterCount() override { return 4; }
    tresult PLUGIN_API getParameterInfo(int32 index, ParameterInfo& info) override {
        static constexpr const char* titles[] = {"Gain", "Polarity", "Bypass", "Program"};
        static constexpr int32 steps[] = {0, 1, 1, 3};
        static constexpr int32 flags[] = {ParameterInfo::kCanAutomate, ParameterInfo::kCanAutomate,
                                          ParameterInfo::kCanAutomate | ParameterInfo::kIsBypass,
                                          ParameterInfo::kIsProgramChange | ParameterInfo::kIsList};
        if (index < 0 || index >= 4)
            return kInvalidArgument;
        info = ParameterInfo{};
        info.id = ids[index];
        for (size_t at = 0; titles[index][at] != 0; ++at)
            info.title[at] = static_cast<char16>(titles[index][at]);
        info.stepCount = steps[index];
        info.flags = flags[index];
        info.defaultNormalizedValue = Values{}.value[index];
        return kResultOk;
    }
    tresult PLUGIN_API getParamStringByValue(ParamID, ParamValue, String128) override {
        return kNotImplemented;
    }
    tresult PLUGIN_API getParamValueByString(ParamID, TChar*, ParamValue&) override {
        return kNotImplemented;
    }
    ParamValue PLUGIN_API normalizedParamToPlain(ParamID, ParamValue value) override {
        return value;
    }
    ParamValue PLUGIN_API plainParamToNormalized(ParamID, ParamValue value) override {
        return value;
    }
    ParamValue PLUGIN_API getParamNormalized(ParamID id) override {
        return values.find(id) != nullptr ? *values.find(id) : 0.0;
    }
    tresult PLUGIN_API setParamNormalized(ParamID id, ParamValue value) override {
        if (values.find(id) == nullptr)
            return kInvalidArgument;
        *values.find(id) = value;
        return kResultOk;
    }
    tresult PLUGIN_API setComponentHandler(IComponentHandler* newHandler) override {
        handler = newHandler;
        return kResultOk;
    }
    IPlugView* PLUGIN_API createView(FIDString name) override {
        return options.editor && std::string_view(name) == ViewType::kEditor ? new View(handler)
                                                                             : nullptr;
    }

  private:
    Options options;
    test_effect::CallLog log;
    Values values;
    double uiValue = 0.0; // the controller-only state
    IPtr<IComponentHandler> handler;
};

class Factory final : public Object<Factory, IPluginFactory> {
  public:
    explicit Factory(const Options& options) : options(options) {}

    tresult PLUGIN_API getFactoryInfo(PFactoryInfo* info) override {
        *info = PFactoryInfo("Test Vendor", "", "", PFactoryInfo::kUnicode);
        return kResultOk;
    }
    int32 PLUGIN_API countClasses() override { return options.secondEffect ? 3 : 2; }
    tresult PLUGIN_API getClassInfo(int32 index, PClassInfo* info) override {
        if (index == 0)
            *info = PClassInfo(componentId, PClassInfo::kManyInstances, kVstAudioEffectClass,
                               "Test VST3 Gain");
        else if (index == 1)
            *info = PClassInfo(controllerId, PClassInfo::kManyInstances,
                               kVstComponentControllerClass, "Test VST3 Gain Controller");
        else if (index == 2 && options.secondEffect)
            *info = PClassInfo(missingId, PClassInfo::kManyInstances, kVstAudioEffectClass,
                               "Test VST3 Missing");
        return index >= 0 && index < countClasses() ? kResultOk : kInvalidArgument;
    }
    tresult PLUGIN_API createInstance(FIDString classId, FIDString iid, void** object) override {
        *object = nullptr;
        FUnknown* made = nullptr;
        if (std::memcmp(classId, componentId, sizeof(TUID)) == 0)
            made = static_cast<IComponent*>(new Component(options));
        else if (std::memcmp(classId, controllerId, sizeof(TUID)) == 0)
            made = static_cast<IEditController*>(new Controller(options));
        else
            return kInvalidArgument;
        TUID wanted;
        std::memcpy(wanted, iid, sizeof wanted);
        const tresult result = made->queryInterface(wanted, object);
        made->release();
        return result;
    }

  private:
    Options options;
};

// Comma-separated words; throws on one it does not know, so that a typo in a test cannot pass
// as the default.
Options optionsFromEnvironment() {
    Options options;
    std::string_view words = std::getenv("TEST_VST3") ? std::getenv("TEST_VST3") : "";
    for (size_t comma = 0; !words.empty();
         words.remove_prefix(comma == std::string_view::npos ? words.size() : comma + 1)) {
        comma = words.find(',');
        const auto word = words.substr(0, comma), number = word.substr(word.find('=') + 1);
        bool* flag = word == "mono"               ? &options.mono
                     : word == "double"           ? &options.doublePrecision
                     : word == "controller-state" ? &options.controllerState
                     : word == "editor"           ? &options.editor
                     : word == "second-effect"    ? &options.secondEffect
                     : word == "sidechain"        ? &options.sideChain
                     : word == "allocate"         ? &options.allocate
                                                  : nullptr;
        if (flag != nullptr)
            *flag = true;
        else if (!word.empty() &&
                 (!word.starts_with("latency=") || number.empty() ||
                  std::from_chars(number.data(), number.data() + number.size(), options.latency)
                          .ptr != number.data() + number.size()))
            throw std::invalid_argument("bad TEST_VST3 word: " + std::string(word));
    }
    if (const char* log = std::getenv("TEST_VST3_LOG"))
        options.logPath = log;
    return options;
}

// Read in ModuleEntry; a host that never calls it gets the defaults.
std::optional<Options> moduleOptions;

} // namespace

extern "C" {

__attribute__((visibility("default"))) bool ModuleEntry(void*) {
    try {
        moduleOptions = optionsFromEnvironment();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return false;
    }
    return true;
}

__attribute__((visibility("default"))) bool ModuleExit() {
    return true;
}

__attribute__((visibility("default"))) Steinberg::IPluginFactory* GetPluginFactory() {
    return new Factory(moduleOptions.value_or(Options{}));
}
}
