#include "tests/common/built_files.h"

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

namespace testing_support {
namespace {

// CTest names the build folder; run by hand (or listed while building), a test executable finds
// it from where it lives: <build>/tests/.
std::filesystem::path buildFolder() {
    if (const char* given = std::getenv("VST_ADAPTER_BUILD_DIR"); given != nullptr && *given != 0)
        return given;
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path() : self.parent_path().parent_path();
}

} // namespace

const char* builtFile(const char* relativePath) {
    // Table rows keep the pointer: each path is made once and kept.
    static std::map<std::string, std::string> paths;
    auto [entry, added] = paths.try_emplace(relativePath);
    if (added)
        entry->second = (buildFolder() / relativePath).string();
    return entry->second.c_str();
}

} // namespace testing_support
