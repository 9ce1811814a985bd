#include "app/state_file.h"

#include "support/errors.h"
#include "support/file_replace.h"
#include "support/message_text.h"
#include "support/unique_descriptor.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int writeAttempts = 10;
constexpr auto writeRetryDelay = std::chrono::milliseconds(10);

bool acceptsState(const Plugin& plugin) {
    return plugin.hasEditor() || plugin.parameterCount() > 0;
}

// Read-only, so that a failed or partial read can never damage the file. Opened without
// waiting, so that a pipe with no writer cannot hold us up; only a regular file is read.
void readStateFile(VSTGlobals& globals) {
    const Vesk::uniqueDescriptor file(
        ::open(globals.dataPath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!file.valid())
        Vesk::throwFileError();
    struct stat info {};
    if (::fstat(file.get(), &info) != 0)
        Vesk::throwFileError();
    if (!S_ISREG(info.st_mode))
        return;
    const auto size = static_cast<uint64_t>(info.st_size);
    if (size < 1 || size > maximumStateFileSize)
        return;
    globals.stateData.resize(size);
    uint64_t done = 0;
    while (done < size) {
        const ssize_t got = ::read(file.get(), globals.stateData.data() + done, size - done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            Vesk::throwFileError();
        if (got == 0)
            break;
        done += static_cast<uint64_t>(got);
    }
    globals.stateData.resize(done);
}

// Only a regular file (or none yet) is replaced: a pipe or device named by mistake stays.
void checkReplaceable(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode))
        throw std::runtime_error("not a regular file");
}

// Another process may hold the file for a moment (the parent copying it, a virus scanner):
// retry briefly rather than lose the user's settings at the first refusal.
void writeStateFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    checkReplaceable(path);
    for (int attempt = 1;; ++attempt) {
        try {
            Vesk::replaceFileContents(path, bytes);
            return;
        } catch (const Vesk::file_access_error&) {
            if (attempt == writeAttempts)
                throw;
        }
        std::this_thread::sleep_for(writeRetryDelay);
    }
}

} // namespace

void loadStateFile(VSTGlobals& globals) {
    if (globals.dataPath.empty())
        return;
    try {
        readStateFile(globals);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        globals.stateData.clear();
    }
    applyStateData(globals);
}

void applyStateData(VSTGlobals& globals) {
    if (!globals.stateData.empty() && globals.plugin && acceptsState(*globals.plugin))
        globals.plugin->loadState(globals.stateData);
}

void saveStateToFile(VSTGlobals& globals) {
    if (globals.dataPath.empty() || !globals.plugin)
        return;
    std::vector<uint8_t> current = globals.plugin->saveState();
    // An empty answer is a plug-in that could not give its settings, not settings to keep.
    if (current.empty() || current == globals.stateData)
        return;
    try {
        writeStateFile(globals.dataPath, current);
    } catch (const std::exception& failure) {
        throw std::runtime_error("Could not save the settings to '" +
                                 Vesk::escapedForMessage(globals.dataPath) +
                                 "': " + failure.what());
    }
    globals.stateData = std::move(current);
}

bool saveStateToFileReporting(VSTGlobals& globals) noexcept {
    try {
        saveStateToFile(globals);
        return true;
    } catch (const std::bad_alloc&) {
        std::fputs("Could not save the settings: out of memory\n", stderr);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
    }
    return false;
}
