#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

// One stream sample encoding each: its size and the conversion of a single sample to and from
// the plug-in's type T. Integer encodings write in two steps, quantise (to int32_t, contiguous
// and vectorised) then pack (into the strided stream bytes). Multiplication happens in T, so the
// float form loses low bits of wide integers exactly as the double form does not. Stateless; any
// thread.
namespace sampleCodecs {

static_assert(std::endian::native == std::endian::little,
              "stream samples are little-endian and loaded with plain memcpy");

// Rounds half away from zero and clamps to [low, high]; NaN gives 0. low and high are whole
// numbers that both T and int32_t hold exactly. Clamping before rounding gives the same result
// as after (rounding is monotonic and keeps whole bounds) and keeps the cast defined. No
// branches, so that the quantising loops vectorise: `rest` is exact and lies in (-1, 1), so
// truncating 2 * rest yields the -1, 0 or +1 that rounding away from zero adds.
template <typename T> inline int32_t roundClamped(T value, T low, T high) {
    T y = value > low ? value : low;
    y = y < high ? y : high;
    y = value == value ? y : T(0);
    const int32_t whole = static_cast<int32_t>(y);
    const T rest = y - static_cast<T>(whole);
    return whole + static_cast<int32_t>(rest * T(2));
}

// The full 32-bit range. float cannot hold 2^31 - 1, but every float at that size is whole, so
// clamp to the largest float below 2^31 and take the top code from the comparison.
template <typename T> inline int32_t roundClampedInt32(T value) {
    constexpr T top = std::is_same_v<T, float> ? T(2147483520.0f) : T(2147483647.0);
    const int32_t rounded = roundClamped(value, T(-2147483648.0), top);
    return value >= T(2147483648.0) ? std::numeric_limits<int32_t>::max() : rounded;
}

template <typename S> inline S load(const uint8_t* bytes) {
    S sample;
    std::memcpy(&sample, bytes, sizeof sample);
    return sample;
}

template <typename S> inline void store(uint8_t* bytes, S sample) {
    std::memcpy(bytes, &sample, sizeof sample);
}

struct Float32 {
    static constexpr uint32_t size = 4;
    template <typename T> static T decode(const uint8_t* p) {
        return static_cast<T>(load<float>(p));
    }
    template <typename T> static void encode(T x, uint8_t* p) { store(p, static_cast<float>(x)); }
};

struct Float64 {
    static constexpr uint32_t size = 8;
    template <typename T> static T decode(const uint8_t* p) {
        return static_cast<T>(load<double>(p));
    }
    template <typename T> static void encode(T x, uint8_t* p) { store(p, static_cast<double>(x)); }
};

// Unsigned with a bias of 128.
struct UInt8 {
    static constexpr uint32_t size = 1;
    template <typename T> static T decode(const uint8_t* p) {
        return static_cast<T>(static_cast<int8_t>(*p ^ 0x80)) * T(0.0078125);
    }
    static constexpr double scale = 128, low = -128, high = 127;
    template <typename T> static int32_t quantise(T x) {
        return roundClamped(x * T(scale), T(low), T(high));
    }
    static void pack(int32_t v, uint8_t* p) { *p = static_cast<uint8_t>(v + 128); }
};

struct Int16 {
    static constexpr uint32_t size = 2;
    template <typename T> static T decode(const uint8_t* p) {
        return static_cast<T>(load<int16_t>(p)) * T(3.0517578125e-05);
    }
    static constexpr double scale = 32768, low = -32768, high = 32767;
    template <typename T> static int32_t quantise(T x) {
        return roundClamped(x * T(scale), T(low), T(high));
    }
    static void pack(int32_t v, uint8_t* p) { store(p, static_cast<int16_t>(v)); }
};

// Three bytes, least significant first, read as the top of a 32-bit sample. Writing drops the
// low byte of the rounded 32-bit value without rounding it: deliberate, the stream's consumers
// expect 24-bit output that rounds toward negative infinity.
struct Int24 {
    static constexpr uint32_t size = 3;
    template <typename T> static T decode(const uint8_t* p) {
        const uint32_t bits = uint32_t{p[0]} << 8 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 24;
        return static_cast<T>(static_cast<int32_t>(bits)) * T(4.656612873077393e-10);
    }
    static constexpr double scale = 2147483648.0;
    template <typename T> static int32_t quantise(T x) { return roundClampedInt32(x * T(scale)); }
    static void pack(int32_t v, uint8_t* p) {
        const auto bits = static_cast<uint32_t>(v);
        p[0] = static_cast<uint8_t>(bits >> 8);
        p[1] = static_cast<uint8_t>(bits >> 16);
        p[2] = static_cast<uint8_t>(bits >> 24);
    }
};

struct Int32 {
    static constexpr uint32_t size = 4;
    template <typename T> static T decode(const uint8_t* p) {
        return static_cast<T>(load<int32_t>(p)) * T(4.656612873077393e-10);
    }
    static constexpr double scale = 2147483648.0;
    template <typename T> static int32_t quantise(T x) { return roundClampedInt32(x * T(scale)); }
    static void pack(int32_t v, uint8_t* p) { store(p, v); }
};

} // namespace sampleCodecs
