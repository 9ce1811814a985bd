#include "tests/common/vst3_bundles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sys/utsname.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace testing_support {

namespace {

std::string machineFolder() {
    utsname names{};
    ::uname(&names);
    return std::string(names.machine) + "-linux";
}

} // namespace

Vst3Layouts::Vst3Layouts(const std::string& tag)
    : root((fs::temp_directory_path() / ("vst3-" + tag + "-" + std::to_string(::getpid())))
               .string()) {
    fs::remove_all(root);
    fs::create_directories(root);
}

Vst3Layouts::~Vst3Layouts() {
    std::error_code ignored;
    fs::remove_all(root, ignored);
}

std::string Vst3Layouts::bundle(const std::string& name, const std::string& module,
                                const std::string& architecture) {
    const fs::path bundlePath = fs::path(root) / (name + ".vst3");
    const fs::path binaryFolder =
        bundlePath / "Contents" / (architecture.empty() ? machineFolder() : architecture);
    fs::create_directories(binaryFolder);
    fs::copy_file(module, binaryFolder / (name + ".so"), fs::copy_options::overwrite_existing);
    return bundlePath.string();
}

std::string Vst3Layouts::file(const std::string& name) const {
    return (fs::path(root) / name).string();
}

std::vector<std::string> readLines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

int countLines(const std::vector<std::string>& lines, const std::string& line) {
    return static_cast<int>(std::count(lines.begin(), lines.end(), line));
}

std::vector<std::string> linesStartingWith(const std::vector<std::string>& lines,
                                           const std::string& prefix) {
    std::vector<std::string> found;
    for (const auto& line : lines)
        if (line.rfind(prefix, 0) == 0)
            found.push_back(line);
    return found;
}

} // namespace testing_support
