#include "tests/hosting/fake_effect.h"

#include "app/state_file.h"
#include "hosting/plugin_loading.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<uint8_t>;

Bytes floats(std::initializer_list<float> values) {
    Bytes bytes(values.size() * sizeof(float));
    std::memcpy(bytes.data(), std::data(values), bytes.size());
    return bytes;
}

// A folder of its own, and a program state whose plug-in is a fake with three parameters and
// no editor.
struct Rig {
    fs::path folder;
    FakeEffect fake;
    VSTGlobals globals;

    Rig() {
        char pattern[] = "/tmp/state-file-XXXXXX";
        folder = ::mkdtemp(pattern);
        fake.withParameters({0.0f, 0.0f, 0.0f});
        globals.plugin = std::make_unique<PluginHost>();
        EXPECT_TRUE(attachEffect(*globals.plugin, &fake.effect));
        globals.dataPath = (folder / "settings.bin").string();
    }
    ~Rig() {
        globals.plugin.reset();
        fs::remove_all(folder);
    }
    void write(const Bytes& bytes) const {
        std::ofstream(globals.dataPath, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
    Bytes read() const {
        std::ifstream in(globals.dataPath, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), {});
    }
};

TEST(LoadStateFile, LargestAcceptedSizeIsReadAndApplied) {
    Rig rig;
    rig.write(floats({0.5f}));
    fs::resize_file(rig.globals.dataPath, maximumStateFileSize);
    loadStateFile(rig.globals);
    EXPECT_EQ(rig.globals.stateData.size(), maximumStateFileSize);
    EXPECT_EQ(rig.fake.parameters[0], 0.5f);
}

TEST(SaveStateToFile, ChangedSettingsRewriteTheWholeFile) {
    Rig rig;
    rig.write(Bytes(100, 0xEE)); // longer than the new settings: must not leave a tail
    loadStateFile(rig.globals);
    rig.fake.parameters = {1.0f, 2.0f, 3.0f};
    saveStateToFile(rig.globals);
    EXPECT_EQ(rig.read(), floats({1.0f, 2.0f, 3.0f}));
}

} // namespace
