// macOS: a VST 2 plug-in is a bundle; CoreFoundation finds its executable and its exports.
#include "hosting/module/module_library.h"

#include "hosting/load_failure.h"

#include <CoreFoundation/CoreFoundation.h>
#import <Foundation/Foundation.h>

#include <memory>
#include <type_traits>

namespace {

struct CFReleaser {
    void operator()(const void* object) const {
        if (object != nullptr)
            CFRelease(object);
    }
};

template <typename T> using CFOwned = std::unique_ptr<std::remove_pointer_t<T>, CFReleaser>;

class BundleModuleLibrary final : public ModuleLibrary {
  public:
    BundleModuleLibrary(CFBundleRef bundle, std::string path)
        : bundle(bundle), path(std::move(path)) {}
    void* symbol(const char* name) const override {
        CFOwned<CFStringRef> symbolName(
            CFStringCreateWithCString(nullptr, name, kCFStringEncodingUTF8));
        if (!symbolName)
            return nullptr;
        return CFBundleGetFunctionPointerForName(bundle.get(), symbolName.get());
    }
    const std::string& binaryPath() const override { return path; }
    void* nativeHandle() const override { return bundle.get(); }

  private:
    CFOwned<CFBundleRef> bundle;
    std::string path;
};

} // namespace

// A bundle is its own layout: CoreFoundation finds the executable inside it.
std::unique_ptr<ModuleLibrary> ModuleLibrary::open(const std::string& path) {
    return openBinary(path);
}

std::unique_ptr<ModuleLibrary> ModuleLibrary::openBinary(const std::string& path) {
    // A relative path is taken from the current folder, as the command line meant it.
    CFBundleRef bundle = nullptr;
    @autoreleasepool {
        NSString* text = [NSString stringWithUTF8String:path.c_str()];
        // fileURLWithPath: raises on nil and empty text.
        if (text == nil || [text length] == 0)
            throw LoadFailure(LoadFailure::Stage::module);
        bundle = CFBundleCreate(kCFAllocatorDefault, (CFURLRef)[NSURL fileURLWithPath:text]);
    }
    if (bundle == nullptr)
        throw LoadFailure(LoadFailure::Stage::module);
    return std::make_unique<BundleModuleLibrary>(bundle, path);
}
