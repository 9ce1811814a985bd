#include "tests/common/scratch.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace scratch {

Folder::Folder() {
    char name[] = "/tmp/scratch-XXXXXX";
    if (::mkdtemp(name) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    root = name;
}

Folder::~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool exists(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

} // namespace scratch
