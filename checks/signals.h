#pragma once

#include <cstdint>
#include <vector>

// Planar audio: one vector of samples per channel, all of one length.
using Audio = std::vector<std::vector<float>>;

Audio silence(uint32_t channels, uint32_t frames);
// Uniform noise in [-amplitude, amplitude], the same for the same seed.
Audio noise(uint32_t channels, uint32_t frames, uint32_t seed, float amplitude = 0.5f);
// A unit impulse every `spacing` frames, from frame 0.
Audio impulses(uint32_t channels, uint32_t frames, uint32_t spacing);
// A full-scale sine of `cyclesPerFrame` (0..0.5).
Audio fullScaleSine(uint32_t channels, uint32_t frames, double cyclesPerFrame);
Audio joined(const Audio& first, const Audio& second);
// The frames from `frame` on.
Audio from(const Audio& audio, uint32_t frame);

uint32_t frameCount(const Audio& audio);
// NaN or infinity anywhere.
bool hasNonFinite(const Audio& audio);
// Subnormal (denormal) values anywhere.
bool hasSubnormal(const Audio& audio);
// The largest magnitude from frame `from` on.
double peak(const Audio& audio, uint32_t from = 0);
// The last frame whose magnitude on any channel is above `threshold`, plus one; 0 for none.
uint32_t lastAudibleFrameEnd(const Audio& audio, double threshold);
// The largest difference between two signals in dB full scale; -infinity when they are equal
// bit for bit, +infinity when their shapes differ.
double differenceDb(const Audio& a, const Audio& b);
