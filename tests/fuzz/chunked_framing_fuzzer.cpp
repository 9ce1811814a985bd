// libFuzzer target: arbitrary bytes as the input of "process --protocol chunked", run in-process
// through the real command with the identity test plug-in. Byte 0 chooses the set-up; the rest
// is the chunked stream (tests/fuzz/README.md). Failures the loop reports are caught here.

#include "app/commands.h"
#include "app/vst_globals.h"
#include "hosting/load_failure.h"
#include "hosting/module/module_library.h"
#include "hosting/plugin_loading.h"
#include "support/stream.h"
#include "support/stream_memory.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>

namespace {

// Bits 0-2 of the set-up byte: --bits and --formattag. The last has no converter.
constexpr const char* encodings[8][2] = {{"8", "1"},  {"16", "1"}, {"24", "1"}, {"32", "1"},
                                         {"32", "3"}, {"64", "3"}, {"16", "1"}, {"12", "1"}};

// Bits 5-6: TEST_EFFECT words after "double" (always able to run 64-bit, so the precision
// follows --float64) and --channels when the command line carries a format.
constexpr const char* pinLayouts[4][2] = {{"double", "2"},
                                          {"double,inputs=1,outputs=1", "1"},
                                          {"double,inputs=6,outputs=6", "6"},
                                          {"double,sidechain", "2"}};

class discardingSink : public Vesk::streamOut {
  public:
    void write(const void*, uint64_t) override {}
};

std::shared_ptr<ModuleLibrary> testEffectModule;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ::unsetenv("TEST_EFFECT_LOG");
    testEffectModule = ModuleLibrary::open(TEST_EFFECT_PATH);
    if (!testEffectModule) {
        std::fprintf(stderr, "cannot load %s\n", TEST_EFFECT_PATH);
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const uint8_t setup = data[0];
    const auto& pins = pinLayouts[(setup >> 5) & 3];
    const std::string words = std::string(pins[0]) + ((setup & 0x80) != 0 ? ",chunks" : "");
    ::setenv("TEST_EFFECT", words.c_str(), 1);

    VSTGlobals globals;
    globals.command = "process";
    globals.arguments = {{"--protocol", "chunked"},
                         {"--bits", encodings[setup & 7][0]},
                         {"--formattag", encodings[setup & 7][1]},
                         {"--float64", (setup & 0x08) != 0 ? "1" : "0"}};
    if ((setup & 0x10) != 0)
        globals.arguments.insert({{"--rate", "44100"}, {"--channels", pins[1]}});
    try {
        globals.plugin.openVst2(testEffectModule, kVstProcessLevelOffline, 0);
    } catch (const LoadFailure&) {
        std::fprintf(stderr, "the test plug-in did not open with TEST_EFFECT=%s\n", words.c_str());
        std::abort();
    }
    globals.output = std::make_shared<discardingSink>();
    globals.input = std::make_shared<Vesk::streamInMemRef>(data + 1, size - 1);

    try {
        runProcessCommand(globals);
    } catch (const std::exception&) {
    }
    return 0;
}
