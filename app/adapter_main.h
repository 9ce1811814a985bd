#pragma once

// The whole life of one adapter process: returns the exit status (0, 255, or 1 when /dev/null
// cannot be opened).
int adapterMain(int argc, const char* const* argv);
