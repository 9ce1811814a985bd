#include "scan/plugin_discovery.h"

#include "hosting/module/bundle_layout.h"
#include "support/message_text.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <sys/stat.h>
#include <utility>

namespace fs = std::filesystem;

namespace scan {

namespace {

// A file or folder by what it is rather than by name, so that links cannot bring it back.
using Identity = std::pair<dev_t, ino_t>;

struct Candidate {
    FoundPlugin plugin;
    Identity identity;
};

class Walk {
  public:
    void visit(const std::string& path, bool isRoot);
    std::vector<Candidate> found;

  private:
    void add(const std::string& path, PluginKind kind, const std::optional<std::string>& binary,
             Identity identity);
    std::set<Identity> foldersSeen;
    const std::string architecture = linuxArchitectureFolder();
};

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

void Walk::add(const std::string& path, PluginKind kind, const std::optional<std::string>& binary,
               Identity identity) {
    found.push_back({{path, kind, binary.value_or(path)}, identity});
}

void Walk::visit(const std::string& path, bool isRoot) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        if (isRoot)
            throw std::runtime_error("--vst names no file or folder: '" +
                                     Vesk::escapedForMessage(path) + "'");
        return; // a dangling link inside a folder
    }
    const Identity identity{status.st_dev, status.st_ino};
    const std::string name = fs::path(path).filename().string();
    if (S_ISREG(status.st_mode)) {
        // A root is taken as a plug-in whatever its name: the user named it.
        if (endsWith(name, ".vst3"))
            add(path, PluginKind::vst3, path, identity);
        else if (isRoot || endsWith(name, ".so"))
            add(path, PluginKind::vst2, path, identity);
        return;
    }
    if (!S_ISDIR(status.st_mode) || !foldersSeen.insert(identity).second)
        return;
    if (endsWith(name, ".vst3")) {
        add(path, PluginKind::vst3, resolveVst3Binary(path, architecture), identity);
        return;
    }
    if (endsWith(name, ".vst")) {
        if (const auto binary = resolveModuleBinary(path, architecture)) {
            add(path, PluginKind::vst2, binary, identity);
            return;
        }
    }
    std::error_code error;
    std::vector<std::string> entries;
    for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error))
        entries.push_back(it->path().string());
    for (const auto& entry : entries)
        visit(entry, false);
}

} // namespace

const char* kindName(PluginKind kind) {
    return kind == PluginKind::vst3 ? "vst3" : "vst2";
}

std::vector<FoundPlugin> findPlugins(const std::vector<std::string>& roots) {
    Walk walk;
    for (const auto& root : roots) {
        // "folder/" and "folder" are the same place; paths below it read the same either way.
        std::string path = root;
        while (path.size() > 1 && path.back() == '/')
            path.pop_back();
        walk.visit(path, true);
    }
    std::stable_sort(
        walk.found.begin(), walk.found.end(),
        [](const Candidate& a, const Candidate& b) { return a.plugin.path < b.plugin.path; });
    std::set<Identity> pluginsSeen;
    std::vector<FoundPlugin> plugins;
    for (auto& candidate : walk.found) {
        if (pluginsSeen.insert(candidate.identity).second)
            plugins.push_back(std::move(candidate.plugin));
    }
    return plugins;
}

} // namespace scan
