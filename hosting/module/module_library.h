#pragma once

#include <memory>
#include <string>

// A loaded shared library or bundle binary. Owns the OS handle; the code stays loaded for the
// object's life. Platform files: module_library_linux.cpp (dlopen), module_library_mac.mm.
class ModuleLibrary {
  public:
    virtual ~ModuleLibrary() = default;
    // Address of an exported function, or null.
    virtual void* symbol(const char* name) const = 0;
    // The file actually loaded (after resolving bundle layouts).
    virtual const std::string& binaryPath() const = 0;
    // The OS handle, for entry functions that want it: the dlopen handle, or the CFBundleRef.
    virtual void* nativeHandle() const = 0;

    // Throws LoadFailure (module stage) when `path` names nothing that can be loaded as a module
    // on this platform, with the system's reason when it gave one.
    static std::unique_ptr<ModuleLibrary> open(const std::string& path);
    // Loads exactly `binary` (a shared object, or on macOS a bundle folder); throws as `open`.
    static std::unique_ptr<ModuleLibrary> openBinary(const std::string& binary);
};
