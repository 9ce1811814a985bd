#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// Samples in and out of the byte strings that the adapter reads and writes (native order, which
// is the streams' little-endian order on every machine we run on).
namespace testing_support {

template <typename Sample> std::string bytesOf(const std::vector<Sample>& samples) {
    return std::string(reinterpret_cast<const char*>(samples.data()),
                       samples.size() * sizeof(Sample));
}

// 16-bit samples (count of them), every value even so that halving is exact: (i * 202) wrapping,
// divided by `scale`.
inline std::string evenSamples16(size_t count, int scale = 1) {
    std::vector<int16_t> samples;
    for (size_t i = 0; i < count; ++i)
        samples.push_back(static_cast<int16_t>(static_cast<int16_t>(i * 2 * 101) / scale));
    return bytesOf(samples);
}

template <typename Sample> std::vector<Sample> samplesOf(const std::string& bytes) {
    std::vector<Sample> samples(bytes.size() / sizeof(Sample));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(Sample));
    return samples;
}

} // namespace testing_support
