#pragma once

#include "scan/child_processes.h"
#include "scan/plugin_discovery.h"

#include <nlohmann/json.hpp>
#include <optional>

namespace scan {

// One output line, from what the child examining a plug-in did and said.
struct Report {
    nlohmann::ordered_json line;
    // How many effect classes a VST 3 module offers, when the child could tell.
    std::optional<size_t> classes;
};

// `path`, `kind` (and `class` for VST 3), `status`, then `message` for every status but "ok"
// (the child's last line on standard error, or what became of it), `signal` for a crash, the
// plug-in's description when it loaded, and `seconds`.
Report reportOn(const FoundPlugin& plugin, size_t effectClass, const ChildOutcome& outcome,
                double timeoutSeconds);

} // namespace scan
