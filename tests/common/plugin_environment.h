#pragma once

#include "tests/common/child_process.h"

#include <cstdlib>
#include <filesystem>
#include <string>

namespace testing_support {

// For commands that never open an editor, with third-party plug-ins: they must work with no
// display, and plug-ins that write settings to $HOME get a throw-away one.
inline ChildOptions realPluginOptions() {
    ChildOptions options;
    options.environment["DISPLAY"] = std::nullopt;
    options.environment["WAYLAND_DISPLAY"] = std::nullopt;
    options.environment["HOME"] = std::filesystem::temp_directory_path().string();
    // Leaks inside third-party plug-ins are theirs; our own code is leak-checked with the
    // in-tree plug-ins.
    const char* asan = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] = std::string(asan ? asan : "") + ":detect_leaks=0";
    return options;
}

} // namespace testing_support
