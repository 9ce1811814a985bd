#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Steinberg {
class IPluginFactory;
}
class ModuleLibrary;
class Vst3HostApplication;

// One class a VST 3 factory offers, read once at load time.
struct Vst3ClassInfo {
    std::array<char, 16> classId{}; // the 16-byte TUID
    std::string category;
    std::string name;
    std::string vendor; // the factory's vendor when the class names none
    std::string version;
    std::string subCategories; // e.g. "Fx|Dynamics|Stereo"
    uint32_t classFlags = 0;

    // Effects are offered as "Audio Module Class"; controllers and anything else are skipped.
    bool isAudioModule() const;
    // The id as 32 hexadecimal digits.
    std::string classIdText() const;
};

// The classes of a factory in factory order. An index whose information cannot be read is left
// out; after 64 such in a row the list ends there. Calls into plug-in code: may throw what the
// plug-in throws, and throws std::length_error for a factory claiming more than 10,000 classes.
std::vector<Vst3ClassInfo> readFactoryClasses(Steinberg::IPluginFactory& factory);

// A loaded VST 3 module: its code, its entry function called once, its factory and class list.
// Shared between the host object and reopening, so that a fresh instance never reloads it.
// Destruction releases the factory, calls the exit function, then lets the code go: the last
// owner must outlive every object made from the factory. Main thread.
class Vst3Module {
  public:
    // Throws LoadFailure when `path` holds no loadable VST 3 module: no binary for this platform
    // or one that cannot load (module stage), a missing export, an entry function that refuses
    // or throws, or no factory (plugin stage).
    static std::shared_ptr<Vst3Module> load(const std::string& path);

    ~Vst3Module();
    Vst3Module(const Vst3Module&) = delete;
    Vst3Module& operator=(const Vst3Module&) = delete;

    Steinberg::IPluginFactory& factory() const { return *pluginFactory; }
    const std::vector<Vst3ClassInfo>& classes() const { return classList; }

  private:
    using ExitFunction = bool (*)();
    Vst3Module(std::unique_ptr<ModuleLibrary> library, ExitFunction exit);

    std::unique_ptr<ModuleLibrary> library;
    ExitFunction exitFunction;
    bool entered = false;
    Steinberg::IPluginFactory* pluginFactory = nullptr;
    Vst3HostApplication* factoryContext = nullptr;
    std::vector<Vst3ClassInfo> classList;
};
