#include "hosting/module/bundle_layout.h"

#include <filesystem>
#include <sys/utsname.h>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr const char binaryExtension[] = ".so";
constexpr const char vst3Extension[] = ".vst3";

std::optional<fs::path> regularFile(const fs::path& candidate) {
    std::error_code error;
    if (fs::is_regular_file(candidate, error))
        return candidate;
    return std::nullopt;
}

std::optional<fs::path> onlyBinaryIn(const fs::path& folder) {
    std::error_code error;
    std::optional<fs::path> found;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        if (it->path().extension() != binaryExtension || !regularFile(it->path()))
            continue;
        if (found)
            return std::nullopt; // more than one: refuse to guess
        found = it->path();
    }
    return found;
}

// "Name.vst/" names the same folder as "Name.vst".
fs::path withoutTrailingSlash(fs::path folder) {
    if (!folder.has_filename())
        folder = folder.parent_path();
    return folder;
}

} // namespace

std::optional<std::string> resolveModuleBinary(const std::string& path,
                                               const std::string& architecture) {
    const fs::path given(path);
    if (regularFile(given))
        return path;
    std::error_code error;
    if (!fs::is_directory(given, error))
        return std::nullopt;
    const fs::path folder = withoutTrailingSlash(given);
    const std::string stem = folder.stem().string();
    const fs::path architectureFolder = folder / "Contents" / architecture;
    for (const auto& candidate :
         {regularFile(architectureFolder / (stem + binaryExtension)),
          onlyBinaryIn(architectureFolder), regularFile(folder / (stem + binaryExtension)),
          onlyBinaryIn(folder)}) {
        if (candidate)
            return candidate->string();
    }
    return std::nullopt;
}

std::optional<std::string> resolveVst3Binary(const std::string& path,
                                             const std::string& architecture) {
    const fs::path given(path);
    // A VST 2 shared object is not tried as VST 3: loading it would run its constructors twice
    // over for nothing when the VST 2 attempt follows.
    if (regularFile(given))
        return given.extension() == vst3Extension ? std::optional(path) : std::nullopt;
    std::error_code error;
    if (!fs::is_directory(given, error))
        return std::nullopt;
    const fs::path folder = withoutTrailingSlash(given);
    const auto binary = regularFile(folder / "Contents" / architecture /
                                    (folder.stem().string() + binaryExtension));
    if (!binary)
        return std::nullopt;
    return binary->string();
}

std::string linuxArchitectureFolder() {
    utsname names{};
    if (::uname(&names) != 0)
        return "unknown-linux";
    return std::string(names.machine) + "-linux";
}
