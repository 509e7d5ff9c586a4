// SSE2 row functions for the most used ARGB_8888 operators. Four pixels at a time, one channel
// per vector; every lane does the scalar kernel's operations in the same order and precision,
// and rounding is done exactly as lroundf does it, so the bytes are the kernels' bytes.
#include "composite/SimdRows.h"

#include <emmintrin.h>
#include <immintrin.h>

#include <cstring>

namespace plim::composite {
namespace {

struct Channels {
    __m128 a, r, g, b;
};

inline Channels Load4(const UInt8 *p) {
    const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
    const __m128i low = _mm_set1_epi32(0xFF);
    const __m128 k255 = _mm_set1_ps(255.0f);
    Channels c;
    c.a = _mm_div_ps(_mm_cvtepi32_ps(_mm_and_si128(w, low)), k255);
    c.r = _mm_div_ps(_mm_cvtepi32_ps(_mm_and_si128(_mm_srli_epi32(w, 8), low)), k255);
    c.g = _mm_div_ps(_mm_cvtepi32_ps(_mm_and_si128(_mm_srli_epi32(w, 16), low)), k255);
    c.b = _mm_div_ps(_mm_cvtepi32_ps(_mm_srli_epi32(w, 24)), k255);
    return c;
}

// lroundf(v * 255.0f): halves away from zero, computed as trunc(|p|) + (frac >= 0.5), signed.
inline __m128i Round255(__m128 v) {
    const __m128 p = _mm_mul_ps(v, _mm_set1_ps(255.0f));
    const __m128 sign = _mm_set1_ps(-0.0f);
    const __m128 mag = _mm_andnot_ps(sign, p);
    const __m128i t = _mm_cvttps_epi32(mag);
    const __m128 frac = _mm_sub_ps(mag, _mm_cvtepi32_ps(t));
    const __m128i up = _mm_castps_si128(_mm_cmpge_ps(frac, _mm_set1_ps(0.5f)));
    __m128i n = _mm_sub_epi32(t, up);  // up is -1 where rounding up
    const __m128i neg = _mm_srai_epi32(_mm_castps_si128(p), 31);
    return _mm_sub_epi32(_mm_xor_si128(n, neg), neg);
}

// Low 8 bits of each rounded value, as the unclamped store keeps them.
inline void StoreWrapped(UInt8 *p, __m128 a, __m128 r, __m128 g, __m128 b) {
    const __m128i low = _mm_set1_epi32(0xFF);
    __m128i w = _mm_and_si128(Round255(a), low);
    w = _mm_or_si128(w, _mm_slli_epi32(_mm_and_si128(Round255(r), low), 8));
    w = _mm_or_si128(w, _mm_slli_epi32(_mm_and_si128(Round255(g), low), 16));
    w = _mm_or_si128(w, _mm_slli_epi32(Round255(b), 24));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), w);
}

// Negatives to 0 first (a NaN also ends as 0 there), a rounded 256 or more to 255.
inline __m128i Clamp255(__m128 v) {
    const __m128i n = Round255(_mm_max_ps(v, _mm_setzero_ps()));
    const __m128i cap = _mm_set1_epi32(255);
    const __m128i over = _mm_cmpgt_epi32(n, cap);
    return _mm_or_si128(_mm_andnot_si128(over, n), _mm_and_si128(over, cap));
}

inline void StoreClamped(UInt8 *p, __m128 a, __m128 r, __m128 g, __m128 b) {
    __m128i w = Clamp255(a);
    w = _mm_or_si128(w, _mm_slli_epi32(Clamp255(r), 8));
    w = _mm_or_si128(w, _mm_slli_epi32(Clamp255(g), 16));
    w = _mm_or_si128(w, _mm_slli_epi32(Clamp255(b), 24));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), w);
}

inline __m128 UnionAlpha(const Channels &s, const Channels &d) {
    return _mm_sub_ps(_mm_add_ps(s.a, d.a), _mm_mul_ps(s.a, d.a));
}

template <typename Body>
inline void Run(const UInt8 *src, UInt8 *dest, UInt32 count, CompositeKernel tail, Body body) {
    UInt32 i = 0;
    for (; i + 4 <= count; i += 4, src += 16, dest += 16) body(src, dest);
    for (; i < count; ++i, src += 4, dest += 4) tail(src, dest);
}

void SrcOverRow(const UInt8 *src, UInt8 *dest, UInt32 count) {
    Run(src, dest, count, Composite_ARGB_8888_SrcOver, [](const UInt8 *sp, UInt8 *dp) {
        const Channels s = Load4(sp), d = Load4(dp);
        const __m128 ias = _mm_sub_ps(_mm_set1_ps(1.0f), s.a);
        auto c = [&](__m128 cs, __m128 cd) { return _mm_add_ps(cs, _mm_mul_ps(ias, cd)); };
        StoreWrapped(dp, UnionAlpha(s, d), c(s.r, d.r), c(s.g, d.g), c(s.b, d.b));
    });
}

void MultiplyRow(const UInt8 *src, UInt8 *dest, UInt32 count) {
    Run(src, dest, count, Composite_ARGB_8888_Multiply, [](const UInt8 *sp, UInt8 *dp) {
        const Channels s = Load4(sp), d = Load4(dp);
        const __m128 one = _mm_set1_ps(1.0f);
        const __m128 ias = _mm_sub_ps(one, s.a), iad = _mm_sub_ps(one, d.a);
        auto c = [&](__m128 sc, __m128 dc) {
            return _mm_add_ps(_mm_mul_ps(sc, iad),
                              _mm_add_ps(_mm_mul_ps(ias, dc), _mm_mul_ps(dc, sc)));
        };
        StoreClamped(dp, UnionAlpha(s, d), c(s.r, d.r), c(s.g, d.g), c(s.b, d.b));
    });
}

void ScreenRow(const UInt8 *src, UInt8 *dest, UInt32 count) {
    Run(src, dest, count, Composite_ARGB_8888_Screen, [](const UInt8 *sp, UInt8 *dp) {
        const Channels s = Load4(sp), d = Load4(dp);
        auto c = [](__m128 sc, __m128 dc) {
            return _mm_sub_ps(_mm_add_ps(sc, dc), _mm_mul_ps(sc, dc));
        };
        StoreClamped(dp, UnionAlpha(s, d), c(s.r, d.r), c(s.g, d.g), c(s.b, d.b));
    });
}

// (double)sum + (double)smaller * -2.0, rounded to single, two lanes at a time.
inline __m128 SumMinusTwice(__m128 sum, __m128 smaller) {
    const __m128d m2 = _mm_set1_pd(-2.0);
    const __m128d lo = _mm_add_pd(_mm_cvtps_pd(sum), _mm_mul_pd(_mm_cvtps_pd(smaller), m2));
    const __m128d hi = _mm_add_pd(_mm_cvtps_pd(_mm_movehl_ps(sum, sum)),
                                  _mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(smaller, smaller)), m2));
    return _mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi));
}

void DifferenceRow(const UInt8 *src, UInt8 *dest, UInt32 count) {
    Run(src, dest, count, Composite_ARGB_8888_Difference, [](const UInt8 *sp, UInt8 *dp) {
        const Channels s = Load4(sp), d = Load4(dp);
        auto c = [&](__m128 sc, __m128 dc) {
            return SumMinusTwice(_mm_add_ps(sc, dc),
                                 _mm_min_ps(_mm_mul_ps(sc, d.a), _mm_mul_ps(dc, s.a)));
        };
        StoreClamped(dp, UnionAlpha(s, d), c(s.r, d.r), c(s.g, d.g), c(s.b, d.b));
    });
}

// AVX2: eight pixels at a time, the same operations lane by lane (no fused multiply-add).
#define PLIM_AVX2 __attribute__((target("avx2")))

struct Channels8 {
    __m256 a, r, g, b;
};

PLIM_AVX2 inline Channels8 Load8(const UInt8 *p) {
    const __m256i w = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
    const __m256i low = _mm256_set1_epi32(0xFF);
    const __m256 k255 = _mm256_set1_ps(255.0f);
    Channels8 c;
    c.a = _mm256_div_ps(_mm256_cvtepi32_ps(_mm256_and_si256(w, low)), k255);
    c.r = _mm256_div_ps(_mm256_cvtepi32_ps(_mm256_and_si256(_mm256_srli_epi32(w, 8), low)), k255);
    c.g = _mm256_div_ps(_mm256_cvtepi32_ps(_mm256_and_si256(_mm256_srli_epi32(w, 16), low)), k255);
    c.b = _mm256_div_ps(_mm256_cvtepi32_ps(_mm256_srli_epi32(w, 24)), k255);
    return c;
}

PLIM_AVX2 inline __m256i Round255x8(__m256 v) {
    const __m256 p = _mm256_mul_ps(v, _mm256_set1_ps(255.0f));
    const __m256 mag = _mm256_andnot_ps(_mm256_set1_ps(-0.0f), p);
    const __m256i t = _mm256_cvttps_epi32(mag);
    const __m256 frac = _mm256_sub_ps(mag, _mm256_cvtepi32_ps(t));
    const __m256i up = _mm256_castps_si256(_mm256_cmp_ps(frac, _mm256_set1_ps(0.5f), _CMP_GE_OQ));
    const __m256i n = _mm256_sub_epi32(t, up);
    const __m256i neg = _mm256_srai_epi32(_mm256_castps_si256(p), 31);
    return _mm256_sub_epi32(_mm256_xor_si256(n, neg), neg);
}

PLIM_AVX2 void SrcOverRowAVX2(const UInt8 *src, UInt8 *dest, UInt32 count) {
    const __m256i low = _mm256_set1_epi32(0xFF);
    UInt32 i = 0;
    for (; i + 8 <= count; i += 8, src += 32, dest += 32) {
        const Channels8 s = Load8(src), d = Load8(dest);
        const __m256 ias = _mm256_sub_ps(_mm256_set1_ps(1.0f), s.a);
        const __m256 a = _mm256_sub_ps(_mm256_add_ps(s.a, d.a), _mm256_mul_ps(s.a, d.a));
        const __m256 r = _mm256_add_ps(s.r, _mm256_mul_ps(ias, d.r));
        const __m256 g = _mm256_add_ps(s.g, _mm256_mul_ps(ias, d.g));
        const __m256 b = _mm256_add_ps(s.b, _mm256_mul_ps(ias, d.b));
        __m256i w = _mm256_and_si256(Round255x8(a), low);
        w = _mm256_or_si256(w, _mm256_slli_epi32(_mm256_and_si256(Round255x8(r), low), 8));
        w = _mm256_or_si256(w, _mm256_slli_epi32(_mm256_and_si256(Round255x8(g), low), 16));
        w = _mm256_or_si256(w, _mm256_slli_epi32(Round255x8(b), 24));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(dest), w);
    }
    SrcOverRow(src, dest, count - i);
}

PLIM_AVX2 inline __m256i Clamp255x8(__m256 v) {
    const __m256i n = Round255x8(_mm256_max_ps(v, _mm256_setzero_ps()));
    return _mm256_min_epi32(n, _mm256_set1_epi32(255));
}

PLIM_AVX2 inline __m256 SumMinusTwice8(__m256 sum, __m256 smaller) {
    const __m256d m2 = _mm256_set1_pd(-2.0);
    const __m256d lo = _mm256_add_pd(_mm256_cvtps_pd(_mm256_castps256_ps128(sum)),
                                     _mm256_mul_pd(_mm256_cvtps_pd(_mm256_castps256_ps128(smaller)), m2));
    const __m256d hi = _mm256_add_pd(_mm256_cvtps_pd(_mm256_extractf128_ps(sum, 1)),
                                     _mm256_mul_pd(_mm256_cvtps_pd(_mm256_extractf128_ps(smaller, 1)), m2));
    return _mm256_set_m128(_mm256_cvtpd_ps(hi), _mm256_cvtpd_ps(lo));
}

PLIM_AVX2 void DifferenceRowAVX2(const UInt8 *src, UInt8 *dest, UInt32 count) {
    UInt32 i = 0;
    for (; i + 8 <= count; i += 8, src += 32, dest += 32) {
        const Channels8 s = Load8(src), d = Load8(dest);
        const __m256 a = _mm256_sub_ps(_mm256_add_ps(s.a, d.a), _mm256_mul_ps(s.a, d.a));
        auto c = [&](__m256 sc, __m256 dc) PLIM_AVX2 {
            return SumMinusTwice8(_mm256_add_ps(sc, dc),
                                  _mm256_min_ps(_mm256_mul_ps(sc, d.a), _mm256_mul_ps(dc, s.a)));
        };
        __m256i w = Clamp255x8(a);
        w = _mm256_or_si256(w, _mm256_slli_epi32(Clamp255x8(c(s.r, d.r)), 8));
        w = _mm256_or_si256(w, _mm256_slli_epi32(Clamp255x8(c(s.g, d.g)), 16));
        w = _mm256_or_si256(w, _mm256_slli_epi32(Clamp255x8(c(s.b, d.b)), 24));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(dest), w);
    }
    DifferenceRow(src, dest, count - i);
}

bool HasAVX2() {
    static const bool has = __builtin_cpu_supports("avx2");
    return has;
}

void CopyRow(const UInt8 *src, UInt8 *dest, UInt32 count) {
    std::memcpy(dest, src, static_cast<size_t>(count) * 4);
}

}  // namespace

CompositeRow SimdRowFor(Layout layout, UInt32 operation) {
    if (layout != kLayoutARGB_8888) return nullptr;
    switch (operation) {
        case 1: return CopyRow;
        case 3: return HasAVX2() ? SrcOverRowAVX2 : SrcOverRow;
        case 13: return MultiplyRow;
        case 14: return ScreenRow;
        case 22: return HasAVX2() ? DifferenceRowAVX2 : DifferenceRow;
        default: return nullptr;
    }
}

}  // namespace plim::composite
