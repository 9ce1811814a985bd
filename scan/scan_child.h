#pragma once

#include "hosting/plugin_slot.h"
#include "scan/plugin_discovery.h"

#include <nlohmann/json.hpp>
#include <string>

namespace scan {

// The command word under which the scan starts the worker again to examine one plug-in. For the
// scan's own use only: it starts with "--" like no command a user gives.
inline constexpr char childCommand[] = "--scan-child";

// What the child found: `answer` for standard output, one JSON object with `status` ("ok",
// "refused" or "failed"), for VST 3 `classes` (how many effect classes the module has) and,
// when loaded, the plug-in's description; `message` for standard error when it did not load.
struct ChildAnswer {
    nlohmann::ordered_json answer;
    std::string message;
};

// Loads plug-in `path` as `kind` (for VST 3, effect class `effectClass`) into `slot` and
// describes it. Files that hold no plug-in fail; plug-ins that will not open are refused.
ChildAnswer examinePlugin(PluginSlot& slot, const std::string& path, PluginKind kind,
                          size_t effectClass);

} // namespace scan
