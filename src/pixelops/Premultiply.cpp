// Premultiplying and unpremultiplying plain buffers of four-byte pixels.
#include "PixelArithmetic.h"

#include <PlimBitmapLib/PlimPixelBuffer.h>

#include "platform/runtime/Output.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <array>
#include <cstddef>

namespace plim::pixel {

const uint8_t *UnpremultiplyTable() {
    static const std::array<uint8_t, 65536> table = [] {
        std::array<uint8_t, 65536> t{};
        for (unsigned a = 0; a < 256; ++a)
            for (unsigned c = 0; c < 256; ++c)
                t[a << 8 | c] = UnpremultiplySampleReference(static_cast<uint8_t>(c), static_cast<uint8_t>(a));
        return t;
    }();
    return table.data();
}

namespace {

// kAlpha is the byte offset of alpha in the pixel; the colour bytes are the other three.
template <int kAlpha>
void PremultiplyPixelsScalar(UInt8 *pixels, size_t count) {
    constexpr int c0 = kAlpha == 0 ? 1 : 0;
    for (size_t i = 0; i < count; ++i) {
        UInt8 *p = pixels + i * 4;
        uint32_t a = p[kAlpha];
        p[c0] = PremultiplySample(p[c0], a);
        p[c0 + 1] = PremultiplySample(p[c0 + 1], a);
        p[c0 + 2] = PremultiplySample(p[c0 + 2], a);
    }
}

#if defined(__SSE2__)
// Four pixels at a time in 16-bit lanes, the same integer formula as PremultiplySample.
template <int kAlpha>
size_t PremultiplyPixelsSSE2(UInt8 *pixels, size_t count) {
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
void PremultiplyPixels(UInt8 *pixels, UInt32 length) {
    size_t count = length >> 2;
    size_t done = 0;
#if defined(__SSE2__)
    done = PremultiplyPixelsSSE2<kAlpha>(pixels, count);
#endif
    PremultiplyPixelsScalar<kAlpha>(pixels + done * 4, count - done);
}

template <int kAlpha>
void UnpremultiplyPixels(UInt8 *pixels, UInt32 length, const char (&message)[61]) {
    constexpr int c0 = kAlpha == 0 ? 1 : 0;
    const uint8_t *table = UnpremultiplyTable();
    const UInt32 count = length >> 2;
    bool invalid = false;
    for (UInt32 i = 0; i < count; ++i) {
        UInt8 *p = pixels + static_cast<size_t>(i) * 4;
        uint32_t a = p[kAlpha];
        uint32_t r = p[c0], g = p[c0 + 1], b = p[c0 + 2];
        invalid |= (r > a) | (g > a) | (b > a);
        const uint8_t *row = table + (a << 8);
        p[c0] = row[r];
        p[c0 + 1] = row[g];
        p[c0 + 2] = row[b];
    }
    // One message per call however many pixels are invalid; which pixel came first does not
    // change the text, so it is written after the pass.
    if (invalid) plim::output::Write(kPlimOutputStandardError, message);
}

const char kARGBMessage[61] = "PlimCFUnpremultiplyARGBBuffer - invalid unpremultiplication\n";
const char kRGBAMessage[61] = "PlimCFUnpremultiplyRGBABuffer - invalid unpremultiplication\n";

}  // namespace
}  // namespace plim::pixel

using namespace plim::pixel;

extern "C" {

void PlimCFPremultiplyARGBBuffer(UInt8 *pixels, UInt32 length) { PremultiplyPixels<0>(pixels, length); }

void PlimCFPremultiplyRGBABuffer(UInt8 *pixels, UInt32 length) { PremultiplyPixels<3>(pixels, length); }

void PlimCFUnpremultiplyARGBBuffer(UInt8 *pixels, UInt32 length) {
    UnpremultiplyPixels<0>(pixels, length, kARGBMessage);
}

void PlimCFUnpremultiplyRGBABuffer(UInt8 *pixels, UInt32 length) {
    UnpremultiplyPixels<3>(pixels, length, kRGBAMessage);
}

}  // extern "C"
