#pragma once

#include "audio/sample_codecs.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Quantises a contiguous run of plug-in samples to the integer codes of an integer codec,
// exactly as Codec::quantise does one sample. On x86 the run goes four floats or two doubles
// at a time (eight or four where the processor has AVX2); elsewhere, and for the last few
// samples, one at a time.
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
    if constexpr (std::is_same_v<Codec, Int16> && Channels == 1) {
        for (; i + 8 <= count; i += 8)
            store(out + 2 * i, _mm_packs_epi32(load(codes[0] + i), load(codes[0] + i + 4)));
    } else if constexpr (std::is_same_v<Codec, Int16> && Channels == 2) {
        for (; i + 8 <= count; i += 8) {
            const __m128i left = _mm_packs_epi32(load(codes[0] + i), load(codes[0] + i + 4));
            const __m128i right = _mm_packs_epi32(load(codes[1] + i), load(codes[1] + i + 4));
            store(out + 4 * i, _mm_unpacklo_epi16(left, right));
            store(out + 4 * i + 16, _mm_unpackhi_epi16(left, right));
        }
    } else if constexpr (std::is_same_v<Codec, UInt8> && Channels == 1) {
        for (; i + 16 <= count; i += 16) {
            const __m128i low = _mm_packs_epi32(load(codes[0] + i), load(codes[0] + i + 4));
            const __m128i high = _mm_packs_epi32(load(codes[0] + i + 8), load(codes[0] + i + 12));
            store(out + i, _mm_xor_si128(_mm_packs_epi16(low, high), bias));
        }
    } else if constexpr (std::is_same_v<Codec, UInt8> && Channels == 2) {
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

// Interleaves 3 to 8 channels of 8-bit codes four frames at a time: the codes of channels 0-3
// (and 4-7) are transposed into frame order and packed to bytes, then each frame goes out with
// one 4- or 8-byte store that runs into the next frame, which the next store writes over. The
// last frames, whose store would run past the run, are left to the caller. Returns the frames
// done.
template <uint32_t Channels>
inline uint32_t packByteFrames(const int32_t* const* codes, uint8_t* out, uint32_t count) {
    static_assert(Channels >= 3 && Channels <= 8);
    const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
    if constexpr (Channels == 3) {
        // Sixteen frames at a time, each channel packed to bytes first: half the shuffles of
        // the transposition below, which bounds this layout.
        const auto channelBytes = [&](uint32_t c, uint32_t i) {
            const auto load = [&](uint32_t at) {
                return _mm_loadu_si128(reinterpret_cast<const __m128i*>(codes[c] + at));
            };
            const __m128i low = _mm_packs_epi32(load(i), load(i + 4));
            const __m128i high = _mm_packs_epi32(load(i + 8), load(i + 12));
            return _mm_xor_si128(_mm_packs_epi16(low, high), bias);
        };
        uint32_t i = 0;
        for (; size_t{i + 15} * Channels + 4 <= size_t{count} * Channels; i += 16) {
            const __m128i c0 = channelBytes(0, i);
            const __m128i c1 = channelBytes(1, i);
            const __m128i c2 = channelBytes(2, i);
            const __m128i pairsLow = _mm_unpacklo_epi8(c0, c1);
            const __m128i pairsHigh = _mm_unpackhi_epi8(c0, c1);
            const __m128i thirdLow = _mm_unpacklo_epi8(c2, c2);
            const __m128i thirdHigh = _mm_unpackhi_epi8(c2, c2);
            // Four frames of 4 bytes each (the fourth a spare), frames 0-3, 4-7, 8-11, 12-15.
            const __m128i frames[4] = {
                _mm_unpacklo_epi16(pairsLow, thirdLow), _mm_unpackhi_epi16(pairsLow, thirdLow),
                _mm_unpacklo_epi16(pairsHigh, thirdHigh), _mm_unpackhi_epi16(pairsHigh, thirdHigh)};
            for (uint32_t k = 0; k < 4; ++k) {
                alignas(16) uint32_t words[4];
                _mm_store_si128(reinterpret_cast<__m128i*>(words), frames[k]);
                // Each store runs one byte into the next frame, which its own store overwrites.
                for (uint32_t f = 0; f < 4; ++f)
                    std::memcpy(out + size_t{i + 4 * k + f} * Channels, &words[f], sizeof words[f]);
            }
        }
        return i;
    }
    // Four frames of channels first..first+3, 4 bytes each; channels past the last are 0x80.
    const auto group = [&](uint32_t first, uint32_t i) {
        __m128i c[4];
        for (uint32_t k = 0; k < 4; ++k)
            c[k] = first + k < Channels
                       ? _mm_loadu_si128(reinterpret_cast<const __m128i*>(codes[first + k] + i))
                       : _mm_setzero_si128();
        const __m128i low01 = _mm_unpacklo_epi32(c[0], c[1]);
        const __m128i low23 = _mm_unpacklo_epi32(c[2], c[3]);
        const __m128i high01 = _mm_unpackhi_epi32(c[0], c[1]);
        const __m128i high23 = _mm_unpackhi_epi32(c[2], c[3]);
        const __m128i frames01 =
            _mm_packs_epi32(_mm_unpacklo_epi64(low01, low23), _mm_unpackhi_epi64(low01, low23));
        const __m128i frames23 =
            _mm_packs_epi32(_mm_unpacklo_epi64(high01, high23), _mm_unpackhi_epi64(high01, high23));
        return _mm_xor_si128(_mm_packs_epi16(frames01, frames23), bias);
    };
    constexpr uint32_t storeBytes = Channels <= 4 ? 4 : 8;
    uint32_t i = 0;
    for (; size_t{i + 3} * Channels + storeBytes <= size_t{count} * Channels; i += 4) {
        uint8_t* frame = out + size_t{i} * Channels;
        if constexpr (Channels == 4) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(frame), group(0, i));
        } else {
            const __m128i first = group(0, i);
            const __m128i second = group(4, i);
            const __m128i frames01 = _mm_unpacklo_epi32(first, second);
            const __m128i frames23 = _mm_unpackhi_epi32(first, second);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(frame), frames01);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(frame + Channels),
                             _mm_unpackhi_epi64(frames01, frames01));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(frame + 2 * Channels), frames23);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(frame + 3 * Channels),
                             _mm_unpackhi_epi64(frames23, frames23));
        }
    }
    return i;
}

#endif

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>

// The same rounding as quantiseVectors, eight floats or four doubles an instruction. Built for
// AVX2 whatever the baseline, so only called where wideVectorsAvailable() says so. Not inline:
// the caller stays baseline code and calls it once per run.
// Eight scaled samples `v`, rounded and clamped.
__attribute__((target("avx2"))) inline __m256i roundEightWide(__m256 v, __m256 low, __m256 high) {
    const __m256 ordered = _mm256_cmp_ps(v, v, _CMP_ORD_Q);
    __m256 y = _mm256_min_ps(_mm256_max_ps(v, low), high);
    y = _mm256_and_ps(y, ordered);
    const __m256 half =
        _mm256_or_ps(_mm256_and_ps(y, _mm256_set1_ps(-0.0f)), _mm256_set1_ps(0.49999997f));
    return _mm256_cvttps_epi32(_mm256_add_ps(y, half));
}

template <typename Codec>
__attribute__((target("avx2"), noinline)) uint32_t quantiseWide(const float* in, int32_t* out,
                                                                uint32_t count) {
    const __m256 scale = _mm256_set1_ps(float(Codec::scale));
    const __m256 low = _mm256_set1_ps(lowBound<float, Codec>());
    const __m256 high = _mm256_set1_ps(highBound<float, Codec>());
    uint32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256 v = _mm256_mul_ps(_mm256_loadu_ps(in + i), scale);
        __m256i codes = roundEightWide(v, low, high);
        if constexpr (fullRangeCodec<Codec>) {
            const __m256i top =
                _mm256_castps_si256(_mm256_cmp_ps(v, _mm256_set1_ps(2147483648.0f), _CMP_GE_OQ));
            codes = _mm256_blendv_epi8(codes, _mm256_set1_epi32(0x7FFFFFFF), top);
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), codes);
    }
    return i;
}

__attribute__((target("avx2"))) inline __m128i quantiseFourWide(const double* in, __m256d scale,
                                                                __m256d low, __m256d high) {
    const __m256d v = _mm256_mul_pd(_mm256_loadu_pd(in), scale);
    const __m256d ordered = _mm256_cmp_pd(v, v, _CMP_ORD_Q);
    __m256d y = _mm256_min_pd(_mm256_max_pd(v, low), high);
    y = _mm256_and_pd(y, ordered);
    const __m256d half =
        _mm256_or_pd(_mm256_and_pd(y, _mm256_set1_pd(-0.0)), _mm256_set1_pd(0.49999999999999994));
    return _mm256_cvttpd_epi32(_mm256_add_pd(y, half));
}

template <typename Codec>
__attribute__((target("avx2"), noinline)) uint32_t quantiseWide(const double* in, int32_t* out,
                                                                uint32_t count) {
    const __m256d scale = _mm256_set1_pd(Codec::scale);
    const __m256d low = _mm256_set1_pd(lowBound<double, Codec>());
    const __m256d high = _mm256_set1_pd(highBound<double, Codec>());
    uint32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256i codes = _mm256_set_m128i(quantiseFourWide(in + i + 4, scale, low, high),
                                               quantiseFourWide(in + i, scale, low, high));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), codes);
    }
    return i;
}

// Eight samples of a channel as 16-bit codes in 32-bit lanes.
__attribute__((target("avx2"))) inline __m256i int16CodesWide(const float* in) {
    const __m256 v = _mm256_mul_ps(_mm256_loadu_ps(in), _mm256_set1_ps(float(Int16::scale)));
    return roundEightWide(v, _mm256_set1_ps(float(Int16::low)), _mm256_set1_ps(float(Int16::high)));
}

__attribute__((target("avx2"))) inline __m256i int16CodesWide(const double* in) {
    const __m256d scale = _mm256_set1_pd(Int16::scale);
    const __m256d low = _mm256_set1_pd(Int16::low);
    const __m256d high = _mm256_set1_pd(Int16::high);
    return _mm256_set_m128i(quantiseFourWide(in + 4, scale, low, high),
                            quantiseFourWide(in, scale, low, high));
}

// Stereo 16-bit writes in one pass, eight frames at a time: rounded as quantiseWide does and
// interleaved without the intermediate run of codes. Returns the frames done.
template <typename T>
__attribute__((target("avx2"), noinline)) uint32_t
writeInt16StereoWide(const T* left, const T* right, uint8_t* out, uint32_t count) {
    // Within each 128-bit half: the four left codes, then the four right ones, to alternate.
    const __m256i alternate =
        _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15, 0, 1, 8, 9, 2, 3, 10,
                         11, 4, 5, 12, 13, 6, 7, 14, 15);
    uint32_t i = 0;
    for (; i + 8 <= count; i += 8) {
        // Halves: left 0-3 and right 0-3, left 4-7 and right 4-7 (never saturating: in range).
        const __m256i codes =
            _mm256_packs_epi32(int16CodesWide(left + i), int16CodesWide(right + i));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 4 * size_t{i}),
                            _mm256_shuffle_epi8(codes, alternate));
    }
    return i;
}

inline bool wideVectorsAvailable() {
    return __builtin_cpu_supports("avx2");
}

#else

inline bool wideVectorsAvailable() {
    return false;
}

template <typename Codec, typename T> inline uint32_t quantiseWide(const T*, int32_t*, uint32_t) {
    return 0;
}

template <typename T> inline uint32_t writeInt16StereoWide(const T*, const T*, uint8_t*, uint32_t) {
    return 0;
}

#endif

#if !defined(__SSE2__)

template <uint32_t Channels>
inline uint32_t packByteFrames(const int32_t* const*, uint8_t*, uint32_t) {
    return 0;
}

template <typename Codec, typename T>
inline uint32_t quantiseVectors(const T*, int32_t*, uint32_t) {
    return 0;
}

template <typename Codec, uint32_t Channels>
inline uint32_t packVectors(const int32_t* const*, uint8_t*, uint32_t) {
    return 0;
}

#endif

// Wide: quantiseWide may be used (the processor has AVX2).
template <typename Codec, bool Wide = false, typename T>
inline void quantiseRun(const T* in, int32_t* out, uint32_t count) {
    uint32_t i = Wide ? quantiseWide<Codec>(in, out, count) : 0;
    i += quantiseVectors<Codec>(in + i, out + i, count - i);
    for (; i < count; ++i)
        out[i] = Codec::template quantise<T>(in[i]);
}

} // namespace sampleCodecs
