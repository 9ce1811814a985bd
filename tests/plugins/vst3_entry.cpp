// The module's exports and its factory. Which exports exist is chosen at build time
// (TEST_VST3_EXPORT_FACTORY); what they do, by TEST_VST3 when the module is entered.
#include "tests/plugins/vst3_plugin.h"

#include "pluginterfaces/base/ipluginbase.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <vector>

namespace test_vst3 {

namespace {

const TUID componentId = INLINE_UID(0x54455354, 0x56535433, 0x434F4D50, 0x00000001);
const TUID controllerId = INLINE_UID(0x54455354, 0x56535433, 0x4354524C, 0x00000002);

// Read in ModuleEntry; a host that never calls it gets the defaults.
std::optional<Options> moduleOptions;

Options currentOptions() {
    return moduleOptions.value_or(Options{});
}

void copyText16(char16* out, size_t capacity, const char* text) {
    size_t at = 0;
    for (; text[at] != 0 && at + 1 < capacity; ++at)
        out[at] = static_cast<char16>(text[at]);
    out[at] = 0;
}

class Factory final : public IPluginFactory3 {
  public:
    explicit Factory(const Options& options) : options(options), log(options.logPath.c_str()) {
        if (!options.noAudioClass)
            classes.push_back(Class{&componentId, kVstAudioEffectClass, "Test VST3 Gain"});
        if (!options.single) {
            const Class controller{&controllerId, kVstComponentControllerClass,
                                   "Test VST3 Gain Controller"};
            if (options.controllerFirst)
                classes.insert(classes.begin(), controller);
            else
                classes.push_back(controller);
        }
    }

    tresult PLUGIN_API getFactoryInfo(PFactoryInfo* info) override {
        *info = PFactoryInfo("Test Vendor", "", "", PFactoryInfo::kUnicode);
        return kResultOk;
    }
    int32 PLUGIN_API countClasses() override {
        return static_cast<int32>(std::max<size_t>(classes.size(), options.claimedClasses));
    }
    tresult PLUGIN_API getClassInfo(int32 index, PClassInfo* info) override {
        if (index < 0 || index >= realClasses())
            return kInvalidArgument;
        *info = PClassInfo(*classes[index].id, PClassInfo::kManyInstances, classes[index].category,
                           classes[index].name);
        return kResultOk;
    }
    tresult PLUGIN_API getClassInfo2(int32 index, PClassInfo2* info) override {
        if (index < 0 || index >= realClasses())
            return kInvalidArgument;
        *info = PClassInfo2(*classes[index].id, PClassInfo::kManyInstances, classes[index].category,
                            classes[index].name, 0, subCategories(), nullptr, "1.2.3",
                            kVstVersionString);
        return kResultOk;
    }
    tresult PLUGIN_API getClassInfoUnicode(int32 index, PClassInfoW* info) override {
        PClassInfo2 ascii;
        if (getClassInfo2(index, &ascii) != kResultOk)
            return kInvalidArgument;
        info->fromAscii(ascii);
        copyText16(info->vendor, PClassInfoW::kVendorSize, "");
        return kResultOk;
    }
    tresult PLUGIN_API createInstance(FIDString classId, FIDString iid, void** object) override {
        *object = nullptr;
        FUnknown* made = nullptr;
        if (std::memcmp(classId, componentId, sizeof(TUID)) == 0)
            made = static_cast<IComponent*>(new Component(options));
        else if (std::memcmp(classId, controllerId, sizeof(TUID)) == 0 && !options.single)
            made = static_cast<IEditController*>(new Controller(options));
        if (made == nullptr)
            return kInvalidArgument;
        log.line(std::string("create ") + (std::memcmp(classId, componentId, sizeof(TUID)) == 0
                                               ? "component"
                                               : "controller"));
        TUID wanted;
        std::memcpy(wanted, iid, sizeof wanted);
        const tresult answer = made->queryInterface(wanted, object);
        made->release();
        return answer;
    }
    tresult PLUGIN_API setHostContext(FUnknown* context) override {
        log.line(std::string("factoryHostContext ") + (context ? "set" : "null"));
        hostContext = context;
        return kResultOk;
    }

    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override {
        if (vst3_com::offerUnknown<IPluginFactory>(this, iid, object) ||
            vst3_com::offer<IPluginFactory>(this, iid, object) ||
            vst3_com::offer<IPluginFactory2>(this, iid, object) ||
            vst3_com::offer<IPluginFactory3>(this, iid, object))
            return kResultOk;
        return vst3_com::refuse(object);
    }
    uint32 PLUGIN_API addRef() override { return refs.add(); }
    uint32 PLUGIN_API release() override { return refs.drop(this); }

  private:
    struct Class {
        const TUID* id;
        const char* category;
        const char* name;
    };
    int32 realClasses() const { return static_cast<int32>(classes.size()); }
    const char* subCategories() const {
        return options.instrument ? "Instrument|Synth" : "Fx|Dynamics";
    }

    vst3_com::RefCount<Factory> refs;
    Options options;
    test_effect::CallLog log;
    std::vector<Class> classes;
    IPtr<FUnknown> hostContext;
};

} // namespace

const TUID& componentClassId() {
    return componentId;
}
const TUID& controllerClassId() {
    return controllerId;
}

} // namespace test_vst3

using test_vst3::moduleOptions;

extern "C" {

__attribute__((visibility("default"))) bool ModuleEntry(void*) {
    try {
        moduleOptions = test_vst3::optionsFromEnvironment();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return false;
    }
    test_effect::CallLog(moduleOptions->logPath.c_str()).line("moduleEntry");
    return !moduleOptions->entryFalse;
}

__attribute__((visibility("default"))) bool ModuleExit() {
    test_effect::CallLog(test_vst3::currentOptions().logPath.c_str()).line("moduleExit");
    return true;
}

#ifdef TEST_VST3_EXPORT_FACTORY
__attribute__((visibility("default"))) Steinberg::IPluginFactory* GetPluginFactory() {
    const test_vst3::Options options = test_vst3::currentOptions();
    test_effect::CallLog(options.logPath.c_str()).line("getFactory");
    if (options.nullFactory)
        return nullptr;
    return new test_vst3::Factory(options);
}
#endif
}
