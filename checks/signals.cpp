#include "checks/signals.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <random>

Audio silence(uint32_t channels, uint32_t frames) {
    return Audio(channels, std::vector<float>(frames, 0.0f));
}

Audio noise(uint32_t channels, uint32_t frames, uint32_t seed, float amplitude) {
    // A generator of our own: the C library's belongs to the plug-in.
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> sample(-amplitude, amplitude);
    Audio audio = silence(channels, frames);
    for (auto& channel : audio)
        for (float& value : channel)
            value = sample(generator);
    return audio;
}

Audio impulses(uint32_t channels, uint32_t frames, uint32_t spacing) {
    Audio audio = silence(channels, frames);
    for (auto& channel : audio)
        for (uint32_t frame = 0; frame < frames; frame += std::max<uint32_t>(spacing, 1))
            channel[frame] = 1.0f;
    return audio;
}

Audio fullScaleSine(uint32_t channels, uint32_t frames, double cyclesPerFrame) {
    Audio audio = silence(channels, frames);
    for (auto& channel : audio)
        for (uint32_t frame = 0; frame < frames; ++frame)
            channel[frame] = static_cast<float>(
                std::sin(2.0 * std::numbers::pi * cyclesPerFrame * static_cast<double>(frame)));
    return audio;
}

Audio joined(const Audio& first, const Audio& second) {
    Audio audio = first;
    for (size_t channel = 0; channel < audio.size() && channel < second.size(); ++channel)
        audio[channel].insert(audio[channel].end(), second[channel].begin(), second[channel].end());
    return audio;
}

Audio from(const Audio& audio, uint32_t frame) {
    Audio rest;
    for (const auto& channel : audio)
        rest.emplace_back(channel.begin() + std::min<size_t>(frame, channel.size()), channel.end());
    return rest;
}

uint32_t frameCount(const Audio& audio) {
    return audio.empty() ? 0 : static_cast<uint32_t>(audio.front().size());
}

bool hasNonFinite(const Audio& audio) {
    return std::any_of(audio.begin(), audio.end(), [](const auto& channel) {
        return std::any_of(channel.begin(), channel.end(),
                           [](float value) { return !std::isfinite(value); });
    });
}

bool hasSubnormal(const Audio& audio) {
    return std::any_of(audio.begin(), audio.end(), [](const auto& channel) {
        return std::any_of(channel.begin(), channel.end(),
                           [](float value) { return std::fpclassify(value) == FP_SUBNORMAL; });
    });
}

double peak(const Audio& audio, uint32_t from) {
    double largest = 0.0;
    for (const auto& channel : audio)
        for (size_t frame = from; frame < channel.size(); ++frame)
            largest = std::max(largest, static_cast<double>(std::fabs(channel[frame])));
    return largest;
}

uint32_t lastAudibleFrameEnd(const Audio& audio, double threshold) {
    uint32_t end = 0;
    for (const auto& channel : audio)
        for (size_t frame = channel.size(); frame > end; --frame)
            if (std::fabs(channel[frame - 1]) > threshold) {
                end = static_cast<uint32_t>(frame);
                break;
            }
    return end;
}

double differenceDb(const Audio& a, const Audio& b) {
    if (a.size() != b.size() || frameCount(a) != frameCount(b))
        return std::numeric_limits<double>::infinity();
    double largest = 0.0;
    bool identical = true;
    for (size_t channel = 0; channel < a.size(); ++channel)
        for (size_t frame = 0; frame < a[channel].size(); ++frame) {
            const float x = a[channel][frame];
            const float y = b[channel][frame];
            // Bit for bit: NaN equals NaN here, +0 does not equal -0.
            if (std::memcmp(&x, &y, sizeof x) != 0) {
                identical = false;
                const double gap = std::fabs(static_cast<double>(x) - static_cast<double>(y));
                largest = std::isnan(gap) ? std::numeric_limits<double>::infinity()
                                          : std::max(largest, gap);
            }
        }
    if (identical)
        return -std::numeric_limits<double>::infinity();
    return largest == 0.0 ? -std::numeric_limits<double>::infinity() : 20.0 * std::log10(largest);
}
