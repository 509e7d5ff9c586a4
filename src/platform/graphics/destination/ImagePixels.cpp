#include "platform/graphics/destination/ImagePixels.h"

#include "platform/graphics/GraphicsTypes.h"
#include "platform/runtime/CFRef.h"

#include <array>
#include <bit>
#include <cstring>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace plim::graphics {

namespace {

// round(C * 255 / A), at most 255, for every alpha A and sample C: [A * 256 + C]. Static
// storage: making it allocates nothing, so nothing can throw.
const uint8_t *UnpremultiplyTable() {
    static const std::array<uint8_t, 256 * 256> table = [] {
        std::array<uint8_t, 256 * 256> t{};  // alpha 0: every sample 0
        for (unsigned a = 1; a < 256; a++)
            for (unsigned c = 0; c < 256; c++) {
                const unsigned v = (c * 255u + a / 2u) / a;
                t[a * 256 + c] = static_cast<uint8_t>(v > 255u ? 255u : v);
            }
        return t;
    }();
    return table.data();
}

#if defined(__SSE2__)
// Four pixels at a time: round(C * 255 / A) is floor((C * 255 + floor(A / 2)) / A), whose
// numerator is exact in a float and whose quotient lies at least 1/255 from the next integer
// unless it is one, further than a float quotient below 65536 can err: truncating the float
// quotient gives the integer one exactly.
inline __m128i UnpremultiplyPixels(__m128i v, int alphaShift) {
    const __m128i byte = _mm_set1_epi32(0xFF);
    const __m128i alpha = _mm_and_si128(_mm_srli_epi32(v, alphaShift), byte);
    const __m128 a = _mm_cvtepi32_ps(alpha);
    const __m128 half = _mm_cvtepi32_ps(_mm_srli_epi32(alpha, 1));
    const __m128i clear = _mm_cmpeq_epi32(alpha, _mm_setzero_si128());
    __m128i out = _mm_slli_epi32(alpha, alphaShift);
    for (int shift = 0; shift < 32; shift += 8) {
        if (shift == alphaShift) continue;
        const __m128i c = _mm_and_si128(_mm_srli_epi32(v, shift), byte);
        const __m128 n = _mm_add_ps(_mm_mul_ps(_mm_cvtepi32_ps(c), _mm_set1_ps(255.0f)), half);
        __m128i q = _mm_cvttps_epi32(_mm_div_ps(n, a));
        // At most 255 (q is non-negative, or the integer indefinite where A is 0).
        q = _mm_andnot_si128(clear, q);
        const __m128i over = _mm_cmpgt_epi32(q, byte);
        q = _mm_or_si128(_mm_and_si128(over, byte), _mm_andnot_si128(over, q));
        out = _mm_or_si128(out, _mm_slli_epi32(q, shift));
    }
    return out;
}
#endif

// n pixels of 32 bits, alpha first or last, to straight colour with alpha first or last (255
// where the source has none).
void Convert32(const uint8_t *row, size_t n, bool alphaFirst, bool hasAlpha, bool premultiplied,
               bool outAlphaFirst, uint8_t *out) {
    size_t x = 0;
#if defined(__SSE2__)
    if (std::endian::native == std::endian::little) {
        const int alphaShift = alphaFirst ? 0 : 24;
        const __m128i alphaBytes = _mm_set1_epi32(static_cast<int>(0xFFu << alphaShift));
        for (; x + 4 <= n; x += 4) {
            __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + 4 * x));
            if (!hasAlpha) {
                v = _mm_or_si128(v, alphaBytes);
            } else if (premultiplied) {
                // Runs of opaque pixels stay as they are, runs of clear ones become zero.
                const __m128i alpha = _mm_and_si128(v, alphaBytes);
                if (_mm_movemask_epi8(_mm_cmpeq_epi32(alpha, alphaBytes)) != 0xFFFF)
                    v = _mm_movemask_epi8(_mm_cmpeq_epi32(alpha, _mm_setzero_si128())) == 0xFFFF
                            ? _mm_setzero_si128()
                            : UnpremultiplyPixels(v, alphaShift);
            }
            // A,R,G,B and R,G,B,A are rotations of each other's 32-bit words.
            if (alphaFirst && !outAlphaFirst) v = _mm_or_si128(_mm_srli_epi32(v, 8), _mm_slli_epi32(v, 24));
            if (!alphaFirst && outAlphaFirst) v = _mm_or_si128(_mm_slli_epi32(v, 8), _mm_srli_epi32(v, 24));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 4 * x), v);
        }
    }
#endif
    const uint8_t *table = UnpremultiplyTable();
    const size_t a = alphaFirst ? 0 : 3, c0 = alphaFirst ? 1 : 0;
    const size_t outA = outAlphaFirst ? 0 : 3, outC0 = outAlphaFirst ? 1 : 0;
    for (; x < n; x++) {
        const uint8_t *p = row + 4 * x;
        uint8_t *q = out + 4 * x;
        const uint8_t alpha = hasAlpha ? p[a] : 255;
        for (size_t c = 0; c < 3; c++) q[outC0 + c] = premultiplied ? table[alpha * 256 + p[c0 + c]] : p[c0 + c];
        q[outA] = alpha;
    }
}

// Straight 32-bit pixels to R,G,B.
template <bool AlphaFirst>
void RGBRow(const uint8_t *row, size_t n, uint8_t *out) {
    for (size_t x = 0; x < n; x++, row += 4, out += 3) std::memcpy(out, row + (AlphaFirst ? 1 : 0), 3);
}

}  // namespace

bool EncodableRows::Open(CGImageRef image, bool unpremultiply) {
    if (!image || !ImagePixelsReady(image) || !ImageData(image)) return false;
    const size_t w = image->width, h = image->height, bpr = image->bytesPerRow;
    if (w == 0 || h == 0 || w > UINT32_MAX / 4 || h > UINT32_MAX) return false;
    const size_t bpc = image->bitsPerComponent, bpp = image->bitsPerPixel;
    if (bpr == 0 || (h - 1) > (image->provider->size - 1) / bpr) return false;
    if (bpr * (h - 1) + (w * bpp + 7) / 8 > image->provider->size) return false;
    const CGImageAlphaInfo info = image->alphaInfo;
    const bool greyLayout = (bpc == 8 && bpp == 8 && info == kCGImageAlphaNone) || (bpc == 1 && bpp == 1);
    if (!greyLayout && (bpc != 8 || bpp != 32 || info == kCGImageAlphaNone || info == kCGImageAlphaOnly))
        return false;
    try {
        icc.clear();
        if (image->space) {
            CFRef<CFDataRef> profile(CGColorSpaceCopyICCProfile(image->space));
            if (profile)
                icc.assign(CFDataGetBytePtr(profile.get()), CFDataGetBytePtr(profile.get()) + CFDataGetLength(profile.get()));
        }
    } catch (const std::bad_alloc &) {
        return false;
    }
    data_ = ImageData(image);
    bytesPerRow_ = bpr;
    width = static_cast<uint32_t>(w);
    height = static_cast<uint32_t>(h);
    grey = greyLayout;
    oneBit_ = bpc == 1;
    alphaFirst_ = info == kCGImageAlphaPremultipliedFirst || info == kCGImageAlphaFirst ||
                  info == kCGImageAlphaNoneSkipFirst;
    alpha = !grey && info != kCGImageAlphaNoneSkipFirst && info != kCGImageAlphaNoneSkipLast;
    premultiplied_ = !grey && unpremultiply &&
                     (info == kCGImageAlphaPremultipliedFirst || info == kCGImageAlphaPremultipliedLast);
    try {
        straight_.resize(premultiplied_ ? w * 4 : 0);
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

void EncodableRows::Read(size_t y, SampleOrder order, uint8_t *out) const {
    const uint8_t *row = data_ + bytesPerRow_ * y;
    if (grey) {
        if (!oneBit_) {
            std::memcpy(out, row, width);
            return;
        }
        for (size_t x = 0; x < width; x++) out[x] = ((row[x >> 3] >> (7 - (x & 7))) & 1u) ? 255 : 0;
        return;
    }
    if (order != SampleOrder::RGB) {
        Convert32(row, width, alphaFirst_, alpha, premultiplied_, order == SampleOrder::ARGB, out);
        return;
    }
    if (premultiplied_) {
        Convert32(row, width, alphaFirst_, true, true, alphaFirst_, straight_.data());
        row = straight_.data();
    }
    (alphaFirst_ ? RGBRow<true> : RGBRow<false>)(row, width, out);
}

const uint8_t *EncodableRows::OwnRow(size_t y, bool *alphaLast) const {
    if ((grey && oneBit_) || premultiplied_) return nullptr;
    *alphaLast = !grey && !alphaFirst_;
    return data_ + bytesPerRow_ * y;
}

bool ReadEncodablePixels(CGImageRef image, EncodablePixels *out, bool unpremultiply) {
    EncodableRows rows;
    if (!rows.Open(image, unpremultiply)) return false;
    out->width = rows.width;
    out->height = rows.height;
    out->grey = rows.grey;
    out->alpha = rows.alpha;
    try {
        out->icc = std::move(rows.icc);
        out->pixels.resize(out->BytesPerRow() * out->height);
    } catch (const std::bad_alloc &) {
        return false;
    }
    for (size_t y = 0; y < out->height; y++)
        rows.Read(y, SampleOrder::ARGB, out->pixels.data() + out->BytesPerRow() * y);
    return true;
}

}  // namespace plim::graphics
