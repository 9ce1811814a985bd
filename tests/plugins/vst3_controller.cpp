// The edit controller, its editor view and the state both sides read.
#include "tests/plugins/vst3_plugin.h"

#include "pluginterfaces/gui/iplugview.h"

#include <cstring>
#include <string_view>

namespace test_vst3 {

namespace {

constexpr char stateTag[4] = {'T', 'V', '3', 'S'};
constexpr char controllerTag[4] = {'T', 'V', '3', 'C'};

bool readExactly(IBStream& stream, void* buffer, int32 bytes) {
    int32 read = 0;
    return stream.read(buffer, bytes, &read) == kResultOk && read == bytes;
}

bool writeExactly(IBStream& stream, const void* buffer, int32 bytes) {
    int32 written = 0;
    return stream.write(const_cast<void*>(buffer), bytes, &written) == kResultOk &&
           written == bytes;
}

// The editor: once attached it makes one edit of its own, Gain to 0.75, as a user turning a knob.
class View final : public IPlugView {
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

    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override {
        if (vst3_com::offerUnknown<IPlugView>(this, iid, object) ||
            vst3_com::offer<IPlugView>(this, iid, object))
            return kResultOk;
        return vst3_com::refuse(object);
    }
    uint32 PLUGIN_API addRef() override { return refs.add(); }
    uint32 PLUGIN_API release() override { return refs.drop(this); }

  private:
    vst3_com::RefCount<View> refs;
    IPtr<IComponentHandler> handler;
};

} // namespace

double* Values::find(ParamID id) {
    switch (id) {
    case gainId:
        return &gain;
    case polarityId:
        return &polarity;
    case bypassId:
        return &bypass;
    case programId:
        return &program;
    default:
        return nullptr;
    }
}

bool readValues(IBStream& stream, Values& values) {
    char tag[4];
    Values read;
    if (!readExactly(stream, tag, 4) || std::memcmp(tag, stateTag, 4) != 0 ||
        !readExactly(stream, &read.gain, 8) || !readExactly(stream, &read.polarity, 8) ||
        !readExactly(stream, &read.bypass, 8))
        return false;
    read.program = values.program;
    values = read;
    return true;
}

bool writeValues(IBStream& stream, const Values& values) {
    return writeExactly(stream, stateTag, 4) && writeExactly(stream, &values.gain, 8) &&
           writeExactly(stream, &values.polarity, 8) && writeExactly(stream, &values.bypass, 8);
}

namespace {

class Controller final : public IEditController {
  public:
    explicit Controller(const Options& options) : options(options), log(options.logPath.c_str()) {}

    tresult PLUGIN_API initialize(FUnknown*) override { return kResultOk; }
    tresult PLUGIN_API terminate() override {
        handler = nullptr;
        return kResultOk;
    }
    tresult PLUGIN_API setComponentState(IBStream* state) override {
        return state != nullptr && readValues(*state, values) ? kResultOk : kResultFalse;
    }
    tresult PLUGIN_API setState(IBStream* state) override {
        if (!options.controllerState)
            return kNotImplemented;
        char tag[4];
        if (state == nullptr || !readExactly(*state, tag, 4) ||
            std::memcmp(tag, controllerTag, 4) != 0 || !readExactly(*state, &uiValue, 8)) {
            log.line("controllerSetState refused");
            return kResultFalse;
        }
        log.line("controllerSetState " + test_effect::number(uiValue));
        return kResultOk;
    }
    tresult PLUGIN_API getState(IBStream* state) override {
        if (!options.controllerState)
            return kNotImplemented;
        return state != nullptr && writeExactly(*state, controllerTag, 4) &&
                       writeExactly(*state, &uiValue, 8)
                   ? kResultOk
                   : kResultFalse;
    }
    int32 PLUGIN_API getParameterCount() override { return 4; }
    tresult PLUGIN_API getParameterInfo(int32 index, ParameterInfo& info) override {
        struct Row {
            ParamID id;
            const char* title;
            int32 steps;
            int32 flags;
        };
        static constexpr Row rows[] = {
            {gainId, "Gain", 0, ParameterInfo::kCanAutomate},
            {polarityId, "Polarity", 1, ParameterInfo::kCanAutomate},
            {bypassId, "Bypass", 1, ParameterInfo::kCanAutomate | ParameterInfo::kIsBypass},
            {programId, "Program", 3, ParameterInfo::kIsProgramChange | ParameterInfo::kIsList},
        };
        if (index < 0 || index >= getParameterCount())
            return kInvalidArgument;
        const Row& row = rows[index];
        info = ParameterInfo{};
        info.id = row.id;
        for (size_t at = 0; row.title[at] != 0; ++at)
            info.title[at] = static_cast<char16>(row.title[at]);
        info.stepCount = row.steps;
        info.flags = row.flags;
        info.defaultNormalizedValue = *Values{}.find(row.id);
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
        const double* value = values.find(id);
        return value != nullptr ? *value : 0.0;
    }
    tresult PLUGIN_API setParamNormalized(ParamID id, ParamValue value) override {
        double* slot = values.find(id);
        if (slot == nullptr)
            return kInvalidArgument;
        *slot = value;
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

    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override {
        if (vst3_com::offerUnknown<IEditController>(this, iid, object) ||
            vst3_com::offer<IEditController>(this, iid, object) ||
            vst3_com::offer<IPluginBase>(this, iid, object))
            return kResultOk;
        return vst3_com::refuse(object);
    }
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

} // namespace

IEditController* makeController(const Options& options) {
    return new Controller(options);
}

} // namespace test_vst3
