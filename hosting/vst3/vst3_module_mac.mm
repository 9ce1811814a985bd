// macOS: "Name.vst3" is a bundle whose executable CoreFoundation finds from its Info.plist.
#include "hosting/module/module_library.h"
#include "hosting/vst3/vst3_module_platform.h"

#include <CoreFoundation/CoreFoundation.h>

#include <filesystem>

namespace vst3_platform {

EntryNames entryNames() {
    return {"bundleEntry", "bundleExit"};
}

std::unique_ptr<ModuleLibrary> openModuleBinary(const std::string& path) {
    // CoreFoundation reads a relative path against no particular folder.
    std::error_code error;
    const auto absolute = std::filesystem::absolute(path, error);
    if (error)
        return nullptr;
    auto library = ModuleLibrary::openBinary(absolute.string());
    if (!library)
        return nullptr;
    // Load now, so that a binary that cannot load fails here and not at the first lookup.
    // The executable stays loaded for the process: bundles are never unloaded.
    auto bundle = static_cast<CFBundleRef>(library->nativeHandle());
    if (!CFBundleLoadExecutableAndReturnError(bundle, nullptr))
        return nullptr;
    return library;
}

} // namespace vst3_platform
