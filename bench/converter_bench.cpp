// Stream bytes per second of the conversion kernels, each next to a memcpy of the same bytes.
#include "audio/fmt_converter.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace {

constexpr uint32_t blockFrames = 512;

struct encoding {
    int bits;
    bool isFloat;
};

constexpr encoding encodings[] = {{8, false},  {16, false}, {24, false},
                                  {32, false}, {32, true},  {64, true}};

template <typename T>
FmtConverter2<T> makeConverter(const benchmark::State& state, uint32_t channels) {
    const encoding e = encodings[state.range(0)];
    FmtConverter2<T> converter;
    converter.setup(channels, channels, e.bits, e.isFloat, blockFrames);
    for (uint32_t c = 0; c < channels; ++c)
        for (uint32_t i = 0; i < blockFrames; ++i) {
            const T value = T(0.9) * T(std::sin(0.01 * (i + 7 * c)));
            converter.inputs()[c][i] = value;
            converter.outputs()[c][i] = value;
        }
    return converter;
}

uint64_t streamBytes(const benchmark::State& state, uint32_t channels) {
    return uint64_t{blockFrames} * channels * (encodings[state.range(0)].bits / 8);
}

template <typename T> void readStream(benchmark::State& state) {
    const auto channels = static_cast<uint32_t>(state.range(1));
    auto converter = makeConverter<T>(state, channels);
    std::vector<uint8_t> bytes(streamBytes(state, channels));
    converter.writer(bytes.data(), blockFrames);
    for (auto _ : state) {
        converter.reader(bytes.data(), blockFrames);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes.size()));
}

template <typename T> void writeStream(benchmark::State& state) {
    const auto channels = static_cast<uint32_t>(state.range(1));
    auto converter = makeConverter<T>(state, channels);
    std::vector<uint8_t> bytes(streamBytes(state, channels));
    for (auto _ : state) {
        converter.writer(bytes.data(), blockFrames);
        benchmark::DoNotOptimize(bytes.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes.size()));
}

void copyStream(benchmark::State& state) {
    const auto channels = static_cast<uint32_t>(state.range(1));
    std::vector<uint8_t> from(streamBytes(state, channels), 1), to(from.size());
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size());
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(from.size()));
}

// range(0): encoding index (u8, s16, s24, s32, f32, f64); range(1): channels.
void encodingsAndLayouts(benchmark::internal::Benchmark* b) {
    b->ArgNames({"enc", "ch"});
    for (int e = 0; e < 6; ++e)
        for (int channels = 1; channels <= 8; ++channels)
            b->Args({e, channels});
}

BENCHMARK(readStream<float>)->Apply(encodingsAndLayouts);
BENCHMARK(writeStream<float>)->Apply(encodingsAndLayouts);
BENCHMARK(readStream<double>)->Apply(encodingsAndLayouts);
BENCHMARK(writeStream<double>)->Apply(encodingsAndLayouts);
BENCHMARK(copyStream)->Apply(encodingsAndLayouts);

} // namespace

BENCHMARK_MAIN();
