#pragma once

#include "hosting/vst3/vst3_com.h"
#include "tests/plugins/call_log.h"

#include "pluginterfaces/base/ibstream.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"

#include <string>

// A VST 3 gain effect built only for the tests; behaviour chosen by TEST_VST3 (see README.md).
namespace test_vst3 {

using namespace Steinberg;
using namespace Steinberg::Vst;

// What TEST_VST3 asked for, read when the module is entered; copied into each object.
struct Options {
    bool mono = false;
    bool doublePrecision = false;
    bool controllerState = false;
    bool editor = false;
    uint32 latency = 0;  // reported once active, as by plug-ins whose delay follows the set-up
    std::string logPath; // TEST_VST3_LOG
};

// Throws std::invalid_argument naming a word it does not know, so a typo cannot pass as default.
Options optionsFromEnvironment();

// Ids deliberately not 0..n-1, so that index and id cannot be confused.
inline constexpr ParamID gainId = 100;    // output = input x 2 x value
inline constexpr ParamID polarityId = 7;  // switch: inverts the output
inline constexpr ParamID bypassId = 300;  // bypass: output = input
inline constexpr ParamID programId = 400; // program change, 4 programs
inline constexpr int32 parameterCount = 4;

// The values both sides keep; the component's state is "TV3S" and the first three as float64.
struct Values {
    double gain = 0.5;
    double polarity = 0.0;
    double bypass = 0.0;
    double program = 0.0;

    double* find(ParamID id);
};

bool readValues(IBStream& stream, Values& values);
bool writeValues(IBStream& stream, const Values& values);
const TUID& controllerClassId();

class Controller final : public IEditController {
  public:
    explicit Controller(const Options& options) : options(options), log(options.logPath.c_str()) {}

    tresult PLUGIN_API initialize(FUnknown*) override { return kResultOk; }
    tresult PLUGIN_API terminate() override;
    tresult PLUGIN_API setComponentState(IBStream* state) override;
    tresult PLUGIN_API setState(IBStream* state) override;
    tresult PLUGIN_API getState(IBStream* state) override;
    int32 PLUGIN_API getParameterCount() override { return parameterCount; }
    tresult PLUGIN_API getParameterInfo(int32 index, ParameterInfo& info) override;
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
    ParamValue PLUGIN_API getParamNormalized(ParamID id) override;
    tresult PLUGIN_API setParamNormalized(ParamID id, ParamValue value) override;
    tresult PLUGIN_API setComponentHandler(IComponentHandler* newHandler) override {
        handler = newHandler;
        return kResultOk;
    }
    IPlugView* PLUGIN_API createView(FIDString name) override;

    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override;
    uint32 PLUGIN_API addRef() override { return refs.add(); }
    uint32 PLUGIN_API release() override { return refs.drop(this); }

  private:
    vst3_com::RefCount<Controller> refs;
    Options options;
    test_effect::CallLog log;
    Values values;
    double uiValue = 0.0; // the controller-only state
    IPtr<IComponentHandler> handler;
};

class Component final : public IComponent, public IAudioProcessor {
  public:
    explicit Component(const Options& options) : options(options), log(options.logPath.c_str()) {}

    tresult PLUGIN_API initialize(FUnknown*) override;
    tresult PLUGIN_API terminate() override { return kResultOk; }
    tresult PLUGIN_API getControllerClassId(TUID classId) override;
    tresult PLUGIN_API setIoMode(IoMode) override { return kNotImplemented; }
    int32 PLUGIN_API getBusCount(MediaType type, BusDirection) override {
        return type == kAudio ? 1 : 0;
    }
    tresult PLUGIN_API getBusInfo(MediaType type, BusDirection direction, int32 index,
                                  BusInfo& bus) override;
    tresult PLUGIN_API getRoutingInfo(RoutingInfo&, RoutingInfo&) override {
        return kNotImplemented;
    }
    tresult PLUGIN_API activateBus(MediaType, BusDirection, int32, TBool) override;
    tresult PLUGIN_API setActive(TBool state) override;
    tresult PLUGIN_API setState(IBStream* state) override;
    tresult PLUGIN_API getState(IBStream* state) override;

    tresult PLUGIN_API setBusArrangements(SpeakerArrangement* inputs, int32 numIns,
                                          SpeakerArrangement* outputs, int32 numOuts) override;
    tresult PLUGIN_API getBusArrangement(BusDirection, int32 index,
                                         SpeakerArrangement& result) override;
    tresult PLUGIN_API canProcessSampleSize(int32 size) override;
    uint32 PLUGIN_API getLatencySamples() override { return active ? options.latency : 0; }
    tresult PLUGIN_API setupProcessing(ProcessSetup& setup) override;
    tresult PLUGIN_API setProcessing(TBool state) override;
    tresult PLUGIN_API process(ProcessData& data) override;
    uint32 PLUGIN_API getTailSamples() override { return 0; }

    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override;
    uint32 PLUGIN_API addRef() override { return refs.add(); }
    uint32 PLUGIN_API release() override { return refs.drop(this); }

  private:
    void violation(const std::string& what) const { log.line("violation " + what); }
    template <typename Sample> void render(ProcessData& data);

    vst3_com::RefCount<Component> refs;
    Options options;
    test_effect::CallLog log;
    Values values;
    SpeakerArrangement arrangement = 0;
    bool active = false;
    bool processing = false;
    int32 sampleSize = kSample32;
};

} // namespace test_vst3
