// The 72 kernels. Each operator is written once as a channel formula; the layouts wrap the
// formulas into kernels, and X-macros name every kernel and fill the tables. Order and
// precision of every operation are part of the result: keep the casts as they are.
#include "composite/Kernels.h"
#include "composite/SimdRows.h"

#include <cmath>

namespace {

inline float Norm(UInt8 b) { return static_cast<float>(b) / 255.0f; }
inline float Min(float a, float b) { return a < b ? a : b; }
inline float Max(float a, float b) { return a > b ? a : b; }

inline UInt8 StoreClamped(float &v) {
    if (v < 0) v = 0;
    long n = lroundf(v * 255.0f);
    return n >= 256 ? static_cast<UInt8>(255) : static_cast<UInt8>(n);
}

// ---- Opaque layouts: the twelve Porter-Duff operators reduce to three behaviours.
enum class Opaque { kWhite, kSource, kKeep };

template <Opaque kind>
inline void OpaqueChannels(const UInt8 *src, UInt8 *dest, int first, int last) {
    for (int i = first; i <= last; ++i) {
        if constexpr (kind == Opaque::kWhite) dest[i] = 255;
        if constexpr (kind == Opaque::kSource) dest[i] = src[i];
    }
    (void)src;
    (void)dest;
}

constexpr Opaque kOpaque_Clear = Opaque::kWhite, kOpaque_CopySrc = Opaque::kSource,
                 kOpaque_CopyDest = Opaque::kKeep, kOpaque_SrcOver = Opaque::kSource,
                 kOpaque_DestOver = Opaque::kKeep, kOpaque_SrcIn = Opaque::kSource,
                 kOpaque_DestIn = Opaque::kKeep, kOpaque_SrcOut = Opaque::kWhite,
                 kOpaque_DestOut = Opaque::kWhite, kOpaque_SrcAtop = Opaque::kSource,
                 kOpaque_DestAtop = Opaque::kKeep, kOpaque_XOR = Opaque::kWhite;

// ---- Opaque layouts: blend modes, r from normalised s and d, before the store.
inline float Opaque_Plus(float s, float d) { return s + d; }
inline float Opaque_Multiply(float s, float d) { return s * d; }
inline float Opaque_Screen(float s, float d) { return (s + d) - s * d; }
inline float Opaque_Overlay(float s, float d) {
    double S = static_cast<double>(s), D = static_cast<double>(d);
    if (1.0 > D + D) return static_cast<float>(D * (S + S));
    return static_cast<float>(((1.0 - D) * -2.0) * (1.0 - S) + 1.0);
}
inline float Opaque_Darken(float s, float d) { return Min(s, d); }
inline float Opaque_Lighten(float s, float d) { return Max(s, d); }
inline float Opaque_ColorDodge(float s, float d) {
    if (s + d >= 1.0f) return 1.0f;
    return static_cast<float>(static_cast<double>(d) / (1.0 - static_cast<double>(s)));
}
inline float Opaque_ColorBurn(float s, float d) {
    float t = d + s;
    if (t > 1.0f) return static_cast<float>((static_cast<double>(t) - 1.0) / static_cast<double>(s));
    return 0.0f;
}
inline float Opaque_HardLight(float s, float d) {
    double S = static_cast<double>(s), D = static_cast<double>(d);
    if (1.0 > S + S) return static_cast<float>((S + S) * D);
    return static_cast<float>(((1.0 - D) * -2.0) * (1.0 - S) + 1.0);
}
inline float Opaque_SoftLight(float s, float d) {
    double S = static_cast<double>(s), D = static_cast<double>(d);
    double m = S + S;
    if (1.0 > m) return static_cast<float>(D * (1.0 - (1.0 - D) * (m - 1.0)));
    if (1.0 >= D * 8.0)
        return static_cast<float>(D * (1.0 - (1.0 - D) * (m - 1.0) * (D * -8.0 + 3.0)));
    return static_cast<float>(D + (m - 1.0) * (pow(D, 0.5) - D));
}
inline float Opaque_Difference(float s, float d) {
    float sum = s + d;
    float smaller = Min(s, d);
    return static_cast<float>(static_cast<double>(sum) + static_cast<double>(smaller) * -2.0);
}
inline float Opaque_Exclusion(float s, float d) {
    float sum = s + d;
    return static_cast<float>(static_cast<double>(sum) +
                              (static_cast<double>(s) * -2.0) * static_cast<double>(d));
}

template <float (*Blend)(float, float)>
inline void BlendS8(const UInt8 *src, UInt8 *dest) {
    float r = Blend(Norm(src[0]), Norm(dest[0]));
    dest[0] = StoreClamped(r);
}

template <float (*Blend)(float, float)>
inline void BlendRGB888(const UInt8 *src, UInt8 *dest) {
    float r[3];
    for (int i = 0; i < 3; ++i) r[i] = Blend(Norm(src[i + 1]), Norm(dest[i + 1]));
    FloatRGBToIntXRGB_Clamp(r, dest);
}

// ---- ARGB_8888, Porter-Duff: colour from (Cs, Cd, as, ad, 1 - as, 1 - ad), and alpha.
struct Pixel {
    float as, ad, ias, iad;
    float s[3], d[3];
};

inline Pixel Load(const UInt8 *src, const UInt8 *dest) {
    Pixel p;
    p.as = Norm(src[0]);
    p.ad = Norm(dest[0]);
    for (int i = 0; i < 3; ++i) {
        p.s[i] = Norm(src[i + 1]);
        p.d[i] = Norm(dest[i + 1]);
    }
    p.ias = 1.0f - p.as;
    p.iad = 1.0f - p.ad;
    return p;
}

#define PLIM_PD(op, colour, alpha)                                                   \
    inline float PD_Colour_##op(float Cs, float Cd, const Pixel &p) {                \
        (void)Cs; (void)Cd; (void)p;                                                 \
        return colour;                                                               \
    }                                                                                \
    inline float PD_Alpha_##op(const Pixel &p) { return alpha; }

PLIM_PD(SrcOver, Cs + p.ias * Cd, (p.as + p.ad) - p.as * p.ad)
PLIM_PD(DestOver, Cs * p.iad + Cd, (p.as + p.ad) - p.as * p.ad)
PLIM_PD(SrcIn, Cs * p.ad, p.as * p.ad)
PLIM_PD(DestIn, p.as * Cd, p.as * p.ad)
PLIM_PD(SrcOut, Cs * p.iad, p.as - p.as * p.ad)
PLIM_PD(DestOut, p.ias * Cd, p.ad - p.as * p.ad)
PLIM_PD(SrcAtop, Cs * p.ad + p.ias * Cd, p.ad)
PLIM_PD(DestAtop, p.as * Cd + Cs * p.iad, p.as)
PLIM_PD(XOR, p.ias * Cd + Cs * p.iad,
        static_cast<float>(static_cast<double>(p.as + p.ad) +
                           (static_cast<double>(p.as) * -2.0) * static_cast<double>(p.ad)))
#undef PLIM_PD

template <float (*Colour)(float, float, const Pixel &), float (*Alpha)(const Pixel &)>
inline void PorterDuffARGB(const UInt8 *src, UInt8 *dest) {
    Pixel p = Load(src, dest);
    float out[4];
    out[0] = Alpha(p);
    for (int i = 0; i < 3; ++i) out[i + 1] = Colour(p.s[i], p.d[i], p);
    FloatARGBToIntARGB(out, dest);
}

// ---- ARGB_8888, blend modes: Cr per channel; alpha is the union of coverages.
inline double D(float v) { return static_cast<double>(v); }

inline float ARGB_Multiply(float Sc, float Dc, const Pixel &p) {
    return Sc * p.iad + (p.ias * Dc + Dc * Sc);
}
inline float ARGB_Screen(float Sc, float Dc, const Pixel &) { return (Sc + Dc) - Sc * Dc; }
// The second formula shared by Overlay and HardLight.
inline double ARGB_HardMix(float Sc, float Dc, const Pixel &p) {
    float asad = p.as * p.ad;
    float adDc = p.ad - Dc;
    float asSc = p.as - Sc;
    return D(asad) + (D(adDc) * -2.0) * D(asSc);
}
inline float ARGB_Cover(double B, float Sc, float Dc, const Pixel &p) {
    float sCover = Sc * p.iad;
    float dCover = Dc * p.ias;
    return static_cast<float>((B + D(sCover)) + D(dCover));
}
inline float ARGB_Overlay(float Sc, float Dc, const Pixel &p) {
    double B = D(p.ad) > D(Dc) + D(Dc) ? D(Dc) * (D(Sc) + D(Sc)) : ARGB_HardMix(Sc, Dc, p);
    return ARGB_Cover(B, Sc, Dc, p);
}
inline float ARGB_HardLight(float Sc, float Dc, const Pixel &p) {
    double B = D(p.as) > D(Sc) + D(Sc) ? (D(Sc) + D(Sc)) * D(Dc) : ARGB_HardMix(Sc, Dc, p);
    return ARGB_Cover(B, Sc, Dc, p);
}
inline float ARGB_Darken(float Sc, float Dc, const Pixel &p) {
    return Min(Sc * p.ad, Dc * p.as) + (Sc * p.iad + p.ias * Dc);
}
inline float ARGB_Lighten(float Sc, float Dc, const Pixel &p) {
    return (Max(p.ad * Sc, p.as * Dc) + Sc * p.iad) + Dc * p.ias;
}
inline float ARGB_ColorDodge(float Sc, float Dc, const Pixel &p) {
    if (Sc * p.ad + p.as * Dc >= p.as * p.ad) return (Sc * p.iad + p.as * p.ad) + Dc * p.ias;
    float asDc = p.as * Dc;
    float ratio = Sc / p.as;
    return ARGB_Cover(D(asDc) / (1.0 - D(ratio)), Sc, Dc, p);
}
inline float ARGB_ColorBurn(float Sc, float Dc, const Pixel &p) {
    float t = Sc * p.ad + p.as * Dc;
    float u = p.as * p.ad;
    if (u >= t) return Sc * p.iad + Dc * p.ias;
    return (((t - u) * p.as) / Sc + Sc * p.iad) + Dc * p.ias;
}
inline float ARGB_SoftLight(float Sc, float Dc, const Pixel &p) {
    float mf = p.ad == 0.0f ? 0.0f : Dc / p.ad;
    double m = D(mf);
    double twoS = D(Sc) + D(Sc);
    double B;
    if (D(p.as) > twoS) {
        B = D(Dc) * (D(p.as) - (1.0 - m) * (twoS - D(p.as)));
    } else if (D(p.ad) >= D(Dc) * 8.0) {
        B = D(Dc) * (D(p.as) - (1.0 - m) * (twoS - D(p.as)) * (m * -8.0 + 3.0));
    } else {
        float asDc = p.as * Dc;
        B = D(asDc) + (D(p.ad) * pow(m, 0.5) - D(Dc)) * (twoS - D(p.as));
    }
    return ARGB_Cover(B, Sc, Dc, p);
}
inline float ARGB_Difference(float Sc, float Dc, const Pixel &p) {
    float sum = Sc + Dc;
    float smaller = Min(Sc * p.ad, Dc * p.as);
    return static_cast<float>(D(sum) + D(smaller) * -2.0);
}
inline float ARGB_Exclusion(float Sc, float Dc, const Pixel &p) {
    float cross = p.ad * Sc + p.as * Dc;
    return ARGB_Cover(D(cross) + (D(Sc) * -2.0) * D(Dc), Sc, Dc, p);
}

template <float (*Blend)(float, float, const Pixel &)>
inline void BlendARGB(const UInt8 *src, UInt8 *dest) {
    Pixel p = Load(src, dest);
    float out[4];
    out[0] = (p.as + p.ad) - p.as * p.ad;
    for (int i = 0; i < 3; ++i) out[i + 1] = Blend(p.s[i], p.d[i], p);
    FloatARGBToIntARGB_Clamp(out, dest);
}

inline void PlusARGB(const UInt8 *src, UInt8 *dest) {
    Pixel p = Load(src, dest);
    float out[4] = {p.as + p.ad, p.s[0] + p.d[0], p.s[1] + p.d[1], p.s[2] + p.d[2]};
    FloatARGBToIntARGB_Clamp(out, dest);
}

// ---- Row functions: the kernel inlined into a loop over the run.
template <void (*Kernel)(const UInt8 *, UInt8 *), UInt32 kBytes>
void Row(const UInt8 *src, UInt8 *dest, UInt32 count) {
    for (UInt32 i = 0; i < count; ++i, src += kBytes, dest += kBytes) Kernel(src, dest);
}

}  // namespace

void FloatARGBToIntARGB(const float values[4], UInt8 *pixel) {
    for (int i = 0; i < 4; ++i) pixel[i] = static_cast<UInt8>(lroundf(values[i] * 255.0f));
}

void FloatRGBToIntXRGB_Clamp(float values[3], UInt8 *pixel) {
    for (int i = 0; i < 3; ++i) pixel[i + 1] = StoreClamped(values[i]);
}

void FloatARGBToIntARGB_Clamp(float values[4], UInt8 *pixel) {
    for (int i = 0; i < 4; ++i) pixel[i] = StoreClamped(values[i]);
}

// Opaque Porter-Duff kernels.
#define PLIM_OPAQUE_PD(op)                                                           \
    void Composite_S_8_##op(const UInt8 *src, UInt8 *dest) {                         \
        OpaqueChannels<kOpaque_##op>(src, dest, 0, 0);                               \
    }                                                                                \
    void Composite_RGB_888_##op(const UInt8 *src, UInt8 *dest) {                     \
        OpaqueChannels<kOpaque_##op>(src, dest, 1, 3);                               \
    }
#define PLIM_PORTER_DUFF(X)                                                          \
    X(Clear) X(CopySrc) X(CopyDest) X(SrcOver) X(DestOver) X(SrcIn) X(DestIn) X(SrcOut) \
    X(DestOut) X(SrcAtop) X(DestAtop) X(XOR)
#define PLIM_BLEND_MODES(X)                                                          \
    X(Plus) X(Multiply) X(Screen) X(Overlay) X(Darken) X(Lighten) X(ColorDodge)      \
    X(ColorBurn) X(HardLight) X(SoftLight) X(Difference) X(Exclusion)
#define PLIM_ARITHMETIC_PD(X)                                                        \
    X(SrcOver) X(DestOver) X(SrcIn) X(DestIn) X(SrcOut) X(DestOut) X(SrcAtop)        \
    X(DestAtop) X(XOR)
#define PLIM_ARGB_BLEND_MODES(X)                                                     \
    X(Multiply) X(Screen) X(Overlay) X(Darken) X(Lighten) X(ColorDodge) X(ColorBurn) \
    X(HardLight) X(SoftLight) X(Difference) X(Exclusion)

PLIM_PORTER_DUFF(PLIM_OPAQUE_PD)
#undef PLIM_OPAQUE_PD

// Opaque blend modes.
#define PLIM_OPAQUE_BLEND(op)                                                        \
    void Composite_S_8_##op(const UInt8 *src, UInt8 *dest) {                         \
        BlendS8<Opaque_##op>(src, dest);                                             \
    }                                                                                \
    void Composite_RGB_888_##op(const UInt8 *src, UInt8 *dest) {                     \
        BlendRGB888<Opaque_##op>(src, dest);                                         \
    }
PLIM_BLEND_MODES(PLIM_OPAQUE_BLEND)
#undef PLIM_OPAQUE_BLEND

// ARGB_8888.
void Composite_ARGB_8888_Clear(const UInt8 *, UInt8 *dest) {
    dest[0] = dest[1] = dest[2] = dest[3] = 0;
}
void Composite_ARGB_8888_CopySrc(const UInt8 *src, UInt8 *dest) {
    for (int i = 0; i < 4; ++i) dest[i] = src[i];
}
void Composite_ARGB_8888_CopyDest(const UInt8 *, UInt8 *) {}
void Composite_ARGB_8888_Plus(const UInt8 *src, UInt8 *dest) { PlusARGB(src, dest); }

#define PLIM_ARGB_PD(op)                                                             \
    void Composite_ARGB_8888_##op(const UInt8 *src, UInt8 *dest) {                   \
        PorterDuffARGB<PD_Colour_##op, PD_Alpha_##op>(src, dest);                    \
    }
PLIM_ARITHMETIC_PD(PLIM_ARGB_PD)
#undef PLIM_ARGB_PD

#define PLIM_ARGB_BLEND(op)                                                          \
    void Composite_ARGB_8888_##op(const UInt8 *src, UInt8 *dest) {                   \
        BlendARGB<ARGB_##op>(src, dest);                                             \
    }
PLIM_ARGB_BLEND_MODES(PLIM_ARGB_BLEND)
#undef PLIM_ARGB_BLEND

namespace plim::composite {

#define PLIM_ENTRY_S_8(op) Composite_S_8_##op,
#define PLIM_ENTRY_RGB_888(op) Composite_RGB_888_##op,
#define PLIM_ENTRY_ARGB_8888(op) Composite_ARGB_8888_##op,
const CompositeKernel kKernels_S_8[kOperationCount] = {PLIM_COMPOSITE_OPERATORS(PLIM_ENTRY_S_8)};
const CompositeKernel kKernels_RGB_888[kOperationCount] = {
    PLIM_COMPOSITE_OPERATORS(PLIM_ENTRY_RGB_888)};
const CompositeKernel kKernels_ARGB_8888[kOperationCount] = {
    PLIM_COMPOSITE_OPERATORS(PLIM_ENTRY_ARGB_8888)};
#undef PLIM_ENTRY_S_8
#undef PLIM_ENTRY_RGB_888
#undef PLIM_ENTRY_ARGB_8888

namespace {
#define PLIM_ROW_S_8(op) Row<Composite_S_8_##op, 1>,
#define PLIM_ROW_RGB_888(op) Row<Composite_RGB_888_##op, 4>,
#define PLIM_ROW_ARGB_8888(op) Row<Composite_ARGB_8888_##op, 4>,
const CompositeRow kRows[kLayoutCount][kOperationCount] = {
    {PLIM_COMPOSITE_OPERATORS(PLIM_ROW_S_8)},
    {PLIM_COMPOSITE_OPERATORS(PLIM_ROW_RGB_888)},
    {PLIM_COMPOSITE_OPERATORS(PLIM_ROW_ARGB_8888)},
};
#undef PLIM_ROW_S_8
#undef PLIM_ROW_RGB_888
#undef PLIM_ROW_ARGB_8888
}  // namespace

CompositeKernel KernelFor(Layout layout, UInt32 operation) {
    if (operation >= kOperationCount) return nullptr;
    switch (layout) {
        case kLayoutS_8: return kKernels_S_8[operation];
        case kLayoutRGB_888: return kKernels_RGB_888[operation];
        case kLayoutARGB_8888: return kKernels_ARGB_8888[operation];
        default: return nullptr;
    }
}

CompositeRow RowFor(Layout layout, UInt32 operation) {
    if (operation >= kOperationCount || layout < 0 || layout >= kLayoutCount) return nullptr;
    if (CompositeRow fast = SimdRowFor(layout, operation)) return fast;
    return kRows[layout][operation];
}

}  // namespace plim::composite
