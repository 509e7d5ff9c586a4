#include "platform/graphics/PixelRows.h"

#include <algorithm>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#define PLIM_GRAPHICS_SSE2 1
#endif
#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define PLIM_GRAPHICS_AVX2 1
#endif

namespace plim::graphics {
namespace {

constexpr uint32_t Word(uint32_t a, uint32_t r, uint32_t g, uint32_t b) {
    return (a << 24) | (r << 16) | (g << 8) | b;
}

// Byte offsets of red, green, blue and alpha within a pixel of Size bytes; A < 0 means opaque
// (no alpha or a skipped byte). Grey layouts use the same offset for the three colours.
template <int Size, int R, int G, int B, int A, bool Premultiplied>
void FetchBytes(const uint8_t *row, size_t x, size_t n, uint32_t *out) {
    const uint8_t *p = row + x * Size;
    for (size_t i = 0; i < n; ++i, p += Size) {
        uint32_t r = p[R], g = p[G], b = p[B];
        if constexpr (A < 0) {
            out[i] = Word(255, r, g, b);
        } else {
            uint32_t a = p[A];
            if constexpr (!Premultiplied) {
                r = Div255(r * a);
                g = Div255(g * a);
                b = Div255(b * a);
            }
            out[i] = Word(a, r, g, b);
        }
    }
}

void FetchAlpha8(const uint8_t *row, size_t x, size_t n, uint32_t *out) {
    for (size_t i = 0; i < n; ++i) out[i] = static_cast<uint32_t>(row[x + i]) << 24;
}

void FetchGrey1(const uint8_t *row, size_t x, size_t n, uint32_t *out) {
    for (size_t i = 0; i < n; ++i) {
        size_t bit = x + i;
        bool on = (row[bit >> 3] >> (7 - (bit & 7))) & 1;
        out[i] = on ? 0xFFFFFFFFu : 0xFF000000u;
    }
}

template <int A>
FetchRow GreyAlpha(bool premultiplied, bool skip) {
    constexpr int G = 1 - A;
    if (skip) return FetchBytes<2, G, G, G, -1, true>;
    return premultiplied ? FetchBytes<2, G, G, G, A, true> : FetchBytes<2, G, G, G, A, false>;
}

inline uint32_t Over(uint32_t s, uint32_t d, uint32_t inverseAlpha) {
    return std::min<uint32_t>(255, s + Div255(d * inverseAlpha));
}

// 32-bit destinations: R, G, B offsets, and A the alpha offset (or the skipped byte, which is
// written as 255, when Opaque).
template <int R, int G, int B, int A, bool Opaque>
void Blend32(const uint32_t *src, size_t n, uint8_t *dst) {
    for (size_t i = 0; i < n; ++i, dst += 4) {
        uint32_t s = src[i];
        uint32_t sa = s >> 24;
        uint32_t sr = (s >> 16) & 0xFF, sg = (s >> 8) & 0xFF, sb = s & 0xFF;
        if (sa == 255) {
            dst[R] = static_cast<uint8_t>(sr);
            dst[G] = static_cast<uint8_t>(sg);
            dst[B] = static_cast<uint8_t>(sb);
            dst[A] = 255;
            continue;
        }
        if (s == 0) {
            if (Opaque) dst[A] = 255;
            continue;
        }
        uint32_t ia = 255 - sa;
        dst[R] = static_cast<uint8_t>(Over(sr, dst[R], ia));
        dst[G] = static_cast<uint8_t>(Over(sg, dst[G], ia));
        dst[B] = static_cast<uint8_t>(Over(sb, dst[B], ia));
        dst[A] = Opaque ? 255 : static_cast<uint8_t>(Over(sa, dst[A], ia));
    }
}

// Luminance with weights summing to 256, so that (g, g, g) gives back g.
inline uint32_t Luminance(uint32_t r, uint32_t g, uint32_t b) {
    return (54 * r + 183 * g + 19 * b + 128) >> 8;
}

void BlendGrey8(const uint32_t *src, size_t n, uint8_t *dst) {
    for (size_t i = 0; i < n; ++i) {
        uint32_t s = src[i];
        uint32_t sa = s >> 24;
        uint32_t y = Luminance((s >> 16) & 0xFF, (s >> 8) & 0xFF, s & 0xFF);
        dst[i] = static_cast<uint8_t>(sa == 255 ? y : Over(y, dst[i], 255 - sa));
    }
}

void BlendAlpha8(const uint32_t *src, size_t n, uint8_t *dst) {
    for (size_t i = 0; i < n; ++i) {
        uint32_t sa = src[i] >> 24;
        dst[i] = static_cast<uint8_t>(Over(sa, dst[i], 255 - sa));
    }
}

#if PLIM_GRAPHICS_SSE2
// Four pixels at a time in 16-bit lanes, one pixel per 64-bit half after unpacking. The
// arithmetic is that of the scalar rows (the same Div255 and saturation), so the bytes match.

// The lane of a four-byte pixel that lands in each word lane (B, G, R, A in memory order).
template <int R, int G, int B, int A>
constexpr int WordShuffle() {
    constexpr int a = A < 0 ? 6 - R - G - B : A;  // the skipped byte, overwritten later
    return _MM_SHUFFLE(a, R, G, B);
}

// The word lane that lands in each destination lane.
template <int R, int G, int B, int A>
constexpr int DestShuffle() {
    int lane[4] = {};
    lane[R] = 2;
    lane[G] = 1;
    lane[B] = 0;
    lane[A] = 3;
    return _MM_SHUFFLE(lane[3], lane[2], lane[1], lane[0]);
}

template <int Imm>
inline __m128i ShuffleLanes(__m128i v) {
    return _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, Imm), Imm);
}

// ((x + 128) * 257) >> 16 is Div255 for every x up to 255 * 255.
inline __m128i Div255x8(__m128i x) {
    return _mm_mulhi_epu16(_mm_add_epi16(x, _mm_set1_epi16(128)), _mm_set1_epi16(257));
}

// Lane 3 of each pixel (alpha in word order) keeps v's value; the colour lanes become
// round(colour * alpha / 255).
inline __m128i Premultiply8(__m128i v) {
    __m128i alpha = ShuffleLanes<_MM_SHUFFLE(3, 3, 3, 3)>(v);
    __m128i colour = Div255x8(_mm_mullo_epi16(v, alpha));
    const __m128i alphaLanes = _mm_set_epi16(-1, 0, 0, 0, -1, 0, 0, 0);
    return _mm_or_si128(_mm_and_si128(alphaLanes, v), _mm_andnot_si128(alphaLanes, colour));
}

template <int R, int G, int B, int A, bool Premultiplied>
void FetchWords4(const uint8_t *row, size_t x, size_t n, uint32_t *out) {
    const uint8_t *p = row + x * 4;
    const __m128i zero = _mm_setzero_si128();
    const __m128i opaque = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + i * 4));
        __m128i lo = ShuffleLanes<WordShuffle<R, G, B, A>()>(_mm_unpacklo_epi8(v, zero));
        __m128i hi = ShuffleLanes<WordShuffle<R, G, B, A>()>(_mm_unpackhi_epi8(v, zero));
        if constexpr (A >= 0 && !Premultiplied) {
            lo = Premultiply8(lo);
            hi = Premultiply8(hi);
        }
        __m128i words = _mm_packus_epi16(lo, hi);
        if constexpr (A < 0) words = _mm_or_si128(words, opaque);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + i), words);
    }
    FetchBytes<4, R, G, B, A, Premultiplied>(row, x + i, n - i, out + i);
}

template <int R, int G, int B, int A, bool Opaque>
void Blend32x4(const uint32_t *src, size_t n, uint8_t *dst) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i full = _mm_set1_epi16(255);
    const __m128i skipped = _mm_set1_epi32(static_cast<int>(0xFFu << (8 * A)));
    size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + i));
        __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i *>(dst + i * 4));
        __m128i out[2];
        for (int half = 0; half < 2; ++half) {
            __m128i s16 = half ? _mm_unpackhi_epi8(s, zero) : _mm_unpacklo_epi8(s, zero);
            __m128i d16 = half ? _mm_unpackhi_epi8(d, zero) : _mm_unpacklo_epi8(d, zero);
            s16 = ShuffleLanes<DestShuffle<R, G, B, A>()>(s16);
            __m128i inverse = _mm_sub_epi16(full, ShuffleLanes<_MM_SHUFFLE(A, A, A, A)>(s16));
            out[half] = _mm_add_epi16(s16, Div255x8(_mm_mullo_epi16(d16, inverse)));
        }
        __m128i result = _mm_packus_epi16(out[0], out[1]);
        if constexpr (Opaque) result = _mm_or_si128(result, skipped);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i * 4), result);
    }
    Blend32<R, G, B, A, Opaque>(src + i, n - i, dst + i * 4);
}

// Reading and drawing in one pass for 32-bit sources onto 32-bit destinations. Red, green
// and blue always sit in that order, so moving alpha between first and last is a rotation of
// the 32-bit pixel; the samples are then worked on as two sets of 16-bit lanes (bytes 0 and 2,
// bytes 1 and 3), which needs no byte shuffles at all.
// With OntoZero the destination is taken as zero bytes, whatever it holds, and not read: the
// source-over result is then the source itself (premultiplied, with the skipped byte 255).
template <int SA, bool SSkip, bool SPremultiplied, int DA, bool DOpaque, bool OntoZero = false>
void Convert32x4(const uint8_t *row, size_t x, size_t n, uint8_t *dst) {
    const uint8_t *p = row + x * 4;
    const __m128i evenBytes = _mm_set1_epi32(0x00FF00FF);
    const __m128i alphaMask = _mm_set1_epi32(static_cast<int>(0xFFu << (8 * DA)));
    size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + i * 4));
        if constexpr (SA == 3 && DA == 0) {
            s = _mm_or_si128(_mm_slli_epi32(s, 8), _mm_srli_epi32(s, 24));
        } else if constexpr (SA == 0 && DA == 3) {
            s = _mm_or_si128(_mm_srli_epi32(s, 8), _mm_slli_epi32(s, 24));
        }
        if constexpr (SSkip) s = _mm_or_si128(s, alphaMask);
        // Alpha in both 16-bit halves of each pixel.
        __m128i alpha = DA == 3 ? _mm_srli_epi32(s, 24) : _mm_and_si128(s, _mm_set1_epi32(0xFF));
        alpha = _mm_or_si128(alpha, _mm_slli_epi32(alpha, 16));
        if constexpr (!SSkip && !SPremultiplied) {
            __m128i even = Div255x8(_mm_mullo_epi16(_mm_and_si128(s, evenBytes), alpha));
            __m128i odd = Div255x8(_mm_mullo_epi16(_mm_srli_epi16(s, 8), alpha));
            __m128i colour = _mm_or_si128(even, _mm_slli_epi16(odd, 8));
            s = _mm_or_si128(_mm_and_si128(alphaMask, s), _mm_andnot_si128(alphaMask, colour));
        }
        __m128i result = s;
        if constexpr (!OntoZero) {
            __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i *>(dst + i * 4));
            __m128i inverse = _mm_sub_epi16(evenBytes, alpha);
            __m128i even = Div255x8(_mm_mullo_epi16(_mm_and_si128(d, evenBytes), inverse));
            __m128i odd = Div255x8(_mm_mullo_epi16(_mm_srli_epi16(d, 8), inverse));
            result = _mm_adds_epu8(s, _mm_or_si128(even, _mm_slli_epi16(odd, 8)));
        }
        if constexpr (DOpaque) result = _mm_or_si128(result, alphaMask);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i * 4), result);
    }
    constexpr int R = SA == 3 ? 0 : 1;
    constexpr int DR = DA == 3 ? 0 : 1;
    uint32_t words[4];
    FetchBytes<4, R, R + 1, R + 2, SSkip ? -1 : SA, SPremultiplied || SSkip>(row, x + i, n - i,
                                                                             words);
    if constexpr (OntoZero) {
        if (n > i) std::memset(dst + i * 4, 0, (n - i) * 4);
    }
    Blend32<DR, DR + 1, DR + 2, DA, DOpaque>(words, n - i, dst + i * 4);
}

#if PLIM_GRAPHICS_AVX2
// The same row eight pixels at a time, for processors with AVX2 (chosen at run time).
__attribute__((target("avx2"))) inline __m256i Div255x16(__m256i x) {
    return _mm256_mulhi_epu16(_mm256_add_epi16(x, _mm256_set1_epi16(128)), _mm256_set1_epi16(257));
}

template <int SA, bool SSkip, bool SPremultiplied, int DA, bool DOpaque, bool OntoZero = false>
__attribute__((target("avx2"))) void Convert32x8(const uint8_t *row, size_t x, size_t n,
                                                 uint8_t *dst) {
    const uint8_t *p = row + x * 4;
    const __m256i evenBytes = _mm256_set1_epi32(0x00FF00FF);
    const __m256i alphaMask = _mm256_set1_epi32(static_cast<int>(0xFFu << (8 * DA)));
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + i * 4));
        if constexpr (SA == 3 && DA == 0) {
            s = _mm256_or_si256(_mm256_slli_epi32(s, 8), _mm256_srli_epi32(s, 24));
        } else if constexpr (SA == 0 && DA == 3) {
            s = _mm256_or_si256(_mm256_srli_epi32(s, 8), _mm256_slli_epi32(s, 24));
        }
        if constexpr (SSkip) s = _mm256_or_si256(s, alphaMask);
        __m256i alpha =
            DA == 3 ? _mm256_srli_epi32(s, 24) : _mm256_and_si256(s, _mm256_set1_epi32(0xFF));
        alpha = _mm256_or_si256(alpha, _mm256_slli_epi32(alpha, 16));
        if constexpr (!SSkip && !SPremultiplied) {
            __m256i even = Div255x16(_mm256_mullo_epi16(_mm256_and_si256(s, evenBytes), alpha));
            __m256i odd = Div255x16(_mm256_mullo_epi16(_mm256_srli_epi16(s, 8), alpha));
            __m256i colour = _mm256_or_si256(even, _mm256_slli_epi16(odd, 8));
            s = _mm256_or_si256(_mm256_and_si256(alphaMask, s),
                                _mm256_andnot_si256(alphaMask, colour));
        }
        __m256i result = s;
        if constexpr (!OntoZero) {
            __m256i d = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(dst + i * 4));
            __m256i inverse = _mm256_sub_epi16(evenBytes, alpha);
            __m256i even = Div255x16(_mm256_mullo_epi16(_mm256_and_si256(d, evenBytes), inverse));
            __m256i odd = Div255x16(_mm256_mullo_epi16(_mm256_srli_epi16(d, 8), inverse));
            result = _mm256_adds_epu8(s, _mm256_or_si256(even, _mm256_slli_epi16(odd, 8)));
        }
        if constexpr (DOpaque) result = _mm256_or_si256(result, alphaMask);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + i * 4), result);
    }
    Convert32x4<SA, SSkip, SPremultiplied, DA, DOpaque, OntoZero>(row, x + i, n - i, dst + i * 4);
}
#endif

template <int SA, bool SSkip, bool SPremultiplied, int DA, bool DOpaque, bool OntoZero>
ConvertRow Convert32() {
#if PLIM_GRAPHICS_AVX2
    if (__builtin_cpu_supports("avx2")) return Convert32x8<SA, SSkip, SPremultiplied, DA, DOpaque, OntoZero>;
#endif
    return Convert32x4<SA, SSkip, SPremultiplied, DA, DOpaque, OntoZero>;
}

template <int DA, bool DOpaque, bool OntoZero>
ConvertRow ConvertTo(CGImageAlphaInfo source) {
    switch (source) {
        case kCGImageAlphaPremultipliedLast: return Convert32<3, false, true, DA, DOpaque, OntoZero>();
        case kCGImageAlphaPremultipliedFirst: return Convert32<0, false, true, DA, DOpaque, OntoZero>();
        case kCGImageAlphaLast: return Convert32<3, false, false, DA, DOpaque, OntoZero>();
        case kCGImageAlphaFirst: return Convert32<0, false, false, DA, DOpaque, OntoZero>();
        case kCGImageAlphaNoneSkipLast: return Convert32<3, true, true, DA, DOpaque, OntoZero>();
        case kCGImageAlphaNoneSkipFirst: return Convert32<0, true, true, DA, DOpaque, OntoZero>();
        default: return nullptr;
    }
}

template <bool OntoZero>
ConvertRow ConvertInto(CGImageAlphaInfo sourceAlpha, CGImageAlphaInfo destAlpha) {
    switch (destAlpha) {
        case kCGImageAlphaPremultipliedLast: return ConvertTo<3, false, OntoZero>(sourceAlpha);
        case kCGImageAlphaPremultipliedFirst: return ConvertTo<0, false, OntoZero>(sourceAlpha);
        case kCGImageAlphaNoneSkipLast: return ConvertTo<3, true, OntoZero>(sourceAlpha);
        case kCGImageAlphaNoneSkipFirst: return ConvertTo<0, true, OntoZero>(sourceAlpha);
        default: return nullptr;
    }
}
#endif

}  // namespace

FetchRow ScalarFetchFor(Layout layout, CGImageAlphaInfo alpha) {
    switch (layout) {
        case Layout::Grey1: return FetchGrey1;
        case Layout::Grey8: return FetchBytes<1, 0, 0, 0, -1, true>;
        case Layout::Alpha8: return FetchAlpha8;
        case Layout::RGB24: return FetchBytes<3, 0, 1, 2, -1, true>;
        case Layout::GreyAlpha:
            switch (alpha) {
                case kCGImageAlphaPremultipliedLast: return GreyAlpha<1>(true, false);
                case kCGImageAlphaPremultipliedFirst: return GreyAlpha<0>(true, false);
                case kCGImageAlphaLast: return GreyAlpha<1>(false, false);
                case kCGImageAlphaFirst: return GreyAlpha<0>(false, false);
                case kCGImageAlphaNoneSkipLast: return GreyAlpha<1>(true, true);
                case kCGImageAlphaNoneSkipFirst: return GreyAlpha<0>(true, true);
                default: return nullptr;
            }
        case Layout::RGB32:
            switch (alpha) {
                case kCGImageAlphaPremultipliedLast: return FetchBytes<4, 0, 1, 2, 3, true>;
                case kCGImageAlphaPremultipliedFirst: return FetchBytes<4, 1, 2, 3, 0, true>;
                case kCGImageAlphaLast: return FetchBytes<4, 0, 1, 2, 3, false>;
                case kCGImageAlphaFirst: return FetchBytes<4, 1, 2, 3, 0, false>;
                case kCGImageAlphaNoneSkipLast: return FetchBytes<4, 0, 1, 2, -1, true>;
                case kCGImageAlphaNoneSkipFirst: return FetchBytes<4, 1, 2, 3, -1, true>;
                default: return nullptr;
            }
    }
    return nullptr;
}

BlendRow ScalarBlendFor(Layout layout, CGImageAlphaInfo alpha) {
    switch (layout) {
        case Layout::Grey8: return BlendGrey8;
        case Layout::Alpha8: return BlendAlpha8;
        case Layout::RGB32:
            switch (alpha) {
                case kCGImageAlphaPremultipliedLast: return Blend32<0, 1, 2, 3, false>;
                case kCGImageAlphaPremultipliedFirst: return Blend32<1, 2, 3, 0, false>;
                case kCGImageAlphaNoneSkipLast: return Blend32<0, 1, 2, 3, true>;
                case kCGImageAlphaNoneSkipFirst: return Blend32<1, 2, 3, 0, true>;
                default: return nullptr;
            }
        default: return nullptr;
    }
}

FetchRow FetchFor(Layout layout, CGImageAlphaInfo alpha) {
#if PLIM_GRAPHICS_SSE2
    if (layout == Layout::RGB32) {
        switch (alpha) {
            case kCGImageAlphaPremultipliedLast: return FetchWords4<0, 1, 2, 3, true>;
            case kCGImageAlphaPremultipliedFirst: return FetchWords4<1, 2, 3, 0, true>;
            case kCGImageAlphaLast: return FetchWords4<0, 1, 2, 3, false>;
            case kCGImageAlphaFirst: return FetchWords4<1, 2, 3, 0, false>;
            case kCGImageAlphaNoneSkipLast: return FetchWords4<0, 1, 2, -1, true>;
            case kCGImageAlphaNoneSkipFirst: return FetchWords4<1, 2, 3, -1, true>;
            default: return nullptr;
        }
    }
#endif
    return ScalarFetchFor(layout, alpha);
}

BlendRow BlendFor(Layout layout, CGImageAlphaInfo alpha) {
#if PLIM_GRAPHICS_SSE2
    if (layout == Layout::RGB32) {
        switch (alpha) {
            case kCGImageAlphaPremultipliedLast: return Blend32x4<0, 1, 2, 3, false>;
            case kCGImageAlphaPremultipliedFirst: return Blend32x4<1, 2, 3, 0, false>;
            case kCGImageAlphaNoneSkipLast: return Blend32x4<0, 1, 2, 3, true>;
            case kCGImageAlphaNoneSkipFirst: return Blend32x4<1, 2, 3, 0, true>;
            default: return nullptr;
        }
    }
#endif
    return ScalarBlendFor(layout, alpha);
}

ConvertRow ConvertFor(Layout source, CGImageAlphaInfo sourceAlpha, Layout dest,
                      CGImageAlphaInfo destAlpha, bool ontoZero) {
#if PLIM_GRAPHICS_SSE2
    if (source == Layout::RGB32 && dest == Layout::RGB32)
        return ontoZero ? ConvertInto<true>(sourceAlpha, destAlpha) : ConvertInto<false>(sourceAlpha, destAlpha);
#else
    (void)source, (void)sourceAlpha, (void)dest, (void)destAlpha, (void)ontoZero;
#endif
    return nullptr;
}

void PremultiplyWords(uint32_t *words, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        uint32_t w = words[i];
        uint32_t a = w >> 24;
        if (a == 255) continue;
        words[i] = Word(a, Div255(((w >> 16) & 0xFF) * a), Div255(((w >> 8) & 0xFF) * a),
                        Div255((w & 0xFF) * a));
    }
}

void ExpandGrey1(const uint8_t *row, size_t x, size_t n, uint8_t *out) {
    for (size_t i = 0; i < n; ++i) {
        size_t bit = x + i;
        out[i] = ((row[bit >> 3] >> (7 - (bit & 7))) & 1) ? 255 : 0;
    }
}

}  // namespace plim::graphics
