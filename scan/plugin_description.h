#pragma once

#include <nlohmann/json.hpp>

class Plugin;

namespace scan {

// What a scan reports of a loaded plug-in: name, vendor, version, its id (`unique_id` for VST 2,
// `class_id` for VST 3), category, pins, parameter count, editor, latency and tail. Calls into
// the plug-in; main thread, while nothing else uses it.
nlohmann::ordered_json describePlugin(const Plugin& plugin);

} // namespace scan
