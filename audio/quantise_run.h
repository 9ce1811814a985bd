#pragma once

#include "audio/sample_codecs.h"

#include <cstdint>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Quantises a contiguous run of plug-in samples to the integer codes of an integer codec,
// exactly as Codec::quantise does one sample. On x86 the run goes four floats or two doubles
// at a time; elsewhere, and for the last few samples, one at a time.
//
// The vector form rounds as trunc(y + copysign(h, y)), h being the largest value below 0.5:
// for every |y| < 2^31 that sum rounds (to nearest) to a value on the correct side of the next
// whole number, which is round half away from zero. Clamping uses the min and max
// instructions, whose NaN behaviour is irrelevant here because NaNs are zeroed afterwards by
// their own mask.
namespace sampleCodecs {

template <typename Codec>
concept fullRangeCodec = Codec::scale == 2147483648.0;

// The clamp bounds of a codec in T. Full-range codecs clamp to the largest T below 2^31 and
// take the top code from a comparison, as roundClampedInt32 does.
template <typename T, typename Codec> constexpr T lowBound() {
    if constexpr (fullRangeCodec<Codec>)
        return T(-2147483648.0);
    else
        return T(Codec::low);
}
template <typename T, typename Codec> constexpr T highBound() {
    if constexpr (fullRangeCodec<Codec>)
        return std::is_same_v<T, float> ? T(2147483520.0f) : T(2147483647.0);
    else
        return T(Codec::high);
}

#if defined(__SSE2__)

inline __m128i quantiseFour(__m128 x, __m128 scale, __m128 low, __m128 high) {
    const __m128 v = _mm_mul_ps(x, scale);
    const __m128 ordered = _mm_cmpord_ps(v, v);
    __m128 y = _mm_min_ps(_mm_max_ps(v, low), high);
    y = _mm_and_ps(y, ordered);
    const __m128 half = _mm_or_ps(_mm_and_ps(y, _mm_set1_ps(-0.0f)), _mm_set1_ps(0.49999997f));
    return _mm_cvttps_epi32(_mm_add_ps(y, half));
}

inline __m128i quantiseTwo(__m128d x, __m128d scale, __m128d low, __m128d high) {
    const __m128d v = _mm_mul_pd(x, scale);
    const __m128d ordered = _mm_cmpord_pd(v, v);
    __m128d y = _mm_min_pd(_mm_max_pd(v, low), high);
    y = _mm_and_pd(y, ordered);
    const __m128d half =
        _mm_or_pd(_mm_and_pd(y, _mm_set1_pd(-0.0)), _mm_set1_pd(0.49999999999999994));
    return _mm_cvttpd_epi32(_mm_add_pd(y, half));
}

template <typename Codec>
inline uint32_t quantiseVectors(const float* in, int32_t* out, uint32_t count) {
    const __m128 scale = _mm_set1_ps(float(Codec::scale));
    const __m128 low = _mm_set1_ps(lowBound<float, Codec>());
    const __m128 high = _mm_set1_ps(highBound<float, Codec>());
    uint32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const __m128 x = _mm_loadu_ps(in + i);
        __m128i codes = quantiseFour(x, scale, low, high);
        if constexpr (fullRangeCodec<Codec>) {
            // 2^31 and above: the top code, which float cannot hold.
            const __m128i top =
                _mm_castps_si128(_mm_cmpge_ps(_mm_mul_ps(x, scale), _mm_set1_ps(2147483648.0f)));
            codes = _mm_or_si128(_mm_andnot_si128(top, codes),
                                 _mm_and_si128(top, _mm_set1_epi32(0x7FFFFFFF)));
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), codes);
    }
    return i;
}

// The top bound of double is 2^31 - 1 itself, so no comparison is needed for the top code.
template <typename Codec>
inline uint32_t quantiseVectors(const double* in, int32_t* out, uint32_t count) {
    const __m128d scale = _mm_set1_pd(Codec::scale);
    const __m128d low = _mm_set1_pd(lowBound<double, Codec>());
    const __m128d high = _mm_set1_pd(highBound<double, Codec>());
    uint32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const __m128i first = quantiseTwo(_mm_loadu_pd(in + i), scale, low, high);
        const __m128i second = quantiseTwo(_mm_loadu_pd(in + i + 2), scale, low, high);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi64(first, second));
    }
    return i;
}

// Interleaves mono or stereo 8- and 16-bit codes, eight frames at a time (sixteen for 8-bit
// mono). The codes are already clamped to the encoding's range, so the saturating packs never
// saturate.
template <typename Codec, uint32_t Channels>
inline uint32_t packVectors(const int32_t* const* codes, uint8_t* out, uint32_t count) {
    const auto load = [](const int32_t* from) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    };
    const auto store = [](uint8_t* to, __m128i bytes) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
    };
    // The bias of 128 of 8-bit samples, applied to their two's complement form.
    const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
    uint32_t i = 0;
    if constexpr (std::is_same_v<Codec, int16> && Channels == 1) {
        for (; i + 8 <= count; i += 8)
            store(out + 2 * i, _mm_packs_epi32(load(codes[0] + i), load(codes[0] + i + 4)));
    } else if constexpr (std::is_same_v<Codec, int16> && Channels == 2) {
        for (; i + 8 <= count; i += 8) {
            const __m128i left = _mm_packs_epi32(load(codes[0] + i), load(codes[0] + i + 4));
            const __m128i right = _mm_packs_epi32(load(codes[1] + i), load(codes[1] + i + 4));
            store(out + 4 * i, _mm_unpacklo_epi16(left, right));
            store(out + 4 * i + 16, _mm_unpackhi_epi16(left, right));
        }
    } else if constexpr (std::is_same_v<Codec, uint8> && Channels == 1) {
        for (; i + 16 <= count; i += 16) {
            const __m128i low = _mm_packs_epi32(load(codes[0] + i), load(codes[0] + i + 4));
            const __m128i high = _mm_packs_epi32(load(codes[0] + i + 8), load(codes[0] + i + 12));
            store(out + i, _mm_xor_si128(_mm_packs_epi16(low, high), bias));
        }
    } else if constexpr (std::is_same_v<Codec, uint8> && Channels == 2) {
        for (; i + 8 <= count; i += 8) {
            const __m128i left = _mm_packs_epi32(load(codes[0] + i), load(codes[0] + i + 4));
            const __m128i right = _mm_packs_epi32(load(codes[1] + i), load(codes[1] + i + 4));
            const __m128i frames =
                _mm_packs_epi16(_mm_unpacklo_epi16(left, right), _mm_unpackhi_epi16(left, right));
            store(out + 2 * i, _mm_xor_si128(frames, bias));
        }
    }
    return i;
}

#else

template <typename Codec, typename T>
inline uint32_t quantiseVectors(const T*, int32_t*, uint32_t) {
    return 0;
}

template <typename Codec, uint32_t Channels>
inline uint32_t packVectors(const int32_t* const*, uint8_t*, uint32_t) {
    return 0;
}

#endif

template <typename Codec, typename T>
inline void quantiseRun(const T* in, int32_t* out, uint32_t count) {
    uint32_t i = quantiseVectors<Codec>(in, out, count);
    for (; i < count; ++i)
        out[i] = Codec::template quantise<T>(in[i]);
}

} // namespace sampleCodecs
