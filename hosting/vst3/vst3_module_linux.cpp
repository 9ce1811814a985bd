// Linux: "Name.vst3/Contents/<machine>-linux/Name.so", or a single "Name.vst3" shared object.
#include "hosting/module/bundle_layout.h"
#include "hosting/module/module_library.h"
#include "hosting/vst3/vst3_module_platform.h"

namespace vst3_platform {

EntryNames entryNames() {
    return {"ModuleEntry", "ModuleExit"};
}

std::unique_ptr<ModuleLibrary> openModuleBinary(const std::string& path) {
    const auto binary = resolveVst3Binary(path, linuxArchitectureFolder());
    if (!binary)
        return nullptr;
    return ModuleLibrary::openBinary(*binary);
}

} // namespace vst3_platform
