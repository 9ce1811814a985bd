#pragma once

#include "checks/check.h"
#include "checks/plugin_under_test.h"

#include <cstdint>
#include <memory>
#include <string>

// The format most checks run at, and the noise they feed.
constexpr uint32_t checkRate = 44100;
constexpr uint32_t checkChannels = 2;

CheckResult verdict(CheckStatus status, std::string message,
                    nlohmann::json figures = nlohmann::json::object());

// Frames of audio a check at `level` feeds for a measurement: 0.5, 2 or 5 seconds at `rate`.
uint32_t measurementFrames(int level, uint32_t rate = checkRate);

// A fresh instance set up for `rate` and stereo (or what it accepts of that); throws
// std::runtime_error saying what it refused.
std::unique_ptr<PluginUnderTest> openConfigured(const CheckTarget& target,
                                                uint32_t rate = checkRate,
                                                uint32_t channels = checkChannels);

// A difference in dB full scale as a figure: null for none at all.
nlohmann::json decibelFigure(double db);
// The verdict on two outputs that should be the same: equal bit for bit passes, within
// -120 dB warns with the figure, more fails.
CheckStatus sameOutputStatus(double differenceDb);
std::string decibelText(double db);

// The last line of a child's output, its line end dropped: what it said last.
std::string lastLine(std::string text);
