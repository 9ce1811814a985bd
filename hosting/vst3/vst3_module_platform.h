#pragma once

#include <memory>
#include <string>

class ModuleLibrary;

// What differs per platform in loading a VST 3 module; the order of the steps is shared
// (vst3_module.cpp). Platform files: vst3_module_linux.cpp, vst3_module_mac.mm.
namespace vst3_platform {

// The names of the module's entry and exit functions. Both entry functions take the OS handle
// of the module (dlopen handle, CFBundleRef) and answer whether the module may be used.
struct EntryNames {
    const char* entry;
    const char* exit;
};
EntryNames entryNames();

// Opens the binary that `path` names as a VST 3 module, or null when it names none here;
// throws LoadFailure when that binary cannot be loaded.
std::unique_ptr<ModuleLibrary> openModuleBinary(const std::string& path);

} // namespace vst3_platform
