#pragma once

// Where the build put one of its files, from the file's path relative to the build folder.
// Test executables get their plug-ins' paths this way rather than as absolute paths compiled in,
// so that their objects are the same in every checkout and build folder and the compiler cache
// serves them all. The answer lives as long as the process. Main thread (static initialisers
// included).
namespace testing_support {

const char* builtFile(const char* relativePath);

} // namespace testing_support
