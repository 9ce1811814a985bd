#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace test_vst3 {

// What the VST 3 test plug-in does, read from TEST_VST3 when the module is entered. A plain
// value, copied into each object.
struct Options {
    bool entryFalse = false;
    bool nullFactory = false;
    bool controllerFirst = false;
    bool noAudioClass = false;
    bool single = false;
    bool noController = false;
    bool refuseInitialize = false;
    bool throwInitialize = false;
    bool mono = false;
    bool sidechain = false;
    bool instrument = false;
    bool doublePrecision = false;
    bool controllerState = false;
    bool refuseArrangements = false;
    bool editor = false;
    int32_t editorWidth = 0; // 0 x 0 until attached: the view resizes itself from attached()
    int32_t editorHeight = 0;
    uint32_t latency = 0;
    uint32_t tail = 0;
    uint32_t claimedClasses = 0; // countClasses answers at least this; the extra ones fail
    std::string logPath;         // TEST_VST3_LOG

    int32_t channels() const { return mono ? 1 : 2; }
};

// Reads the comma-separated words. Throws std::invalid_argument naming the first word it does
// not know, so that a typo in a test cannot pass as the default behaviour.
Options parseOptions(std::string_view words);

// TEST_VST3 and TEST_VST3_LOG of this process.
Options optionsFromEnvironment();

} // namespace test_vst3
