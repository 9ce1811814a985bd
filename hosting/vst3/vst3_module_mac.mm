// macOS: "Name.vst3" is a bundle whose executable CoreFoundation finds from its Info.plist.
#include "hosting/load_failure.h"
#include "hosting/module/module_library.h"
#include "hosting/vst3/vst3_module_platform.h"

#include <CoreFoundation/CoreFoundation.h>

namespace vst3_platform {

EntryNames entryNames() {
    return {"bundleEntry", "bundleExit"};
}

std::unique_ptr<ModuleLibrary> openModuleBinary(const std::string& path) {
    // The bundle's file URL takes a relative path from the current folder.
    auto library = ModuleLibrary::openBinary(path);
    // Load now, so that a binary that cannot load fails here and not at the first lookup.
    // The executable stays loaded for the process: bundles are never unloaded.
    auto bundle = static_cast<CFBundleRef>(library->nativeHandle());
    if (!CFBundleLoadExecutableAndReturnError(bundle, nullptr))
        throw LoadFailure(LoadFailure::Stage::module);
    return library;
}

} // namespace vst3_platform
