#include "tests/common/real_plugins.h"
#include "tests/common/scratch.h"

#include <cstdlib>
#include <string>

namespace testing_support {
ChildOptions headless() {
    static const scratch::Folder home;
    ChildOptions options;
    options.environment["DISPLAY"] = std::nullopt;
    options.environment["WAYLAND_DISPLAY"] = std::nullopt;
    options.environment["HOME"] = home.path();
    const char* asan = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] = std::string(asan ? asan : "") + ":detect_leaks=0";
    return options;
}

} // namespace testing_support
