// The module's exports, its factory and the reading of TEST_VST3.
#include "tests/plugins/vst3_plugin.h"

#include "pluginterfaces/base/ipluginbase.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace test_vst3 {

namespace {

const TUID componentId = INLINE_UID(0x54455354, 0x56535433, 0x434F4D50, 0x00000001);

// Read in ModuleEntry; a host that never calls it gets the defaults.
std::optional<Options> moduleOptions;

// Throws on a word it does not know, so that a typo in a test cannot pass as the default.
void applyWord(Options& options, std::string_view word) {
    const auto number = word.substr(word.find('=') + 1);
    if (word == "mono")
        options.mono = true;
    else if (word == "double")
        options.doublePrecision = true;
    else if (word == "controller-state")
        options.controllerState = true;
    else if (word == "editor")
        options.editor = true;
    else if (!word.starts_with("latency=") || number.empty() ||
             std::from_chars(number.data(), number.data() + number.size(), options.latency).ptr !=
                 number.data() + number.size())
        throw std::invalid_argument("bad TEST_VST3 word: " + std::string(word));
}

class Factory final : public IPluginFactory {
  public:
    explicit Factory(const Options& options) : options(options) {}

    tresult PLUGIN_API getFactoryInfo(PFactoryInfo* info) override {
        *info = PFactoryInfo("Test Vendor", "", "", PFactoryInfo::kUnicode);
        return kResultOk;
    }
    int32 PLUGIN_API countClasses() override { return 2; }
    tresult PLUGIN_API getClassInfo(int32 index, PClassInfo* info) override {
        if (index == 0)
            *info = PClassInfo(componentId, PClassInfo::kManyInstances, kVstAudioEffectClass,
                               "Test VST3 Gain");
        else if (index == 1)
            *info = PClassInfo(controllerClassId, PClassInfo::kManyInstances,
                               kVstComponentControllerClass, "Test VST3 Gain Controller");
        else
            return kInvalidArgument;
        return kResultOk;
    }
    tresult PLUGIN_API createInstance(FIDString classId, FIDString iid, void** object) override {
        *object = nullptr;
        FUnknown* made = nullptr;
        if (std::memcmp(classId, componentId, sizeof(TUID)) == 0)
            made = makeComponent(options);
        else if (std::memcmp(classId, controllerClassId, sizeof(TUID)) == 0)
            made = makeController(options);
        else
            return kInvalidArgument;
        TUID wanted;
        std::memcpy(wanted, iid, sizeof wanted);
        const tresult answer = made->queryInterface(wanted, object);
        made->release();
        return answer;
    }

    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override {
        if (vst3_com::offerUnknown<IPluginFactory>(this, iid, object) ||
            vst3_com::offer<IPluginFactory>(this, iid, object))
            return kResultOk;
        return vst3_com::refuse(object);
    }
    uint32 PLUGIN_API addRef() override { return refs.add(); }
    uint32 PLUGIN_API release() override { return refs.drop(this); }

  private:
    vst3_com::RefCount<Factory> refs;
    Options options;
};

Options optionsFromEnvironment() {
    Options options;
    std::string_view words = std::getenv("TEST_VST3") ? std::getenv("TEST_VST3") : "";
    while (!words.empty()) {
        const auto comma = words.find(',');
        if (comma != 0)
            applyWord(options, words.substr(0, comma));
        words = comma == std::string_view::npos ? std::string_view{} : words.substr(comma + 1);
    }
    if (const char* log = std::getenv("TEST_VST3_LOG"))
        options.logPath = log;
    return options;
}

} // namespace

const TUID controllerClassId = INLINE_UID(0x54455354, 0x56535433, 0x4354524C, 0x00000002);

} // namespace test_vst3

extern "C" {

__attribute__((visibility("default"))) bool ModuleEntry(void*) {
    try {
        test_vst3::moduleOptions = test_vst3::optionsFromEnvironment();
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
    return new test_vst3::Factory(test_vst3::moduleOptions.value_or(test_vst3::Options{}));
}
}
