#pragma once

#include <functional>

// Hands `function` to the main thread's event loop, which runs it later. Any thread; never
// waits for the function or for the main thread.
void runOnMainThread(std::function<void()> function);
