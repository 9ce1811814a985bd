#pragma once

#include "hosting/vst3/vst3_com.h"
#include "tests/plugins/call_log.h"
#include "tests/plugins/vst3_options.h"

#include "pluginterfaces/base/ibstream.h"
#include "pluginterfaces/gui/iplugview.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"
#include "pluginterfaces/vst/ivstmessage.h"

#include <string>

// A VST 3 gain effect built only for the tests; behaviour chosen by TEST_VST3 (see README.md).
namespace test_vst3 {

using namespace Steinberg;
using namespace Steinberg::Vst;

// Ids deliberately not 0..n-1, so that index and id cannot be confused.
inline constexpr ParamID gainId = 100;    // output = input x 2 x value
inline constexpr ParamID polarityId = 7;  // switch: inverts the output
inline constexpr ParamID levelId = 200;   // read-only meter: the block's output peak
inline constexpr ParamID bypassId = 300;  // bypass: output = input
inline constexpr ParamID programId = 400; // program change, 4 programs
inline constexpr int32 parameterCount = 5;

// The values both sides keep; the component's state is "TV3S" and these as float64.
struct Values {
    double gain = 0.5;
    double polarity = 0.0;
    double bypass = 0.0;
    double program = 0.0;

    double* find(ParamID id);
};

bool readValues(IBStream& stream, Values& values);
bool writeValues(IBStream& stream, const Values& values);

const TUID& componentClassId();
const TUID& controllerClassId();

// The edit controller, shared by the separate controller class and the single-component object.
// Its FUnknown and IPluginBase methods belong to the concrete class.
class ControllerBase : public IEditController {
  public:
    ControllerBase(const Options& options, std::string side)
        : options(options), log(options.logPath.c_str()), side(std::move(side)) {}

    tresult PLUGIN_API setComponentState(IBStream* state) override;
    tresult PLUGIN_API setState(IBStream* state) override;
    tresult PLUGIN_API getState(IBStream* state) override;
    int32 PLUGIN_API getParameterCount() override { return parameterCount; }
    tresult PLUGIN_API getParameterInfo(int32 index, ParameterInfo& info) override;
    tresult PLUGIN_API getParamStringByValue(ParamID id, ParamValue value, String128 text) override;
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
    tresult PLUGIN_API setComponentHandler(IComponentHandler* handler) override;
    IPlugView* PLUGIN_API createView(FIDString name) override;

  protected:
    void receive(IMessage* message);

    Options options;
    test_effect::CallLog log;
    std::string side;
    Values values;
    double level = 0.0;
    double uiValue = 0.0; // the controller-only state
    IPtr<IComponentHandler> handler;
};

class Controller final : public ControllerBase, public IConnectionPoint {
  public:
    explicit Controller(const Options& options) : ControllerBase(options, "controller") {}

    tresult PLUGIN_API initialize(FUnknown* context) override;
    tresult PLUGIN_API terminate() override;
    tresult PLUGIN_API connect(IConnectionPoint* other) override;
    tresult PLUGIN_API disconnect(IConnectionPoint* other) override;
    tresult PLUGIN_API notify(IMessage* message) override;

    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override;
    uint32 PLUGIN_API addRef() override { return refs.add(); }
    uint32 PLUGIN_API release() override { return refs.drop(this); }

  private:
    vst3_com::RefCount<Controller> refs;
    IPtr<IConnectionPoint> peer;
};

// Component and processor; with "single" also its own controller.
class Component final : public IComponent,
                        public IAudioProcessor,
                        public IConnectionPoint,
                        public ControllerBase {
  public:
    explicit Component(const Options& options) : ControllerBase(options, "component") {}

    tresult PLUGIN_API initialize(FUnknown* context) override;
    tresult PLUGIN_API terminate() override;

    tresult PLUGIN_API getControllerClassId(TUID classId) override;
    tresult PLUGIN_API setIoMode(IoMode) override { return kNotImplemented; }
    int32 PLUGIN_API getBusCount(MediaType type, BusDirection direction) override;
    tresult PLUGIN_API getBusInfo(MediaType type, BusDirection direction, int32 index,
                                  BusInfo& bus) override;
    tresult PLUGIN_API getRoutingInfo(RoutingInfo&, RoutingInfo&) override {
        return kNotImplemented;
    }
    tresult PLUGIN_API activateBus(MediaType type, BusDirection direction, int32 index,
                                   TBool state) override;
    tresult PLUGIN_API setActive(TBool state) override;
    tresult PLUGIN_API setState(IBStream* state) override;
    tresult PLUGIN_API getState(IBStream* state) override;

    tresult PLUGIN_API setBusArrangements(SpeakerArrangement* inputs, int32 numIns,
                                          SpeakerArrangement* outputs, int32 numOuts) override;
    tresult PLUGIN_API getBusArrangement(BusDirection direction, int32 index,
                                         SpeakerArrangement& arrangement) override;
    tresult PLUGIN_API canProcessSampleSize(int32 size) override;
    uint32 PLUGIN_API getLatencySamples() override { return options.latency; }
    tresult PLUGIN_API setupProcessing(ProcessSetup& setup) override;
    tresult PLUGIN_API setProcessing(TBool state) override;
    tresult PLUGIN_API process(ProcessData& data) override;
    uint32 PLUGIN_API getTailSamples() override { return options.tail; }

    tresult PLUGIN_API connect(IConnectionPoint* other) override;
    tresult PLUGIN_API disconnect(IConnectionPoint* other) override;
    tresult PLUGIN_API notify(IMessage* message) override;

    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override;
    uint32 PLUGIN_API addRef() override { return refs.add(); }
    uint32 PLUGIN_API release() override { return refs.drop(this); }

  private:
    void violation(const std::string& what) const { log.line("violation " + what); }
    template <typename Sample> void render(ProcessData& data);
    void applyChanges(IParameterChanges* changes);

    vst3_com::RefCount<Component> refs;
    IPtr<FUnknown> host;
    IPtr<IConnectionPoint> peer;
    Values processorValues;
    SpeakerArrangement inputArrangement = 0;
    SpeakerArrangement outputArrangement = 0;
    bool active = false;
    bool processing = false;
    bool sidechainActive = false;
    int32 sampleSize = kSample32;
};

} // namespace test_vst3
