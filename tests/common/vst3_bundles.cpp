#include "tests/common/vst3_bundles.h"

#include <filesystem>
#include <fstream>
#include <sys/utsname.h>

namespace fs = std::filesystem;

namespace testing_support {

std::string Vst3Layouts::bundle(const std::string& name, const std::string& module,
                                std::string binary) const {
    utsname names{};
    ::uname(&names);
    const fs::path bundlePath = fs::path(path()) / (name + ".vst3");
    const fs::path binaryFolder = bundlePath / "Contents" / (std::string(names.machine) + "-linux");
    fs::create_directories(binaryFolder);
    fs::copy_file(module, binaryFolder / ((binary.empty() ? name : binary) + ".so"),
                  fs::copy_options::overwrite_existing);
    return bundlePath.string();
}

std::vector<std::string> readLines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

} // namespace testing_support
