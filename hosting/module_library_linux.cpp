#include "hosting/module_library.h"

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

private:
    std::unique_ptr<void, DlCloser> handle;
    std::string path;
};

} // namespace

std::unique_ptr<ModuleLibrary> ModuleLibrary::open(const std::string& path) {
    // A name without a slash would send dlopen searching the library path; plug-ins are files.
    const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
    void* handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
        return nullptr;
    return std::make_unique<DlModuleLibrary>(handle, file);
}
