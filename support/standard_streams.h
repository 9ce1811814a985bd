#pragma once

#include "support/stream.h"

#include <memory>

// The program-wide standard streams. Filled on the main thread before any other thread starts.
namespace Vesk {

// Descriptor 0, made on first request.
std::shared_ptr<streamIn> standardInput();
// Descriptor 1 until fix_stdout ran, then the private duplicate of it.
std::shared_ptr<streamOut> standardOutput();

// Moves the data channel to a duplicate of descriptor 1 and points descriptor 1 at /dev/null, so
// that nothing printed by other code reaches the data. False when /dev/null cannot be opened
// (the caller ends the process with status 1).
bool fix_stdout();

// Drops both slots (tests, and the end of main).
void resetStandardStreams();

} // namespace Vesk
