#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace test_effect {

// What the test plug-in does, read once from TEST_EFFECT in the entry function. A plain value,
// copied into each instance.
struct Options {
    bool nullEntry = false;
    bool badMagic = false;
    bool synth = false;
    bool throwEntry = false;
    bool throwOpen = false;
    bool throwResume = false;
    bool print = false;
    int32_t inputs = 2;
    int32_t outputs = 2;
    bool sidechain = false;
    int32_t params = 1;
    bool editor = false;
    int16_t editorWidth = 320;
    int16_t editorHeight = 200;
    // On the first editor idle: ask the host for this size, and set parameter 0 (as a user would).
    std::optional<std::pair<int16_t, int16_t>> resizeTo;
    std::optional<float> editTo;
    bool chunks = false;
    std::optional<int32_t> latency;
    int32_t delay = 0;
    std::optional<int32_t> tail;
    bool doublePrecision = false;
    bool noReplacing = false;
    // processReplacing, setParameter and getParameter are null although the flags claim them.
    bool nullFunctions = false;
    // A constant 0.25 is added to every output sample, so the tail never falls silent.
    bool hum = false;
    // Where the plug-in calls exit(3), or raises SIGSEGV: "entry", "open", "process", "editor"
    // or "close"; empty for never.
    std::string exitAt;
    std::string crashAt;
    bool crash = false;
    bool hostCalls = false;

    // Pins fed into the outputs: the side-chain pins are read by nobody.
    int32_t mainInputs() const;
    int32_t initialDelay() const { return latency.value_or(delay); }
    int32_t tailSize() const { return tail.value_or(delay); }
};

// Reads the comma-separated words of TEST_EFFECT. Throws std::invalid_argument naming the first
// word it does not know or whose number does not read or is out of range, so that a typo in a
// test cannot pass silently as the default behaviour.
Options parseOptions(std::string_view words);

} // namespace test_effect
