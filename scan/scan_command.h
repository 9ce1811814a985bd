#pragma once

#include <optional>
#include <string>
#include <vector>

namespace scan {

struct ScanOptions {
    std::vector<std::string> roots;   // folders and plug-ins, as given
    std::optional<std::string> cache; // the cache file, if any
    double timeoutSeconds = 10;       // for each child
    size_t jobs = 1;                  // children at once
    std::string program;              // the worker to start for each plug-in
    std::string workerVersion;        // what the cache is keyed by besides the files
};

// Finds the plug-ins, has each examined by a child (or takes it from the cache) and prints one
// JSON line per plug-in (per effect class of a VST 3 module) on standard output, in path
// order, with a progress line on standard error when that is a terminal. Whatever the plug-ins
// do, it returns. Throws std::runtime_error for a root that does not exist, an output that
// cannot be written or a cache that cannot be saved.
void runScan(const ScanOptions& options);

} // namespace scan
