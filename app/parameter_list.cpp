#include "app/commands.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// Tabs separate the fields and a line is one parameter, so neither may come from the plug-in.
std::string fieldText(std::string text) {
    for (char& c : text)
        if (c == '\t' || c == '\n' || c == '\r')
            c = ' ';
    return text;
}

// A decimal number: its significant digits and the power of ten of the first.
struct Decimal {
    std::string digits;
    int exponent = 0;
};

// Reads printf's "%e" text. The radix character follows the C locale, which a plug-in may have
// changed: only the digits are taken.
Decimal scientificDecimal(const char* text) {
    Decimal decimal;
    for (; *text != 'e'; ++text)
        if (*text >= '0' && *text <= '9')
            decimal.digits += *text;
    decimal.exponent = std::atoi(text + 1);
    return decimal;
}

// The float a decimal reads as, written as a whole number and a power of ten: no radix character.
float readBack(const Decimal& decimal) {
    const int power = decimal.exponent - static_cast<int>(decimal.digits.size()) + 1;
    return std::strtof((decimal.digits + "e" + std::to_string(power)).c_str(), nullptr);
}

// One unit up in the last digit, without the trailing zeros that leaves.
Decimal nextUp(Decimal decimal) {
    std::string& digits = decimal.digits;
    size_t last = digits.size();
    while (last > 0 && digits[last - 1] == '9')
        digits[--last] = '0';
    if (last == 0) {
        digits.insert(0, "1");
        ++decimal.exponent;
    } else {
        ++digits[last - 1];
    }
    while (digits.size() > 1 && digits.back() == '0')
        digits.pop_back();
    return decimal;
}

// The fewest significant digits that read back as `magnitude` (finite, not negative) and, of
// those, the nearest to it. printf rounds correctly, so the nearest decimal of each length is
// tried first.
Decimal shortestDecimal(float magnitude) {
    // Nine significant digits always read back as the same float.
    constexpr int maxPrecision = 8;
    Decimal nearest;
    for (int precision = 0; precision <= maxPrecision; ++precision) {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%.*e", precision, static_cast<double>(magnitude));
        nearest = scientificDecimal(text.data());
        const float back = readBack(nearest);
        if (back == magnitude)
            break;
        // At a power of two the floats below lie closer than those above, so the nearest
        // decimal below may read as a smaller float where the next one up still reads back.
        if (back < magnitude) {
            Decimal up = nextUp(nearest);
            if (readBack(up) == magnitude)
                return up;
        }
    }
    return nearest;
}

// The shortest text that reads back as the same float, as std::to_chars writes it (which macOS
// 11's C++ library lacks for floating point): fixed or scientific notation, whichever is shorter,
// fixed on a tie; a whole number in fixed notation is written exactly.
std::string valueText(float value) {
    const std::string sign = std::signbit(value) ? "-" : "";
    if (std::isnan(value))
        return sign + "nan";
    const float magnitude = std::fabs(value);
    if (std::isinf(magnitude))
        return sign + "inf";

    const auto [digits, exponent] = shortestDecimal(magnitude);
    const int count = static_cast<int>(digits.size());
    // The power of ten has at least two digits.
    std::string power = std::to_string(std::abs(exponent));
    if (power.size() < 2)
        power.insert(0, "0");
    const std::string scientific = digits.substr(0, 1) + (count > 1 ? "." + digits.substr(1) : "") +
                                   (exponent < 0 ? "e-" : "e+") + power;
    const int fixedLength = exponent < 0            ? count + 1 - exponent
                            : exponent + 1 >= count ? exponent + 1
                                                    : count + 1;
    if (fixedLength > static_cast<int>(scientific.size()))
        return sign + scientific;
    if (exponent < 0)
        return sign + "0." + std::string(static_cast<size_t>(-exponent - 1), '0') + digits;
    if (exponent + 1 < count)
        return sign + digits.substr(0, static_cast<size_t>(exponent + 1)) + "." +
               digits.substr(static_cast<size_t>(exponent + 1));
    // No digit after the units: the float is a whole number, which %.0f writes exactly.
    std::array<char, 48> whole{};
    std::snprintf(whole.data(), whole.size(), "%.0f", static_cast<double>(magnitude));
    return sign + whole.data();
}

} // namespace

bool runParamsCommand(VSTGlobals& globals) {
    const Plugin& plugin = *globals.plugin;
    const int32_t count = plugin.parameterCount();
    for (int32_t index = 0; index < count; ++index) {
        std::fprintf(stderr, "%u\t%s\t%s\t%s\t%s\n", plugin.parameterNumber(index),
                     fieldText(plugin.parameterName(index)).c_str(),
                     valueText(plugin.parameterValue(index)).c_str(),
                     fieldText(plugin.parameterDisplay(index)).c_str(),
                     fieldText(plugin.parameterUnit(index)).c_str());
    }
    return true;
}
