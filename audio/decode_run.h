#pragma once

#include <cstdint>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#endif

// Decodes interleaved mono or stereo 16-bit samples into channel runs four frames at a time, with
// the same arithmetic as sampleCodecs::Int16::decode (an exact int-to-float conversion and a
// multiplication by 2^-15), eight frames at a time where the processor has AVX2. Frames from
// `first` on; returns where it stopped; the caller decodes the rest one at a time.
// Other encodings and layouts, and other processors, decode one sample at a time, which the
// compiler vectorises well enough.
namespace sampleCodecs {

#if defined(__SSE2__)

// Four int32 values, scaled into four floats or doubles at `out`.
template <typename T> inline void storeScaled(__m128i values, T* out) {
    if constexpr (std::is_same_v<T, float>) {
        _mm_storeu_ps(out, _mm_mul_ps(_mm_cvtepi32_ps(values), _mm_set1_ps(3.0517578125e-05f)));
    } else {
        const __m128d scale = _mm_set1_pd(3.0517578125e-05);
        _mm_storeu_pd(out, _mm_mul_pd(_mm_cvtepi32_pd(values), scale));
        _mm_storeu_pd(out + 2,
                      _mm_mul_pd(_mm_cvtepi32_pd(_mm_unpackhi_epi64(values, values)), scale));
    }
}

template <typename T, uint32_t Channels>
inline uint32_t decodeInt16Vectors(const uint8_t* source, T* const* buffers, uint32_t first,
                                   uint32_t frames) {
    uint32_t i = first;
    if constexpr (Channels == 1) {
        for (; i + 8 <= frames; i += 8) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + 2 * i));
            // Each 16-bit sample into the top half of a 32-bit lane, then shifted down with its
            // sign.
            storeScaled(_mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16), buffers[0] + i);
            storeScaled(_mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16), buffers[0] + i + 4);
        }
    } else if constexpr (Channels == 2) {
        for (; i + 4 <= frames; i += 4) {
            // Four frames: left in the low half of each 32-bit lane, right in the high half.
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + 4 * i));
            storeScaled(_mm_srai_epi32(_mm_slli_epi32(v, 16), 16), buffers[0] + i);
            storeScaled(_mm_srai_epi32(v, 16), buffers[1] + i);
        }
    }
    return i;
}

#else

template <typename T, uint32_t Channels>
inline uint32_t decodeInt16Vectors(const uint8_t*, T* const*, uint32_t first, uint32_t) {
    return first;
}

#endif

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))

// Eight int32 values, scaled into eight floats or doubles at `out`.
template <typename T>
__attribute__((target("avx2"))) inline void storeScaledWide(__m256i values, T* out) {
    if constexpr (std::is_same_v<T, float>) {
        _mm256_storeu_ps(
            out, _mm256_mul_ps(_mm256_cvtepi32_ps(values), _mm256_set1_ps(3.0517578125e-05f)));
    } else {
        const __m256d scale = _mm256_set1_pd(3.0517578125e-05);
        _mm256_storeu_pd(out,
                         _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(values)), scale));
        _mm256_storeu_pd(
            out + 4, _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(values, 1)), scale));
    }
}

// decodeInt16Vectors eight frames at a time, for processors with AVX2 (the caller checks).
template <typename T, uint32_t Channels>
__attribute__((target("avx2"), noinline)) uint32_t
decodeInt16Wide(const uint8_t* source, T* const* buffers, uint32_t frames) {
    uint32_t i = 0;
    if constexpr (Channels == 1) {
        for (; i + 8 <= frames; i += 8) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + 2 * i));
            storeScaledWide(_mm256_cvtepi16_epi32(v), buffers[0] + i);
        }
    } else if constexpr (Channels == 2) {
        for (; i + 8 <= frames; i += 8) {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(source + 4 * i));
            storeScaledWide(_mm256_srai_epi32(_mm256_slli_epi32(v, 16), 16), buffers[0] + i);
            storeScaledWide(_mm256_srai_epi32(v, 16), buffers[1] + i);
        }
    }
    return i;
}

#else

template <typename T, uint32_t Channels>
inline uint32_t decodeInt16Wide(const uint8_t*, T* const*, uint32_t) {
    return 0;
}

#endif

} // namespace sampleCodecs
