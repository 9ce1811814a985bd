#include "hosting/bundle_layout.h"

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr const char binaryExtension[] = ".so";

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

} // namespace

std::optional<std::string> resolveModuleBinary(const std::string& path,
                                               const std::string& architecture) {
    const fs::path given(path);
    if (regularFile(given))
        return path;
    std::error_code error;
    if (!fs::is_directory(given, error))
        return std::nullopt;
    fs::path folder = given;
    if (!folder.has_filename())
        folder = folder.parent_path(); // "Name.vst/" names the same folder as "Name.vst"
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
