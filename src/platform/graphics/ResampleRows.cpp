#include "platform/graphics/ResampleRows.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#define PLIM_RESAMPLE_SSE2 1
#endif
#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define PLIM_RESAMPLE_AVX2 1
#define PLIM_TARGET_AVX2 __attribute__((target("avx2")))
#endif

namespace plim::graphics {
namespace {

// ---------------------------------------------------------------------------------------------
// Scalar rows: the engines without vector instructions, and the tails of the vector rows.

void Box2x2Scalar(const uint8_t *top, const uint8_t *bottom, size_t n, uint8_t *out) {
    for (size_t i = 0; i < n; ++i)
        for (size_t c = 0; c < 4; ++c) {
            const size_t k = 8 * i + c;
            const unsigned sum = top[k] + top[k + 4] + bottom[k] + bottom[k + 4];
            out[4 * i + c] = static_cast<uint8_t>((sum + 2) >> 2);
        }
}

void SumColumnsScalar(const uint8_t *first, size_t bytesPerRow, size_t rows, size_t lanes,
                      uint16_t *sums) {
    std::memset(sums, 0, lanes * sizeof *sums);
    for (size_t r = 0; r < rows; ++r) {
        const uint8_t *row = first + r * bytesPerRow;
        for (size_t k = 0; k < lanes; ++k) sums[k] = static_cast<uint16_t>(sums[k] + row[k]);
    }
}

void AverageBlocksScalar(const uint16_t *sums, size_t kx, uint32_t divisor, size_t n,
                         uint8_t *out) {
    for (size_t i = 0; i < n; ++i)
        for (size_t c = 0; c < 4; ++c) {
            uint32_t sum = divisor / 2;
            for (size_t j = 0; j < kx; ++j) sum += sums[4 * (i * kx + j) + c];
            out[4 * i + c] = static_cast<uint8_t>(sum / divisor);
        }
}

void InterpolateAcrossScalar(const uint8_t *row, const uint32_t *left, const uint8_t *,
                             const uint16_t *shortWeights, size_t i0, size_t i1,
                             uint16_t *across) {
    for (size_t i = i0; i < i1; ++i) {
        const uint8_t *p = row + 4 * static_cast<size_t>(left[i]);
        const uint16_t *w = shortWeights + 8 * i;
        for (size_t c = 0; c < 4; ++c)
            across[4 * i + c] = static_cast<uint16_t>(p[c] * w[0] + p[4 + c] * w[4]);
    }
}

void InterpolateDownScalar(const uint16_t *top, const uint16_t *bottom, unsigned w, size_t n,
                           uint8_t *out) {
    for (size_t k = 0; k < 4 * n; ++k)
        out[k] = static_cast<uint8_t>((top[k] * (128u - w) + bottom[k] * w) >> 14);
}

// ---------------------------------------------------------------------------------------------
// SSE2: four source pixels a register.

#if PLIM_RESAMPLE_SSE2
__m128i Load(const void *p) { return _mm_loadu_si128(static_cast<const __m128i *>(p)); }
void Store(void *p, __m128i v) { _mm_storeu_si128(static_cast<__m128i *>(p), v); }

// Two destination pixels (16-bit lanes) from four source pixels of each row.
__m128i PairSums(__m128i top, __m128i bottom) {
    const __m128i zero = _mm_setzero_si128();
    __m128i low = _mm_add_epi16(_mm_unpacklo_epi8(top, zero), _mm_unpacklo_epi8(bottom, zero));
    __m128i high = _mm_add_epi16(_mm_unpackhi_epi8(top, zero), _mm_unpackhi_epi8(bottom, zero));
    return _mm_add_epi16(_mm_unpacklo_epi64(low, high), _mm_unpackhi_epi64(low, high));
}

void Box2x2SSE2(const uint8_t *top, const uint8_t *bottom, size_t n, uint8_t *out) {
    const __m128i two = _mm_set1_epi16(2);
    size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        __m128i a = PairSums(Load(top + 8 * i), Load(bottom + 8 * i));
        __m128i b = PairSums(Load(top + 8 * i + 16), Load(bottom + 8 * i + 16));
        a = _mm_srli_epi16(_mm_add_epi16(a, two), 2);
        b = _mm_srli_epi16(_mm_add_epi16(b, two), 2);
        Store(out + 4 * i, _mm_packus_epi16(a, b));
    }
    Box2x2Scalar(top + 8 * i, bottom + 8 * i, n - i, out + 4 * i);
}

void SumColumnsSSE2(const uint8_t *first, size_t bytesPerRow, size_t rows, size_t lanes,
                    uint16_t *sums) {
    const __m128i zero = _mm_setzero_si128();
    size_t k = 0;
    for (; k + 16 <= lanes; k += 16) {
        __m128i low = zero, high = zero;
        for (size_t r = 0; r < rows; ++r) {
            __m128i v = Load(first + r * bytesPerRow + k);
            low = _mm_add_epi16(low, _mm_unpacklo_epi8(v, zero));
            high = _mm_add_epi16(high, _mm_unpackhi_epi8(v, zero));
        }
        Store(sums + k, low);
        Store(sums + k + 8, high);
    }
    SumColumnsScalar(first + k, bytesPerRow, rows, lanes - k, sums + k);
}

void AverageBlocksSSE2(const uint16_t *sums, size_t kx, uint32_t divisor, size_t n,
                       uint8_t *out) {
    // The quotient of sums below 2^24 by a divisor up to 2^16, in single precision: both are
    // exact, and a fraction of the quotient is never within half a unit of the next integer,
    // so truncating the rounded quotient gives the integer quotient in any rounding mode.
    const __m128i zero = _mm_setzero_si128();
    const __m128i half = _mm_set1_epi32(static_cast<int>(divisor / 2));
    const __m128 d = _mm_set1_ps(static_cast<float>(divisor));
    for (size_t i = 0; i < n; ++i) {
        __m128i sum = half;
        const uint16_t *p = sums + 4 * i * kx;
        for (size_t j = 0; j < kx; ++j, p += 4)
            sum = _mm_add_epi32(sum, _mm_unpacklo_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)), zero));
        __m128i q = _mm_cvttps_epi32(_mm_div_ps(_mm_cvtepi32_ps(sum), d));
        q = _mm_packus_epi16(_mm_packs_epi32(q, q), zero);
        const auto word = static_cast<uint32_t>(_mm_cvtsi128_si32(q));
        std::memcpy(out + 4 * i, &word, 4);
    }
}

__m128i Weighted(const uint8_t *row, uint32_t left, const uint16_t *weights) {
    __m128i pair = _mm_loadl_epi64(reinterpret_cast<const __m128i *>(row + 4 * static_cast<size_t>(left)));
    return _mm_mullo_epi16(_mm_unpacklo_epi8(pair, _mm_setzero_si128()), Load(weights));
}

void InterpolateAcrossSSE2(const uint8_t *row, const uint32_t *left, const uint8_t *,
                           const uint16_t *shortWeights, size_t i0, size_t i1,
                           uint16_t *across) {
    size_t i = i0;
    for (; i + 2 <= i1; i += 2) {
        __m128i a = Weighted(row, left[i], shortWeights + 8 * i);
        __m128i b = Weighted(row, left[i + 1], shortWeights + 8 * i + 8);
        Store(across + 4 * i, _mm_add_epi16(_mm_unpacklo_epi64(a, b), _mm_unpackhi_epi64(a, b)));
    }
    InterpolateAcrossScalar(row, left, nullptr, shortWeights, i, i1, across);
}

// Four 16-bit lanes of eight, interpolated down and narrowed to 32-bit lanes.
__m128i Down(__m128i top, __m128i bottom, __m128i weights) {
    __m128i low = _mm_srli_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(top, bottom), weights), 14);
    __m128i high = _mm_srli_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(top, bottom), weights), 14);
    return _mm_packs_epi32(low, high);
}

void InterpolateDownSSE2(const uint16_t *top, const uint16_t *bottom, unsigned w, size_t n,
                         uint8_t *out) {
    const __m128i weights = _mm_set1_epi32(static_cast<int>((w << 16) | (128u - w)));
    size_t k = 0;
    for (; k + 16 <= 4 * n; k += 16) {
        __m128i a = Down(Load(top + k), Load(bottom + k), weights);
        __m128i b = Down(Load(top + k + 8), Load(bottom + k + 8), weights);
        Store(out + k, _mm_packus_epi16(a, b));
    }
    InterpolateDownScalar(top + k, bottom + k, w, n - k / 4, out + k);
}
#endif

// ---------------------------------------------------------------------------------------------
// AVX2: eight source pixels a register.

#if PLIM_RESAMPLE_AVX2
PLIM_TARGET_AVX2 __m256i Load256(const void *p) {
    return _mm256_loadu_si256(static_cast<const __m256i *>(p));
}
PLIM_TARGET_AVX2 void Store256(void *p, __m256i v) {
    _mm256_storeu_si256(static_cast<__m256i *>(p), v);
}

// Destination pixels (0, 1 | 2, 3) from source pixels 0-7 of each row; lanes as PairSums.
PLIM_TARGET_AVX2 __m256i PairSums256(__m256i top, __m256i bottom) {
    const __m256i zero = _mm256_setzero_si256();
    __m256i low = _mm256_add_epi16(_mm256_unpacklo_epi8(top, zero), _mm256_unpacklo_epi8(bottom, zero));
    __m256i high = _mm256_add_epi16(_mm256_unpackhi_epi8(top, zero), _mm256_unpackhi_epi8(bottom, zero));
    return _mm256_add_epi16(_mm256_unpacklo_epi64(low, high), _mm256_unpackhi_epi64(low, high));
}

PLIM_TARGET_AVX2 void Box2x2AVX2(const uint8_t *top, const uint8_t *bottom, size_t n,
                                 uint8_t *out) {
    const __m256i two = _mm256_set1_epi16(2);
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        __m256i a = PairSums256(Load256(top + 8 * i), Load256(bottom + 8 * i));
        __m256i b = PairSums256(Load256(top + 8 * i + 32), Load256(bottom + 8 * i + 32));
        a = _mm256_srli_epi16(_mm256_add_epi16(a, two), 2);
        b = _mm256_srli_epi16(_mm256_add_epi16(b, two), 2);
        // Packing works within each half: pixels (0 1 4 5 | 2 3 6 7), put back in order.
        Store256(out + 4 * i, _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8));
    }
    Box2x2SSE2(top + 8 * i, bottom + 8 * i, n - i, out + 4 * i);
}

PLIM_TARGET_AVX2 void SumColumnsAVX2(const uint8_t *first, size_t bytesPerRow, size_t rows,
                                     size_t lanes, uint16_t *sums) {
    size_t k = 0;
    for (; k + 32 <= lanes; k += 32) {
        __m256i low = _mm256_setzero_si256(), high = _mm256_setzero_si256();
        for (size_t r = 0; r < rows; ++r) {
            const uint8_t *p = first + r * bytesPerRow + k;
            low = _mm256_add_epi16(low, _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p))));
            high = _mm256_add_epi16(high, _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16))));
        }
        Store256(sums + k, low);
        Store256(sums + k + 16, high);
    }
    SumColumnsSSE2(first + k, bytesPerRow, rows, lanes - k, sums + k);
}

PLIM_TARGET_AVX2 void InterpolateAcrossAVX2(const uint8_t *row, const uint32_t *left,
                                            const uint8_t *byteWeights,
                                            const uint16_t *shortWeights, size_t i0, size_t i1,
                                            uint16_t *across) {
    // Each pair of neighbours is gathered as one 64-bit word and its bytes interleaved
    // channel by channel; (127 - w, w) byte weights keep the products in signed bytes' reach,
    // and the left pixel added once more makes its weight 128 - w.
    const __m256i interleave = _mm256_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15,
                                                0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15);
    const __m256i lowBytes = _mm256_set1_epi16(0x00FF);
    const auto *base = reinterpret_cast<const long long *>(row);
    size_t i = i0;
    for (; i + 4 <= i1; i += 4) {
        __m128i index = _mm_loadu_si128(reinterpret_cast<const __m128i *>(left + i));
        __m256i pairs = _mm256_shuffle_epi8(_mm256_i32gather_epi64(base, index, 4), interleave);
        __m256i sum = _mm256_maddubs_epi16(pairs, Load256(byteWeights + 8 * i));
        Store256(across + 4 * i, _mm256_add_epi16(sum, _mm256_and_si256(pairs, lowBytes)));
    }
    InterpolateAcrossSSE2(row, left, byteWeights, shortWeights, i, i1, across);
}

PLIM_TARGET_AVX2 __m256i Down256(__m256i top, __m256i bottom, __m256i weights) {
    __m256i low = _mm256_srli_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(top, bottom), weights), 14);
    __m256i high = _mm256_srli_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(top, bottom), weights), 14);
    return _mm256_packs_epi32(low, high);
}

PLIM_TARGET_AVX2 void InterpolateDownAVX2(const uint16_t *top, const uint16_t *bottom, unsigned w,
                                          size_t n, uint8_t *out) {
    const __m256i weights = _mm256_set1_epi32(static_cast<int>((w << 16) | (128u - w)));
    size_t k = 0;
    for (; k + 32 <= 4 * n; k += 32) {
        __m256i a = Down256(Load256(top + k), Load256(bottom + k), weights);
        __m256i b = Down256(Load256(top + k + 16), Load256(bottom + k + 16), weights);
        Store256(out + k, _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8));
    }
    InterpolateDownSSE2(top + k, bottom + k, w, n - k / 4, out + k);
}
#endif

constexpr ResampleRows kScalarRows = {Box2x2Scalar, SumColumnsScalar, AverageBlocksScalar,
                                      InterpolateAcrossScalar, InterpolateDownScalar};
#if PLIM_RESAMPLE_SSE2
constexpr ResampleRows kSSE2Rows = {Box2x2SSE2, SumColumnsSSE2, AverageBlocksSSE2,
                                    InterpolateAcrossSSE2, InterpolateDownSSE2};
#endif
#if PLIM_RESAMPLE_AVX2
constexpr ResampleRows kAVX2Rows = {Box2x2AVX2, SumColumnsAVX2, AverageBlocksSSE2,
                                    InterpolateAcrossAVX2, InterpolateDownAVX2};
#endif

}  // namespace

VectorLevel BestVectorLevel() {
#if PLIM_RESAMPLE_AVX2
    static const bool avx2 = __builtin_cpu_supports("avx2");
    if (avx2) return VectorLevel::AVX2;
#endif
#if PLIM_RESAMPLE_SSE2
    return VectorLevel::SSE2;
#else
    return VectorLevel::None;
#endif
}

const ResampleRows &ResampleRowsFor(VectorLevel level) {
    const VectorLevel best = BestVectorLevel();
    if (level > best) level = best;
    switch (level) {
#if PLIM_RESAMPLE_AVX2
        case VectorLevel::AVX2: return kAVX2Rows;
#endif
#if PLIM_RESAMPLE_SSE2
        case VectorLevel::SSE2: return kSSE2Rows;
#endif
        default: return kScalarRows;
    }
}

}  // namespace plim::graphics
