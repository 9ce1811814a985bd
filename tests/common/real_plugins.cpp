#include "tests/common/real_plugins.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace testing_support {
namespace {

class ThrowAwayHome {
  public:
    ThrowAwayHome() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "vst-adapter-home-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("cannot make a temporary HOME");
        path = pattern;
    }
    ~ThrowAwayHome() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    ThrowAwayHome(const ThrowAwayHome&) = delete;
    ThrowAwayHome& operator=(const ThrowAwayHome&) = delete;

    std::string path;
};

} // namespace

ChildOptions headless() {
    static const ThrowAwayHome home;
    ChildOptions options;
    options.environment["DISPLAY"] = std::nullopt;
    options.environment["WAYLAND_DISPLAY"] = std::nullopt;
    options.environment["HOME"] = home.path;
    const char* asan = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] = std::string(asan ? asan : "") + ":detect_leaks=0";
    return options;
}

} // namespace testing_support
