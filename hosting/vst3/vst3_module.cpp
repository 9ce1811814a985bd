#include "hosting/vst3/vst3_module.h"

#include "hosting/guarded_call.h"
#include "hosting/load_failure.h"
#include "hosting/module/module_library.h"
#include "hosting/vst3/vst3_host_objects.h"
#include "hosting/vst3/vst3_module_platform.h"
#include "hosting/vst3/vst3_text.h"

#include "pluginterfaces/base/ipluginbase.h"
#include "pluginterfaces/vst/ivstaudioprocessor.h"

#include <cstring>
#include <stdexcept>
#include <string_view>

using namespace Steinberg;

namespace {

using EntryFunction = bool (*)(void*);
using FactoryFunction = IPluginFactory* (*)();

constexpr char factoryFunctionName[] = "GetPluginFactory";
constexpr int32 mostFactoryClasses = 10'000;
// A factory that cannot describe this many classes in a row has nothing more to offer.
constexpr int32 mostFailedClassesInARow = 64;

template <typename Field> std::string fixed(const Field& field) {
    return vst3_text::fromFixed(field, sizeof field);
}

template <typename Field> std::string wide(const Field& field) {
    return vst3_text::fromUtf16(field, sizeof field / sizeof field[0]);
}

void takeId(Vst3ClassInfo& info, const TUID classId) {
    std::memcpy(info.classId.data(), classId, info.classId.size());
}

// The second and unicode class records differ only in how their texts are stored.
template <typename Record, typename Text>
void describe(Vst3ClassInfo& info, const Record& record, Text text) {
    takeId(info, record.cid);
    info.category = fixed(record.category);
    info.name = text(record.name);
    info.vendor = text(record.vendor);
    info.version = text(record.version);
    info.subCategories = fixed(record.subCategories);
    info.classFlags = record.classFlags;
}

// The richest description the factory offers, or nothing when every form fails.
bool readClass(IPluginFactory& factory, IPluginFactory2* factory2, IPluginFactory3* factory3,
               int32 index, Vst3ClassInfo& info) {
    if (factory3 != nullptr) {
        PClassInfoW unicode;
        if (factory3->getClassInfoUnicode(index, &unicode) == kResultOk) {
            describe(info, unicode, [](const auto& text) { return wide(text); });
            return true;
        }
    }
    if (factory2 != nullptr) {
        PClassInfo2 second;
        if (factory2->getClassInfo2(index, &second) == kResultOk) {
            describe(info, second, [](const auto& text) { return fixed(text); });
            return true;
        }
    }
    PClassInfo first;
    if (factory.getClassInfo(index, &first) != kResultOk)
        return false;
    takeId(info, first.cid);
    info.category = fixed(first.category);
    info.name = fixed(first.name);
    return true;
}

} // namespace

bool Vst3ClassInfo::isAudioModule() const {
    return category == std::string_view(kVstAudioEffectClass);
}

std::string Vst3ClassInfo::classIdText() const {
    TUID id;
    std::memcpy(id, classId.data(), classId.size());
    FUID::String text{};
    FUID::fromTUID(id).toString(text);
    return text;
}

std::vector<Vst3ClassInfo> readFactoryClasses(IPluginFactory& factory) {
    const int32 count = factory.countClasses();
    // Real factories list a handful of classes; a huge count would take minutes to walk.
    if (count > mostFactoryClasses)
        throw std::length_error("too many classes");
    PFactoryInfo factoryInfo;
    const std::string factoryVendor = factory.getFactoryInfo(&factoryInfo) == kResultOk
                                          ? fixed(factoryInfo.vendor)
                                          : std::string();
    FUnknownPtr<IPluginFactory2> factory2(&factory);
    FUnknownPtr<IPluginFactory3> factory3(&factory);
    std::vector<Vst3ClassInfo> classes;
    int32 failures = 0;
    for (int32 index = 0; index < count && failures < mostFailedClassesInARow; ++index) {
        Vst3ClassInfo info;
        if (!readClass(factory, factory2.get(), factory3.get(), index, info)) {
            ++failures;
            continue;
        }
        failures = 0;
        if (info.vendor.empty())
            info.vendor = factoryVendor;
        classes.push_back(std::move(info));
    }
    return classes;
}

Vst3Module::Vst3Module(std::unique_ptr<ModuleLibrary> library, ExitFunction exit)
    : library(std::move(library)), exitFunction(exit) {}

Vst3Module::~Vst3Module() {
    if (pluginFactory != nullptr)
        guardedCall([&] { pluginFactory->release(); });
    if (entered)
        guardedCall([&] { exitFunction(); });
    // Counted: the module may have kept it. Dropping our reference is all we may do.
    if (factoryContext != nullptr)
        factoryContext->release();
    library.reset();
}

std::shared_ptr<Vst3Module> Vst3Module::load(const std::string& path) {
    auto library = vst3_platform::openModuleBinary(path);
    if (!library)
        throw LoadFailure(LoadFailure::Stage::module);
    const auto names = vst3_platform::entryNames();
    const auto entry = reinterpret_cast<EntryFunction>(library->symbol(names.entry));
    const auto exit = reinterpret_cast<ExitFunction>(library->symbol(names.exit));
    const auto getFactory = reinterpret_cast<FactoryFunction>(library->symbol(factoryFunctionName));
    if (entry == nullptr || exit == nullptr || getFactory == nullptr)
        throw LoadFailure(LoadFailure::Stage::plugin);

    std::shared_ptr<Vst3Module> module(new Vst3Module(std::move(library), exit));
    bool accepted = false;
    void* handle = module->library->nativeHandle();
    // A module whose entry refused (or threw) is not initialised, so its exit is not called.
    if (!guardedCall([&] { accepted = entry(handle); }) || !accepted)
        throw LoadFailure(LoadFailure::Stage::plugin);
    module->entered = true;

    // The factory arrives with one reference, ours.
    if (!guardedCall([&] { module->pluginFactory = getFactory(); }) ||
        module->pluginFactory == nullptr)
        throw LoadFailure(LoadFailure::Stage::plugin);
    module->factoryContext = new Vst3HostApplication();
    const bool listed = guardedCall([&] {
        if (FUnknownPtr<IPluginFactory3> factory3(module->pluginFactory); factory3)
            factory3->setHostContext(module->factoryContext);
        module->classList = readFactoryClasses(*module->pluginFactory);
    });
    if (!listed)
        throw LoadFailure(LoadFailure::Stage::plugin);
    return module;
}
