#include "tests/plugins/vst3_plugin.h"

#include <cstring>
#include <string_view>

namespace test_vst3 {

namespace {

constexpr char stateTag[4] = {'T', 'V', '3', 'S'};
constexpr char controllerTag[4] = {'T', 'V', '3', 'C'};

void copyTitle(String128 out, std::string_view text) {
    size_t at = 0;
    for (; at < text.size() && at < 127; ++at)
        out[at] = static_cast<char16>(text[at]);
    out[at] = 0;
}

bool readExactly(IBStream& stream, void* buffer, int32 bytes) {
    int32 read = 0;
    return stream.read(buffer, bytes, &read) == kResultOk && read == bytes;
}

bool writeExactly(IBStream& stream, const void* buffer, int32 bytes) {
    int32 written = 0;
    return stream.write(const_cast<void*>(buffer), bytes, &written) == kResultOk &&
           written == bytes;
}

// The editor: 0 x 0 until attached unless a size was asked for, then it asks its frame for
// 300 x 150 from inside attached(), as some real editors do. Once attached it makes one edit of
// its own, Gain to 0.75, as a user turning a knob would.
class View final : public IPlugView {
  public:
    View(const Options& options, IComponentHandler* handler)
        : options(options), log(options.logPath.c_str()), handler(handler) {
        size = ViewRect(0, 0, options.editorWidth, options.editorHeight);
    }
    tresult PLUGIN_API isPlatformTypeSupported(FIDString type) override {
        return std::string_view(type) == kPlatformTypeX11EmbedWindowID ? kResultTrue : kResultFalse;
    }
    tresult PLUGIN_API attached(void*, FIDString type) override {
        log.line("viewAttached " + std::string(type));
        if (frame && size.getWidth() == 0) {
            ViewRect wanted(0, 0, 300, 150);
            frame->resizeView(this, &wanted);
        }
        if (handler) {
            handler->beginEdit(gainId);
            handler->performEdit(gainId, 0.75);
            handler->endEdit(gainId);
        }
        return kResultOk;
    }
    tresult PLUGIN_API removed() override {
        log.line("viewRemoved");
        return kResultOk;
    }
    tresult PLUGIN_API onWheel(float) override { return kResultFalse; }
    tresult PLUGIN_API onKeyDown(char16, int16, int16) override { return kResultFalse; }
    tresult PLUGIN_API onKeyUp(char16, int16, int16) override { return kResultFalse; }
    tresult PLUGIN_API getSize(ViewRect* out) override {
        *out = size;
        return kResultOk;
    }
    tresult PLUGIN_API onSize(ViewRect* newSize) override {
        size = *newSize;
        log.line("viewSize " + std::to_string(size.getWidth()) + " " +
                 std::to_string(size.getHeight()));
        return kResultOk;
    }
    tresult PLUGIN_API onFocus(TBool) override { return kResultOk; }
    tresult PLUGIN_API setFrame(IPlugFrame* newFrame) override {
        log.line(std::string("setFrame ") + (newFrame ? "set" : "null"));
        frame = newFrame;
        return kResultOk;
    }
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
    Options options;
    test_effect::CallLog log;
    IPtr<IPlugFrame> frame;
    IPtr<IComponentHandler> handler;
    ViewRect size;
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

tresult PLUGIN_API ControllerBase::setComponentState(IBStream* state) {
    if (state == nullptr || !readValues(*state, values)) {
        log.line("setComponentState refused");
        return kResultFalse;
    }
    log.line("setComponentState " + test_effect::number(values.gain));
    if (handler)
        handler->restartComponent(kParamValuesChanged);
    return kResultOk;
}

tresult PLUGIN_API ControllerBase::setState(IBStream* state) {
    if (!options.controllerState) {
        log.line("controllerSetState notImplemented");
        return kNotImplemented;
    }
    char tag[4];
    if (state == nullptr || !readExactly(*state, tag, 4) ||
        std::memcmp(tag, controllerTag, 4) != 0 || !readExactly(*state, &uiValue, 8)) {
        log.line("controllerSetState refused");
        return kResultFalse;
    }
    log.line("controllerSetState " + test_effect::number(uiValue));
    return kResultOk;
}

tresult PLUGIN_API ControllerBase::getState(IBStream* state) {
    if (!options.controllerState)
        return kNotImplemented;
    return state != nullptr && writeExactly(*state, controllerTag, 4) &&
                   writeExactly(*state, &uiValue, 8)
               ? kResultOk
               : kResultFalse;
}

tresult PLUGIN_API ControllerBase::getParameterInfo(int32 index, ParameterInfo& info) {
    struct Row {
        ParamID id;
        std::string_view title;
        std::string_view units;
        int32 steps;
        int32 flags;
        double defaultValue;
    };
    static constexpr Row rows[parameterCount] = {
        {gainId, "Gain", "x", 0, ParameterInfo::kCanAutomate, 0.5},
        {polarityId, "Polarity", "", 1, ParameterInfo::kCanAutomate, 0.0},
        {levelId, "Level", "", 0, ParameterInfo::kIsReadOnly, 0.0},
        {bypassId, "Bypass", "", 1, ParameterInfo::kCanAutomate | ParameterInfo::kIsBypass, 0.0},
        {programId, "Program", "", 3,
         ParameterInfo::kIsProgramChange | ParameterInfo::kIsList | ParameterInfo::kIsHidden, 0.0},
    };
    if (index < 0 || index >= parameterCount)
        return kInvalidArgument;
    const Row& row = rows[index];
    info = ParameterInfo{};
    info.id = row.id;
    copyTitle(info.title, row.title);
    copyTitle(info.shortTitle, row.title.substr(0, 4));
    copyTitle(info.units, row.units);
    info.stepCount = row.steps;
    info.flags = row.flags;
    info.defaultNormalizedValue = row.defaultValue;
    return kResultOk;
}

tresult PLUGIN_API ControllerBase::getParamStringByValue(ParamID id, ParamValue value,
                                                         String128 text) {
    if (id == gainId) {
        copyTitle(text, test_effect::number(2.0 * value));
        return kResultOk;
    }
    if (id == polarityId || id == bypassId) {
        copyTitle(text, value >= 0.5 ? "on" : "off");
        return kResultOk;
    }
    return kInvalidArgument;
}

ParamValue PLUGIN_API ControllerBase::getParamNormalized(ParamID id) {
    if (id == levelId)
        return level;
    const double* value = values.find(id);
    return value != nullptr ? *value : 0.0;
}

tresult PLUGIN_API ControllerBase::setParamNormalized(ParamID id, ParamValue value) {
    log.line("setParamNormalized " + std::to_string(id) + " " + test_effect::number(value));
    if (id == levelId) {
        level = value;
        return kResultOk;
    }
    double* slot = values.find(id);
    if (slot == nullptr)
        return kInvalidArgument;
    *slot = value;
    return kResultOk;
}

tresult PLUGIN_API ControllerBase::setComponentHandler(IComponentHandler* newHandler) {
    log.line(std::string("setComponentHandler ") + (newHandler ? "set" : "null"));
    handler = newHandler;
    return kResultOk;
}

IPlugView* PLUGIN_API ControllerBase::createView(FIDString name) {
    if (!options.editor || std::string_view(name) != ViewType::kEditor)
        return nullptr;
    return new View(options, handler);
}

void ControllerBase::receive(IMessage* message) {
    if (message == nullptr || message->getMessageID() == nullptr)
        return;
    int64 answer = 0;
    if (IAttributeList* attributes = message->getAttributes())
        attributes->getInt("answer", answer);
    log.line(side + " notify " + message->getMessageID() + " " + std::to_string(answer));
}

tresult PLUGIN_API Controller::initialize(FUnknown*) {
    log.line("initialize controller");
    return kResultOk;
}

tresult PLUGIN_API Controller::terminate() {
    log.line("terminate controller");
    handler = nullptr;
    return kResultOk;
}

tresult PLUGIN_API Controller::connect(IConnectionPoint* other) {
    log.line("connect controller");
    peer = other;
    return kResultOk;
}

tresult PLUGIN_API Controller::disconnect(IConnectionPoint*) {
    log.line("disconnect controller");
    peer = nullptr;
    return kResultOk;
}

tresult PLUGIN_API Controller::notify(IMessage* message) {
    receive(message);
    return kResultOk;
}

tresult PLUGIN_API Controller::queryInterface(const TUID iid, void** object) {
    if (vst3_com::offerUnknown<IEditController>(this, iid, object) ||
        vst3_com::offer<IEditController>(this, iid, object) ||
        vst3_com::offer<IPluginBase>(this, iid, object) ||
        vst3_com::offer<IConnectionPoint>(this, iid, object))
        return kResultOk;
    return vst3_com::refuse(object);
}

} // namespace test_vst3
