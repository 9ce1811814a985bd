#include "tests/hosting/fake_effect.h"

#include "app/state_file.h"
#include "hosting/plugin_loading.h"
#include "tests/common/scratch.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<uint8_t>;

Bytes floats(std::initializer_list<float> values) {
    Bytes bytes(values.size() * sizeof(float));
    std::memcpy(bytes.data(), std::data(values), bytes.size());
    return bytes;
}

void writeBytes(const fs::path& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

Bytes readBytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

// A folder of its own per test, and a program state whose plug-in is a fake with parameters.
struct Rig {
    fs::path folder;
    FakeEffect fake;
    VSTGlobals globals;

    explicit Rig(std::vector<float> parameters = {0.0f, 0.0f, 0.0f}) {
        char pattern[] = "/tmp/state-file-XXXXXX";
        folder = ::mkdtemp(pattern);
        fake.withParameters(std::move(parameters));
        globals.plugin = std::make_unique<PluginHost>();
        EXPECT_TRUE(attachEffect(*globals.plugin, &fake.effect));
        globals.dataPath = (folder / "settings.bin").string();
    }
    ~Rig() {
        globals.plugin.reset();
        fs::remove_all(folder);
    }
    fs::path data() const { return globals.dataPath; }
};

TEST(LoadStateFile, AppliesAFileOfSettings) {
    Rig rig;
    writeBytes(rig.data(), floats({0.5f, 0.25f}));
    loadStateFile(rig.globals);
    EXPECT_EQ(rig.globals.stateData, floats({0.5f, 0.25f}));
    EXPECT_EQ(rig.fake.parameters, (std::vector<float>{0.5f, 0.25f, 0.0f}));
}

TEST(LoadStateFile, FilesThatAreNotReadLeaveEverythingAlone) {
    struct Case {
        const char* name;
        std::function<void(const fs::path&)> make;
        std::optional<bool>
            stateKept; // stateData as it was before, rather than cleared; unset: either
    };
    const Case cases[] = {
        {"missing", [](const fs::path&) {}, false},
        {"empty", [](const fs::path& p) { writeBytes(p, {}); }, true},
        {"oversized",
         [](const fs::path& p) {
             writeBytes(p, {1});
             fs::resize_file(p, maximumStateFileSize + 1);
         },
         true},
        // Whether a folder reads as empty or fails depends on the file system.
        {"folder", [](const fs::path& p) { fs::create_directory(p); }, std::nullopt},
        // Nobody writes to it: opening it must not wait for a writer.
        {"pipe", [](const fs::path& p) { ::mkfifo(p.c_str(), 0600); }, std::nullopt},
    };
    for (const auto& c : cases) {
        Rig rig;
        c.make(rig.data());
        rig.globals.stateData = {7, 7};
        EXPECT_NO_THROW(loadStateFile(rig.globals)) << c.name;
        if (c.stateKept) {
            EXPECT_EQ(rig.globals.stateData, (*c.stateKept ? Bytes{7, 7} : Bytes{})) << c.name;
        }
        EXPECT_TRUE(rig.fake.parameterWrites.empty()) << c.name;
    }
}

TEST(LoadStateFile, LargestAcceptedSizeIsRead) {
    Rig rig;
    writeBytes(rig.data(), floats({0.5f}));
    fs::resize_file(rig.data(), maximumStateFileSize);
    loadStateFile(rig.globals);
    EXPECT_EQ(rig.globals.stateData.size(), maximumStateFileSize);
    EXPECT_EQ(rig.fake.parameters[0], 0.5f);
}

TEST(LoadStateFile, PlugInWithoutEditorOrParametersKeepsTheBytesUnapplied) {
    Rig rig(std::vector<float>{});
    writeBytes(rig.data(), floats({0.5f}));
    rig.fake.effect.flags |= effFlagsProgramChunks;
    loadStateFile(rig.globals);
    EXPECT_EQ(rig.globals.stateData, floats({0.5f}));
    for (const auto& call : rig.fake.calls)
        EXPECT_NE(call.opcode, effSetChunk);
}

TEST(LoadStateFile, EmptyPathReadsNothing) {
    Rig rig;
    writeBytes(rig.data(), floats({0.5f}));
    rig.globals.dataPath.clear();
    loadStateFile(rig.globals);
    EXPECT_TRUE(rig.globals.stateData.empty());
    EXPECT_TRUE(rig.fake.parameterWrites.empty());
}

struct timespec modificationTime(const fs::path& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0);
    return info.st_mtim;
}

TEST(SaveStateToFile, UnchangedSettingsLeaveTheFileUntouched) {
    Rig rig;
    writeBytes(rig.data(), floats({0.5f, 0.25f, 0.0f}));
    // An old time, so that any rewrite would show.
    const struct timespec old[2] = {{1000000, 0}, {1000000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, rig.data().c_str(), old, 0), 0);
    loadStateFile(rig.globals);

    saveStateToFile(rig.globals);
    EXPECT_EQ(modificationTime(rig.data()).tv_sec, 1000000);
    EXPECT_EQ(readBytes(rig.data()), floats({0.5f, 0.25f, 0.0f}));
}

TEST(SaveStateToFile, ChangedSettingsRewriteTheFile) {
    Rig rig;
    writeBytes(rig.data(), Bytes(100, 0xEE)); // longer than the new settings: must not leave a tail
    loadStateFile(rig.globals);
    rig.fake.parameters = {1.0f, 2.0f, 3.0f};

    saveStateToFile(rig.globals);
    EXPECT_EQ(readBytes(rig.data()), floats({1.0f, 2.0f, 3.0f}));
    EXPECT_EQ(rig.globals.stateData, floats({1.0f, 2.0f, 3.0f}));
}

TEST(SaveStateToFile, MissingFileIsCreated) {
    Rig rig;
    saveStateToFile(rig.globals);
    EXPECT_EQ(readBytes(rig.data()), floats({0.0f, 0.0f, 0.0f}));
}

TEST(SaveStateToFile, NothingToSaveKeepsTheOldFile) {
    for (const bool withPlugIn : {false, true}) {
        Rig rig(std::vector<float>{}); // a plug-in whose settings come back empty
        writeBytes(rig.data(), floats({0.5f}));
        loadStateFile(rig.globals);
        if (!withPlugIn)
            rig.globals.plugin.reset();
        saveStateToFile(rig.globals);
        EXPECT_EQ(readBytes(rig.data()), floats({0.5f})) << "with plug-in: " << withPlugIn;
    }
}

// A failed write (here the file size limit, as a full disk would) keeps the old file whole and
// says why; nothing of the attempt is left beside it.
TEST(SaveStateToFile, FailedWriteKeepsTheOldFileAndSaysWhy) {
    Rig rig;
    writeBytes(rig.data(), floats({0.5f}));
    loadStateFile(rig.globals);
    rig.fake.parameters = {1.0f, 2.0f, 3.0f};
    scratch::Child child([&](scratch::Child& self) {
        std::signal(SIGXFSZ, SIG_IGN);
        const struct rlimit limit { 6, 6 };
        ::setrlimit(RLIMIT_FSIZE, &limit);
        try {
            saveStateToFile(rig.globals);
            self.report("saved");
        } catch (const std::exception& failure) {
            self.report(failure.what());
        }
        return 0;
    });
    EXPECT_EQ(child.nextLine(), "Could not save the settings to '" + rig.data().string() +
                                    "': file access error: File too large");
    EXPECT_EQ(child.finish(), 0);
    EXPECT_EQ(readBytes(rig.data()), floats({0.5f}));
    EXPECT_EQ(std::distance(fs::directory_iterator(rig.folder), fs::directory_iterator()), 1);
}

TEST(SaveStateToFile, UnwritablePathThrowsAndCreatesNothing) {
    Rig rig;
    rig.globals.dataPath = (rig.folder / "missing-folder" / "settings.bin").string();
    rig.globals.stateData = {1};
    EXPECT_THROW(saveStateToFile(rig.globals), std::runtime_error);
    EXPECT_EQ(rig.globals.stateData, Bytes{1}) << "nothing was written";
    EXPECT_FALSE(fs::exists(rig.folder / "missing-folder"));
}

TEST(SaveStateToFile, EmptyPathWritesNothing) {
    Rig rig;
    rig.globals.dataPath.clear();
    rig.fake.parameters = {1.0f, 2.0f, 3.0f};
    saveStateToFile(rig.globals);
    EXPECT_TRUE(fs::is_empty(rig.folder));
    EXPECT_TRUE(rig.globals.stateData.empty());
}

} // namespace
