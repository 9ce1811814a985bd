#include "hosting/bundle_layout.h"
#include "hosting/module_library.h"

#include <dlfcn.h>

namespace {

#if defined(__x86_64__)
constexpr const char architectureFolder[] = "x86_64-linux";
#elif defined(__aarch64__)
constexpr const char architectureFolder[] = "aarch64-linux";
#else
constexpr const char architectureFolder[] = "unknown-linux";
#endif

struct DlCloser {
    void operator()(void* handle) const { ::dlclose(handle); }
};

class DlModuleLibrary final : public ModuleLibrary {
  public:
    DlModuleLibrary(void* handle, std::string path) : handle(handle), path(std::move(path)) {}
    void* symbol(const char* name) const override { return ::dlsym(handle.get(), name); }
    const std::string& binaryPath() const override { return path; }

  private:
    std::unique_ptr<void, DlCloser> handle;
    std::string path;
};

} // namespace

std::unique_ptr<ModuleLibrary> ModuleLibrary::open(const std::string& path) {
    auto binary = resolveModuleBinary(path, architectureFolder);
    if (!binary)
        return nullptr;
    // A name without a slash would send dlopen searching the library path; plug-ins are files.
    if (binary->find('/') == std::string::npos)
        binary = "./" + *binary;
    // Plug-ins often leave threads or exit handlers behind: keep their code mapped after close.
    void* handle = ::dlopen(binary->c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (handle == nullptr)
        return nullptr;
    return std::make_unique<DlModuleLibrary>(handle, *binary);
}
