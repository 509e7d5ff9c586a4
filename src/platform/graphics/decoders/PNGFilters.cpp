#include "platform/graphics/decoders/PNGFilters.h"

#include <cstdlib>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#define PLIM_PNG_SSE2 1
#endif

namespace plim::decoders {

namespace {

inline uint8_t PaethPredictor(int a, int b, int c) {
    const int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    return static_cast<uint8_t>(pa <= pb && pa <= pc ? a : pb <= pc ? b : c);
}

// What filter `type` predicts for a byte from its left (a), upper (b) and upper-left (c)
// neighbours.
inline uint8_t Prediction(uint8_t type, uint8_t a, uint8_t b, uint8_t c) {
    switch (type) {
        case kFilterSub: return a;
        case kFilterUp: return b;
        case kFilterAverage: return static_cast<uint8_t>((a + b) >> 1);
        case kFilterPaeth: return PaethPredictor(a, b, c);
        default: return 0;
    }
}

// A filtered byte's cost: its magnitude read as a signed byte.
inline unsigned Magnitude(uint8_t v) { return v < 128 ? v : 256u - v; }

#if PLIM_PNG_SSE2
// ---- Decoding, one pixel of 3 or 4 bytes at a time in 16-bit lanes ----

// A pixel's bytes in the low 16-bit lanes. Where a fourth byte follows within the row, it is
// read and written too (its lane is never mixed with the others, and the next pixel overwrites
// it): four-byte moves avoid the stalls of building a word from three bytes in memory.
template <int Bpp>
inline __m128i LoadPixel(const uint8_t *p, bool wide) {
    uint32_t v = 0;
    if (Bpp == 4 || wide)
        std::memcpy(&v, p, 4);
    else
        v = static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16;
    return _mm_unpacklo_epi8(_mm_cvtsi32_si128(static_cast<int>(v)), _mm_setzero_si128());
}

template <int Bpp>
inline void StorePixel(uint8_t *p, __m128i v, bool wide) {
    const auto bytes = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(v, v)));
    std::memcpy(p, &bytes, Bpp == 4 || wide ? 4 : 3);
}

inline __m128i Abs16(__m128i v) { return _mm_max_epi16(v, _mm_sub_epi16(_mm_setzero_si128(), v)); }

// Paeth's choice in each 16-bit lane: a where |p - a| is smallest, then b, then c.
inline __m128i Paeth16(__m128i a, __m128i b, __m128i c) {
    const __m128i pa = Abs16(_mm_sub_epi16(b, c));
    const __m128i pb = Abs16(_mm_sub_epi16(a, c));
    const __m128i pc = Abs16(_mm_add_epi16(_mm_sub_epi16(b, c), _mm_sub_epi16(a, c)));
    const __m128i smallest = _mm_min_epi16(_mm_min_epi16(pa, pb), pc);
    const __m128i takeA = _mm_cmpeq_epi16(pa, smallest);
    const __m128i takeB = _mm_andnot_si128(takeA, _mm_cmpeq_epi16(pb, smallest));
    const __m128i takeC = _mm_andnot_si128(_mm_or_si128(takeA, takeB), _mm_set1_epi16(-1));
    return _mm_or_si128(_mm_or_si128(_mm_and_si128(takeA, a), _mm_and_si128(takeB, b)), _mm_and_si128(takeC, c));
}

template <int Bpp>
void UnfilterPixels(uint8_t type, const uint8_t *src, const uint8_t *prev, uint8_t *dst, size_t n) {
    const __m128i low = _mm_set1_epi16(0xFF);
    __m128i a = _mm_setzero_si128(), c = _mm_setzero_si128();
    for (size_t i = 0; i + Bpp <= n; i += Bpp) {
        const bool wide = i + 4 <= n;
        const __m128i x = LoadPixel<Bpp>(src + i, wide), b = LoadPixel<Bpp>(prev + i, wide);
        __m128i predicted;
        switch (type) {
            case kFilterSub: predicted = a; break;
            case kFilterAverage: predicted = _mm_srli_epi16(_mm_add_epi16(a, b), 1); break;
            default: predicted = Paeth16(a, b, c); break;
        }
        a = _mm_and_si128(_mm_add_epi16(x, predicted), low);
        c = b;
        StorePixel<Bpp>(dst + i, a, wide);
    }
}

// ---- Encoding, 16 bytes at a time ----

inline __m128i Load16(const uint8_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }

// floor((a + b) / 2) per byte: pavgb rounds up.
inline __m128i AverageDown(__m128i a, __m128i b) {
    return _mm_sub_epi8(_mm_avg_epu8(a, b), _mm_and_si128(_mm_xor_si128(a, b), _mm_set1_epi8(1)));
}

inline __m128i Paeth8(__m128i a, __m128i b, __m128i c) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i lo = Paeth16(_mm_unpacklo_epi8(a, zero), _mm_unpacklo_epi8(b, zero), _mm_unpacklo_epi8(c, zero));
    const __m128i hi = Paeth16(_mm_unpackhi_epi8(a, zero), _mm_unpackhi_epi8(b, zero), _mm_unpackhi_epi8(c, zero));
    return _mm_packus_epi16(lo, hi);
}

inline __m128i Filtered(uint8_t type, __m128i x, __m128i a, __m128i b, __m128i c) {
    switch (type) {
        case kFilterSub: return _mm_sub_epi8(x, a);
        case kFilterUp: return _mm_sub_epi8(x, b);
        case kFilterAverage: return _mm_sub_epi8(x, AverageDown(a, b));
        case kFilterPaeth: return _mm_sub_epi8(x, Paeth8(a, b, c));
        default: return x;
    }
}

// Sums of the magnitudes in two 64-bit lanes.
inline __m128i Cost(__m128i v) {
    return _mm_sad_epu8(_mm_min_epu8(v, _mm_sub_epi8(_mm_setzero_si128(), v)), _mm_setzero_si128());
}
#endif

}  // namespace

bool UnfilterReference(uint8_t type, const uint8_t *src, const uint8_t *prev, uint8_t *dst, size_t n, size_t bpp) {
    if (type >= kFilterCount) return false;
    for (size_t i = 0; i < n; i++) {
        const uint8_t a = i >= bpp ? dst[i - bpp] : 0, c = i >= bpp ? prev[i - bpp] : 0;
        dst[i] = static_cast<uint8_t>(src[i] + Prediction(type, a, prev[i], c));
    }
    return true;
}

bool Unfilter(uint8_t type, const uint8_t *src, const uint8_t *prev, uint8_t *dst, size_t n, size_t bpp) {
    if (n == 0) return type < kFilterCount;
    switch (type) {
        case kFilterNone: std::memcpy(dst, src, n); return true;
        case kFilterUp:
            for (size_t i = 0; i < n; i++) dst[i] = static_cast<uint8_t>(src[i] + prev[i]);
            return true;
        case kFilterSub:
            if (bpp > 4) break;
            // Each byte adds the one bpp before it, already unfiltered.
            std::memcpy(dst, src, bpp < n ? bpp : n);
            for (size_t i = bpp; i < n; i++) dst[i] = static_cast<uint8_t>(src[i] + dst[i - bpp]);
            return true;
        case kFilterAverage:
        case kFilterPaeth:
#if PLIM_PNG_SSE2
            if (bpp == 4) {
                UnfilterPixels<4>(type, src, prev, dst, n);
                return true;
            }
            if (bpp == 3) {
                UnfilterPixels<3>(type, src, prev, dst, n);
                return true;
            }
#endif
            break;
        default: return false;
    }
    return UnfilterReference(type, src, prev, dst, n, bpp);
}

void FilterRowReference(const uint8_t *row, const uint8_t *prev, uint8_t *out, size_t n, size_t bpp) {
    uint64_t best = UINT64_MAX;
    for (uint8_t type = kFilterNone; type < kFilterCount; type++) {
        uint64_t cost = 0;
        for (size_t i = 0; i < n; i++) {
            const uint8_t a = i >= bpp ? row[i - bpp] : 0, c = i >= bpp ? prev[i - bpp] : 0;
            cost += Magnitude(static_cast<uint8_t>(row[i] - Prediction(type, a, prev[i], c)));
        }
        if (cost >= best) continue;
        best = cost;
        out[0] = type;
        for (size_t i = 0; i < n; i++) {
            const uint8_t a = i >= bpp ? row[i - bpp] : 0, c = i >= bpp ? prev[i - bpp] : 0;
            out[1 + i] = static_cast<uint8_t>(row[i] - Prediction(type, a, prev[i], c));
        }
    }
}

void FilterRow(const uint8_t *row, const uint8_t *prev, uint8_t *out, size_t n, size_t bpp) {
#if PLIM_PNG_SSE2
    // The zero bytes before both rows stand in for the missing left neighbours.
    const uint8_t *left = row - bpp, *upLeft = prev - bpp;
    uint64_t cost[kFilterCount] = {};
    __m128i sums[kFilterCount];
    for (__m128i &s : sums) s = _mm_setzero_si128();
    size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m128i x = Load16(row + i), a = Load16(left + i);
        const __m128i b = Load16(prev + i), c = Load16(upLeft + i);
        for (uint8_t type = kFilterNone; type < kFilterCount; type++)
            sums[type] = _mm_add_epi64(sums[type], Cost(Filtered(type, x, a, b, c)));
    }
    for (uint8_t type = kFilterNone; type < kFilterCount; type++) {
        alignas(16) uint64_t lanes[2];
        _mm_store_si128(reinterpret_cast<__m128i *>(lanes), sums[type]);
        cost[type] = lanes[0] + lanes[1];
        for (size_t j = i; j < n; j++)
            cost[type] += Magnitude(static_cast<uint8_t>(row[j] - Prediction(type, left[j], prev[j], upLeft[j])));
    }
    uint8_t best = kFilterNone;
    for (uint8_t type = kFilterSub; type < kFilterCount; type++)
        if (cost[type] < cost[best]) best = type;
    out[0] = best;
    for (i = 0; i + 16 <= n; i += 16) {
        const __m128i x = Load16(row + i), a = Load16(left + i);
        const __m128i b = Load16(prev + i), c = Load16(upLeft + i);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 1 + i), Filtered(best, x, a, b, c));
    }
    for (; i < n; i++)
        out[1 + i] = static_cast<uint8_t>(row[i] - Prediction(best, left[i], prev[i], upLeft[i]));
#else
    FilterRowReference(row, prev, out, n, bpp);
#endif
}

}  // namespace plim::decoders
