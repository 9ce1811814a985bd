#include "tests/plugins/vst3_options.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <stdexcept>

namespace test_vst3 {

namespace {

[[noreturn]] void refuse(std::string_view word) {
    throw std::invalid_argument("bad TEST_VST3 word: " + std::string(word));
}

uint32_t readNumber(std::string_view text, std::string_view word) {
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc{} || end != text.data() + text.size())
        refuse(word);
    return number;
}

void applyWord(Options& options, std::string_view word) {
    struct Flag {
        std::string_view name;
        bool Options::*field;
    };
    static constexpr Flag flags[] = {
        {"entry-false", &Options::entryFalse},
        {"null-factory", &Options::nullFactory},
        {"controller-first", &Options::controllerFirst},
        {"no-audio-class", &Options::noAudioClass},
        {"single", &Options::single},
        {"no-controller", &Options::noController},
        {"refuse-initialize", &Options::refuseInitialize},
        {"throw-initialize", &Options::throwInitialize},
        {"mono", &Options::mono},
        {"sidechain", &Options::sidechain},
        {"instrument", &Options::instrument},
        {"double", &Options::doublePrecision},
        {"controller-state", &Options::controllerState},
        {"refuse-arrangements", &Options::refuseArrangements},
        {"editor", &Options::editor},
    };
    const auto equals = word.find('=');
    if (equals == std::string_view::npos) {
        const auto* flag = std::find_if(std::begin(flags), std::end(flags),
                                        [word](const Flag& f) { return f.name == word; });
        if (flag == std::end(flags))
            refuse(word);
        options.*(flag->field) = true;
        return;
    }
    const auto key = word.substr(0, equals);
    const auto value = word.substr(equals + 1);
    if (key == "latency") {
        options.latency = readNumber(value, word);
    } else if (key == "tail") {
        options.tail = readNumber(value, word);
    } else if (key == "classes") {
        options.claimedClasses = readNumber(value, word);
    } else if (key == "editor") {
        const auto cross = value.find('x');
        if (cross == std::string_view::npos)
            refuse(word);
        options.editor = true;
        options.editorWidth = static_cast<int32_t>(readNumber(value.substr(0, cross), word));
        options.editorHeight = static_cast<int32_t>(readNumber(value.substr(cross + 1), word));
    } else {
        refuse(word);
    }
}

} // namespace

Options parseOptions(std::string_view words) {
    Options options;
    while (!words.empty()) {
        const auto comma = words.find(',');
        const auto word = words.substr(0, comma);
        if (!word.empty())
            applyWord(options, word);
        words = comma == std::string_view::npos ? std::string_view{} : words.substr(comma + 1);
    }
    return options;
}

Options optionsFromEnvironment() {
    const char* words = std::getenv("TEST_VST3");
    Options options = parseOptions(words == nullptr ? "" : words);
    if (const char* log = std::getenv("TEST_VST3_LOG"))
        options.logPath = log;
    return options;
}

} // namespace test_vst3
