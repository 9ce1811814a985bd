#include "tests/plugins/effect_options.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string>
#include <tuple>

namespace test_effect {

namespace {

// Bounds that keep every buffer the plug-in makes small; tests need nothing near them. Pin
// counts have none: the plug-in keeps nothing per pin, and hosts must cope with absurd ones.
constexpr int32_t kMaxParams = 1024;
constexpr int32_t kMaxDelay = 1 << 20;

std::string_view trim(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    const auto last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

[[noreturn]] void refuse(std::string_view word) {
    throw std::invalid_argument("bad TEST_EFFECT word: " + std::string(word));
}

int32_t readNumber(std::string_view text, std::string_view word, int32_t low, int32_t high) {
    int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc{} || end != text.data() + text.size() || number < low ||
        number > high)
        refuse(word);
    return number;
}

std::string readPlace(std::string_view place, std::string_view word) {
    static constexpr std::string_view places[] = {"entry", "open", "process", "editor", "close"};
    if (std::find(std::begin(places), std::end(places), place) == std::end(places))
        refuse(word);
    return std::string(place);
}

void applyFlag(Options& options, std::string_view word) {
    struct Flag {
        std::string_view name;
        bool Options::*field;
    };
    static constexpr Flag flags[] = {
        {"null", &Options::nullEntry},
        {"bad-magic", &Options::badMagic},
        {"synth", &Options::synth},
        {"throw-entry", &Options::throwEntry},
        {"throw-open", &Options::throwOpen},
        {"throw-resume", &Options::throwResume},
        {"print", &Options::print},
        {"sidechain", &Options::sidechain},
        {"editor", &Options::editor},
        {"chunks", &Options::chunks},
        {"double", &Options::doublePrecision},
        {"no-replacing", &Options::noReplacing},
        {"null-functions", &Options::nullFunctions},
        {"hum", &Options::hum},
        {"crash", &Options::crash},
        {"host-calls", &Options::hostCalls},
    };
    if (word == "no-params") {
        options.params = 0;
        return;
    }
    const auto* flag = std::find_if(std::begin(flags), std::end(flags),
                                    [word](const Flag& f) { return f.name == word; });
    if (flag == std::end(flags))
        refuse(word);
    options.*(flag->field) = true;
}

std::pair<int16_t, int16_t> readSize(std::string_view size, std::string_view word) {
    const auto cross = size.find('x');
    if (cross == std::string_view::npos)
        refuse(word);
    return {static_cast<int16_t>(readNumber(size.substr(0, cross), word, 1, 32767)),
            static_cast<int16_t>(readNumber(size.substr(cross + 1), word, 1, 32767))};
}

void applyEditorSize(Options& options, std::string_view size, std::string_view word) {
    options.editor = true;
    std::tie(options.editorWidth, options.editorHeight) = readSize(size, word);
}

void applyWord(Options& options, std::string_view word) {
    const auto equals = word.find('=');
    if (equals == std::string_view::npos) {
        applyFlag(options, word);
        return;
    }
    const auto key = word.substr(0, equals);
    const auto value = word.substr(equals + 1);
    if (key == "inputs")
        options.inputs = readNumber(value, word, INT32_MIN, INT32_MAX);
    else if (key == "outputs")
        options.outputs = readNumber(value, word, INT32_MIN, INT32_MAX);
    else if (key == "exit-at")
        options.exitAt = readPlace(value, word);
    else if (key == "crash-at")
        options.crashAt = readPlace(value, word);
    else if (key == "params")
        options.params = readNumber(value, word, 0, kMaxParams);
    else if (key == "editor")
        applyEditorSize(options, value, word);
    else if (key == "latency")
        options.latency = readNumber(value, word, INT32_MIN, INT32_MAX);
    else if (key == "delay")
        options.delay = readNumber(value, word, 0, kMaxDelay);
    else if (key == "resize")
        options.resizeTo = readSize(value, word);
    else if (key == "edit")
        options.editTo = static_cast<float>(readNumber(value, word, 0, 100)) / 100.0f;
    else if (key == "tail")
        options.tail = readNumber(value, word, INT32_MIN, INT32_MAX);
    else
        refuse(word);
}

} // namespace

int32_t Options::mainInputs() const {
    if (sidechain)
        return 2;
    return std::max(inputs, 0);
}

Options parseOptions(std::string_view words) {
    Options options;
    while (!words.empty()) {
        const auto comma = words.find(',');
        const auto word = trim(words.substr(0, comma));
        if (!word.empty())
            applyWord(options, word);
        words = comma == std::string_view::npos ? std::string_view{} : words.substr(comma + 1);
    }
    if (options.sidechain)
        options.inputs = 4;
    return options;
}

} // namespace test_effect
