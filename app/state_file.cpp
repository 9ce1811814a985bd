#include "app/state_file.h"

#include "hosting/plugin_state.h"
#include "support/file_stream.h"
#include "support/wide_text.h"
#include "support/x_file.h"

#include <chrono>
#include <exception>
#include <thread>

namespace {

constexpr int writeAttempts = 10;
constexpr auto writeRetryDelay = std::chrono::milliseconds(10);

bool acceptsState(const PluginHost& host) {
    return host.effect != nullptr && (host.hasEditorFlag() || host.parameterCount() > 0);
}

// Read-only, so that a failed or partial read can never damage the file.
void readStateFile(VSTGlobals& globals) {
    Vesk::fileInOutImpl_posix file;
    file.openForReading(globals.dataPath);
    const uint64_t size = file.size();
    if (size < 1 || size > maximumStateFileSize)
        return;
    globals.stateData.resize(size);
    globals.stateData.resize(file.read(globals.stateData.data(), size));
}

// Another process may hold the file for a moment (the parent copying it, a virus scanner):
// retry briefly rather than lose the user's settings at the first refusal.
bool openForRewrite(Vesk::XFile& file, const std::wstring& path) {
    for (int attempt = 1; attempt <= writeAttempts; ++attempt) {
        if (file.open(path, Vesk::XFile::readWrite,
                      Vesk::XFile::createOrTruncate | Vesk::XFile::noLock, false))
            return true;
        if (attempt < writeAttempts)
            std::this_thread::sleep_for(writeRetryDelay);
    }
    return false;
}

} // namespace

void loadStateFile(VSTGlobals& globals) {
    if (globals.dataPath.empty())
        return;
    try {
        readStateFile(globals);
    } catch (const std::exception&) {
        globals.stateData.clear();
    }
    applyStateData(globals);
}

void applyStateData(VSTGlobals& globals) {
    if (!globals.stateData.empty() && globals.plugin && acceptsState(*globals.plugin))
        loadState(*globals.plugin, globals.stateData.data(), globals.stateData.size());
}

void saveStateToFile(VSTGlobals& globals) {
    if (globals.dataPath.empty())
        return;
    std::vector<uint8_t> current;
    if (globals.plugin && globals.plugin->effect != nullptr) {
        current = saveState(*globals.plugin);
        if (current == globals.stateData)
            return;
    } else if (globals.stateData.empty()) {
        return;
    }

    Vesk::XFile file;
    if (!openForRewrite(file, Vesk::fromUtf8(globals.dataPath)))
        return;
    if (!current.empty() && !file.write(current.data(), current.size(), Vesk::XFile::fromStart))
        return;
    globals.stateData = std::move(current);
}
