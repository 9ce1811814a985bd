#pragma once

#include "scan/plugin_discovery.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace scan {

// The lines of earlier scans, each plug-in's kept with its path, the size and modification time
// of its binary and the version of the worker that made them; a plug-in is looked at again when
// any of those differ. Main thread.
class ScanCache {
  public:
    using Lines = std::vector<nlohmann::ordered_json>;

    // Reads `file`. A missing file, or one from another version of the worker, starts empty; a
    // file that is damaged or not a scan cache is reported in one line on standard error and
    // starts empty too: it is never trusted.
    ScanCache(std::string file, std::string workerVersion);

    std::optional<Lines> find(const FoundPlugin& plugin) const;
    // Keeps `lines` as what `plugin` gave; none forgets it.
    void keep(const FoundPlugin& plugin, const Lines& lines);
    // Replaces the file in one step. Plug-ins of earlier scans that this one did not visit are
    // kept while their binaries exist. Throws std::runtime_error naming the file and the reason.
    void save() const;

  private:
    std::string file;
    std::string workerVersion;
    nlohmann::ordered_json entries = nlohmann::ordered_json::object();
    std::vector<std::string> visited;
};

} // namespace scan
