#include "hosting/load_failure.h"
#include "hosting/module/bundle_layout.h"
#include "hosting/module/module_library.h"

#include <dlfcn.h>

namespace {

struct DlCloser {
    void operator()(void* handle) const { ::dlclose(handle); }
};

class DlModuleLibrary final : public ModuleLibrary {
  public:
    DlModuleLibrary(void* handle, std::string path) : handle(handle), path(std::move(path)) {}
    void* symbol(const char* name) const override { return ::dlsym(handle.get(), name); }
    const std::string& binaryPath() const override { return path; }
    void* nativeHandle() const override { return handle.get(); }

  private:
    std::unique_ptr<void, DlCloser> handle;
    std::string path;
};

} // namespace

std::unique_ptr<ModuleLibrary> ModuleLibrary::open(const std::string& path) {
    const auto binary = resolveModuleBinary(path, linuxArchitectureFolder());
    if (!binary)
        throw LoadFailure(LoadFailure::Stage::module);
    return openBinary(*binary);
}

std::unique_ptr<ModuleLibrary> ModuleLibrary::openBinary(const std::string& binary) {
    // A name without a slash would send dlopen searching the library path; plug-ins are files.
    const std::string file = binary.find('/') == std::string::npos ? "./" + binary : binary;
    // RTLD_NOW: a missing symbol fails here, not later inside audio code. Plug-ins often leave
    // threads or exit handlers behind: keep their code mapped after close.
    void* handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (handle == nullptr) {
        const char* reason = ::dlerror();
        throw LoadFailure(LoadFailure::Stage::module, reason != nullptr ? reason : "");
    }
    return std::make_unique<DlModuleLibrary>(handle, file);
}
