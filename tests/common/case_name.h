#pragma once

#include <cctype>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

// Test names for table rows that have no name of their own, made from the row's values: letters
// and digits kept, other characters spelled out, pieces joined by "_". Distinct rows get
// distinct names that stay the same from build to build (GoogleTest refuses duplicates).
namespace testing_support {

inline std::string spelled(std::string_view text) {
    static constexpr std::pair<char, const char*> words[] = {
        {' ', "Space"},  {'\t', "Tab"},  {'\n', "Newline"}, {'+', "Plus"}, {'-', "Minus"},
        {'.', "Dot"},    {'/', "Slash"}, {':', "Colon"},    {'@', "At"},   {'#', "Hash"},
        {'$', "Dollar"}, {'?', "Query"}, {'=', "Equals"},   {'!', "Bang"}, {'_', "_"}};
    if (text.empty())
        return "Empty";
    // Option names read better without their dashes.
    if (text.size() > 2 && text.starts_with("--") &&
        std::isalpha(static_cast<unsigned char>(text[2])))
        text.remove_prefix(2);
    std::string name;
    for (const char c : text) {
        if (std::isalnum(static_cast<unsigned char>(c))) {
            name += c;
            continue;
        }
        const char* word = nullptr;
        for (const auto& [character, spelling] : words)
            if (character == c)
                word = spelling;
        char code[8];
        if (word == nullptr)
            std::snprintf(code, sizeof code, "x%02X", static_cast<unsigned char>(c));
        name += word != nullptr ? word : code;
    }
    return name;
}

// Takes a braced list of texts or a container of them.
template <typename Pieces = std::initializer_list<std::string_view>>
std::string caseName(const Pieces& pieces) {
    std::string name;
    for (const std::string_view piece : pieces)
        name += (name.empty() ? "" : "_") + spelled(piece);
    return name.empty() ? "None" : name;
}

} // namespace testing_support
