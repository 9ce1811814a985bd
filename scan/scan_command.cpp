#include "scan/scan_command.h"

#include "scan/child_processes.h"
#include "scan/plugin_discovery.h"
#include "scan/scan_cache.h"
#include "scan/scan_child.h"
#include "scan/scan_report.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <stdexcept>

using Json = nlohmann::ordered_json;

namespace scan {

namespace {

// One child's work: effect class `effectClass` of plug-in `plugin`.
struct Task {
    size_t plugin = 0;
    size_t effectClass = 0;
};

// What is known of each plug-in, printed in path order as soon as the ones before it are done.
class Results {
  public:
    Results(size_t count, bool showProgress) : lines(count), showProgress(showProgress) {}

    void complete(size_t plugin, ScanCache::Lines done) {
        lines[plugin] = std::move(done);
        ++completed;
    }
    void print(size_t running) {
        clearProgress();
        for (; printed < lines.size() && lines[printed]; ++printed) {
            for (const auto& line : *lines[printed])
                writeLine(line.dump(-1, ' ', false, Json::error_handler_t::replace));
        }
        if (std::fflush(stdout) != 0)
            throw std::runtime_error(std::string("file access error: ") + std::strerror(errno));
        if (showProgress && completed < lines.size())
            std::fprintf(stderr, "\rscan: %zu of %zu plug-ins done, %zu running", completed,
                         lines.size(), running);
    }

  private:
    static void writeLine(const std::string& text) {
        if (std::fputs(text.c_str(), stdout) < 0 || std::fputc('\n', stdout) < 0)
            throw std::runtime_error(std::string("file access error: ") + std::strerror(errno));
    }
    void clearProgress() const {
        if (showProgress)
            std::fputs("\r\033[K", stderr);
    }

    std::vector<std::optional<ScanCache::Lines>> lines;
    bool showProgress;
    size_t completed = 0;
    size_t printed = 0;
};

std::vector<std::string> childArguments(const FoundPlugin& plugin, size_t effectClass) {
    return {childCommand,
            "--vst",
            plugin.path,
            "--vst-version",
            plugin.kind == PluginKind::vst3 ? "3" : "2",
            "--class",
            std::to_string(effectClass)};
}

} // namespace

void runScan(const ScanOptions& options) {
    const auto plugins = findPlugins(options.roots);
    std::optional<ScanCache> cache;
    if (options.cache)
        cache.emplace(*options.cache, options.workerVersion);

    Results results(plugins.size(), standardErrorIsTerminal());
    std::deque<Task> waiting;
    for (size_t plugin = 0; plugin < plugins.size(); ++plugin) {
        if (auto kept = cache ? cache->find(plugins[plugin]) : std::nullopt)
            results.complete(plugin, std::move(*kept));
        else
            waiting.push_back({plugin, 0});
    }
    // Lines of the plug-ins under way, one per effect class once the first child has counted them.
    std::vector<std::vector<std::optional<Json>>> partial(plugins.size());
    std::vector<Task> started;
    ChildProcesses children(options.program);
    results.print(0);
    while (!waiting.empty() || children.running() > 0) {
        while (!waiting.empty() && children.running() < options.jobs) {
            const Task task = waiting.front();
            waiting.pop_front();
            children.start(started.size(), childArguments(plugins[task.plugin], task.effectClass),
                           options.timeoutSeconds);
            started.push_back(task);
        }
        for (const auto& [tag, outcome] : children.waitForSome()) {
            const Task task = started[tag];
            const FoundPlugin& plugin = plugins[task.plugin];
            Report report = reportOn(plugin, task.effectClass, outcome, options.timeoutSeconds);
            auto& lines = partial[task.plugin];
            if (task.effectClass == 0) {
                lines.resize(std::max<size_t>(report.classes.value_or(1), 1));
                // The module's other classes next, so that its lines are not held back long.
                for (size_t other = lines.size() - 1; other > 0; --other)
                    waiting.push_front({task.plugin, other});
            }
            lines[task.effectClass] = std::move(report.line);
            if (std::any_of(lines.begin(), lines.end(), [](const auto& line) { return !line; }))
                continue;
            ScanCache::Lines done;
            for (auto& line : lines)
                done.push_back(std::move(*line));
            if (cache)
                cache->keep(plugin, done);
            results.complete(task.plugin, std::move(done));
        }
        results.print(children.running());
    }
    if (cache)
        cache->save();
}

} // namespace scan
