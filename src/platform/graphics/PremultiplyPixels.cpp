// Premultiplication of four-byte pixels: a per-pixel reference and four pixels at a time in
// SSE2's 16-bit lanes, the same integer formula.
#include "platform/graphics/PremultiplyPixels.h"
#include "platform/graphics/PixelRows.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace plim::graphics {

namespace {

// kAlpha is the byte offset of alpha in the pixel; the colour bytes are the other three.
template <int kAlpha>
void PremultiplyScalar(uint8_t *pixels, size_t count) {
    constexpr int c0 = kAlpha == 0 ? 1 : 0;
    for (size_t i = 0; i < count; ++i) {
        uint8_t *p = pixels + i * 4;
        const uint32_t a = p[kAlpha];
        p[c0] = static_cast<uint8_t>(Div255(p[c0] * a));
        p[c0 + 1] = static_cast<uint8_t>(Div255(p[c0 + 1] * a));
        p[c0 + 2] = static_cast<uint8_t>(Div255(p[c0 + 2] * a));
    }
}

#if defined(__SSE2__)
template <int kAlpha>
size_t PremultiplySSE2(uint8_t *pixels, size_t count) {
    constexpr int kShuffle = kAlpha == 0 ? _MM_SHUFFLE(0, 0, 0, 0) : _MM_SHUFFLE(3, 3, 3, 3);
    const __m128i zero = _mm_setzero_si128();
    const __m128i half = _mm_set1_epi16(128);
    // Alpha lanes keep their value; colour lanes take the product.
    const __m128i alphaMask = kAlpha == 0 ? _mm_set1_epi32(0x000000FF) : _mm_set1_epi32(static_cast<int>(0xFF000000u));
    size_t done = 0;
    for (; done + 4 <= count; done += 4) {
        auto *p = reinterpret_cast<__m128i *>(pixels + done * 4);
        __m128i v = _mm_loadu_si128(p);
        __m128i lo = _mm_unpacklo_epi8(v, zero);
        __m128i hi = _mm_unpackhi_epi8(v, zero);
        __m128i alo = _mm_shufflehi_epi16(_mm_shufflelo_epi16(lo, kShuffle), kShuffle);
        __m128i ahi = _mm_shufflehi_epi16(_mm_shufflelo_epi16(hi, kShuffle), kShuffle);
        __m128i tlo = _mm_add_epi16(_mm_mullo_epi16(lo, alo), half);
        __m128i thi = _mm_add_epi16(_mm_mullo_epi16(hi, ahi), half);
        tlo = _mm_srli_epi16(_mm_add_epi16(tlo, _mm_srli_epi16(tlo, 8)), 8);
        thi = _mm_srli_epi16(_mm_add_epi16(thi, _mm_srli_epi16(thi, 8)), 8);
        __m128i product = _mm_packus_epi16(tlo, thi);
        _mm_storeu_si128(p, _mm_or_si128(_mm_and_si128(alphaMask, v), _mm_andnot_si128(alphaMask, product)));
    }
    return done;
}
#endif

template <int kAlpha>
void Premultiply(uint8_t *pixels, size_t count) {
    size_t done = 0;
#if defined(__SSE2__)
    done = PremultiplySSE2<kAlpha>(pixels, count);
#endif
    PremultiplyScalar<kAlpha>(pixels + done * 4, count - done);
}

}  // namespace

void PremultiplyAlphaFirst(uint8_t *pixels, size_t count) { Premultiply<0>(pixels, count); }

void PremultiplyAlphaLast(uint8_t *pixels, size_t count) { Premultiply<3>(pixels, count); }

}  // namespace plim::graphics
