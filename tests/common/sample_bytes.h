#pragma once

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

template <typename Sample> std::vector<Sample> samplesOf(const std::string& bytes) {
    std::vector<Sample> samples(bytes.size() / sizeof(Sample));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(Sample));
    return samples;
}

} // namespace testing_support
