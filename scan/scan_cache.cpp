#include "scan/scan_cache.h"

#include "support/file_replace.h"
#include "support/message_text.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

namespace scan {

namespace {

constexpr char formatName[] = "vst-adapter scan cache";

// Size and modification time (nanoseconds) of a file; none when it cannot be read.
std::optional<std::pair<uintmax_t, int64_t>> stampOf(const std::string& path) {
    std::error_code error;
    const auto size = fs::file_size(path, error);
    if (error)
        return std::nullopt;
    const auto time = fs::last_write_time(path, error);
    if (error)
        return std::nullopt;
    return std::pair{
        size,
        static_cast<int64_t>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count())};
}

bool isEntry(const Json& entry) {
    if (!entry.is_object() || !entry.contains("binary") || !entry["binary"].is_string() ||
        !entry.contains("size") || !entry["size"].is_number_unsigned() ||
        !entry.contains("mtime") || !entry["mtime"].is_number_integer() ||
        !entry.contains("lines") || !entry["lines"].is_array() || entry["lines"].empty())
        return false;
    for (const auto& line : entry["lines"]) {
        if (!line.is_object())
            return false;
    }
    return true;
}

// The cache's entries, or none when it holds something other than a whole scan cache.
std::optional<Json> readEntries(std::istream& in, const std::string& workerVersion) {
    Json cache = Json::parse(in, nullptr, false);
    if (cache.is_discarded() || !cache.is_object() || cache.value("format", "") != formatName ||
        !cache.contains("version") || !cache["version"].is_string() || !cache.contains("plugins") ||
        !cache["plugins"].is_object())
        return std::nullopt;
    for (const auto& [path, entry] : cache["plugins"].items()) {
        if (!isEntry(entry))
            return std::nullopt;
    }
    if (cache["version"] != workerVersion)
        return Json::object();
    return cache["plugins"];
}

} // namespace

ScanCache::ScanCache(std::string file, std::string workerVersion)
    : file(std::move(file)), workerVersion(std::move(workerVersion)) {
    std::ifstream in(this->file, std::ios::binary);
    if (!in)
        return;
    if (auto read = readEntries(in, this->workerVersion))
        entries = std::move(*read);
    else
        std::fprintf(stderr, "Ignoring the scan cache '%s': not a scan cache, or damaged\n",
                     Vesk::escapedForMessage(this->file).c_str());
}

std::optional<ScanCache::Lines> ScanCache::find(const FoundPlugin& plugin) const {
    const auto entry = entries.find(plugin.path);
    const auto stamp = stampOf(plugin.binary);
    if (entry == entries.end() || !stamp || (*entry)["binary"] != plugin.binary ||
        (*entry)["size"] != stamp->first || (*entry)["mtime"] != stamp->second)
        return std::nullopt;
    return (*entry)["lines"].get<Lines>();
}

void ScanCache::keep(const FoundPlugin& plugin, const Lines& lines) {
    visited.push_back(plugin.path);
    const auto stamp = stampOf(plugin.binary);
    if (!stamp || lines.empty()) {
        entries.erase(plugin.path);
        return;
    }
    entries[plugin.path] = {{"binary", plugin.binary},
                            {"size", stamp->first},
                            {"mtime", stamp->second},
                            {"lines", lines}};
}

void ScanCache::save() const {
    const std::set<std::string> seen(visited.begin(), visited.end());
    Json kept = Json::object();
    for (const auto& [path, entry] : entries.items()) {
        if (seen.count(path) != 0 || stampOf(entry["binary"].get<std::string>()))
            kept[path] = entry;
    }
    const Json cache{{"format", formatName}, {"version", workerVersion}, {"plugins", kept}};
    const std::string text = cache.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
    try {
        Vesk::replaceFileContents(file,
                                  {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    } catch (const std::exception& failure) {
        throw std::runtime_error("Could not save the scan cache to '" +
                                 Vesk::escapedForMessage(file) + "': " + failure.what());
    }
}

} // namespace scan
