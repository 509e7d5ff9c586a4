// The 72 per-pixel kernels: the formulas of Formulas-inl.h over plain float and double, with
// bytes normalised by division and results stored through lroundf. X-macros name every kernel
// and fill the tables. Order and precision of every operation are part of the result.
#include "composite/Kernels.h"

#include <hwy/highway.h>

#include "composite/Formulas-inl.h"

#include <cmath>

namespace {

namespace formulas = plim::composite::HWY_NAMESPACE;
using formulas::ArgbKind;
using formulas::ArgbPair;
using formulas::OpaqueBehaviour;

// The lanes of one pixel: plain floats and doubles, branches taken as written.
struct ScalarLanes {
    using F = float;
    using D = double;
    using B = int;
    static float Float(float c) { return c; }
    static double Wide(float v) { return static_cast<double>(v); }
    static float Narrow(double v) { return static_cast<float>(v); }
    static float Min(float a, float b) { return a < b ? a : b; }
    static float Max(float a, float b) { return a > b ? a : b; }
    template <class A, class Z>
    static auto If(bool taken, A a, Z b) {
        return taken ? a() : b();
    }
    static double SqrtOpaque(double x, int) { return pow(x, 0.5); }
    static double SqrtPremultiplied(double m, int, int) { return pow(m, 0.5); }
};

inline float Norm(UInt8 b) { return static_cast<float>(b) / 255.0f; }

inline UInt8 StoreClamped(float &v) {
    if (v < 0) v = 0;
    long n = lroundf(v * 255.0f);
    return n >= 256 ? static_cast<UInt8>(255) : static_cast<UInt8>(n);
}

template <class Op>
void ArgbKernel(const UInt8 *src, UInt8 *dest) {
    if constexpr (Op::kArgb == ArgbKind::kZero) {
        dest[0] = dest[1] = dest[2] = dest[3] = 0;
    } else if constexpr (Op::kArgb == ArgbKind::kSource) {
        for (int i = 0; i < 4; ++i) dest[i] = src[i];
    } else if constexpr (Op::kArgb == ArgbKind::kKeep) {
        (void)src, (void)dest;
    } else {
        ArgbPair<ScalarLanes> p;
        p.as = Norm(src[0]);
        p.ad = Norm(dest[0]);
        p.adByte = dest[0];
        for (int i = 0; i < 3; ++i) {
            p.s[i] = Norm(src[i + 1]);
            p.d[i] = Norm(dest[i + 1]);
            p.dByte[i] = dest[i + 1];
        }
        p.ias = 1.0f - p.as;
        p.iad = 1.0f - p.ad;
        float out[4];
        out[0] = Op::template Alpha<ScalarLanes>(p);
        for (int i = 0; i < 3; ++i)
            out[i + 1] = formulas::ArgbChannel<Op, ScalarLanes>(p.s[i], p.d[i], p, p.dByte[i]);
        if constexpr (Op::kArgb == ArgbKind::kWrapped) FloatARGBToIntARGB(out, dest);
        else FloatARGBToIntARGB_Clamp(out, dest);
    }
}

// The opaque layouts: colour bytes first..last of the pixel.
template <class Op, int first, int last>
void OpaqueKernel(const UInt8 *src, UInt8 *dest) {
    if constexpr (Op::kOpaque == OpaqueBehaviour::kBlend) {
        float r[3];
        for (int i = first; i <= last; ++i)
            r[i - first] = Op::template Opaque<ScalarLanes>(Norm(src[i]), Norm(dest[i]),
                                                            static_cast<int>(dest[i]));
        if constexpr (first == 0) dest[0] = StoreClamped(r[0]);
        else FloatRGBToIntXRGB_Clamp(r, dest);
    } else {
        for (int i = first; i <= last; ++i) {
            if constexpr (Op::kOpaque == OpaqueBehaviour::kWhite) dest[i] = 255;
            if constexpr (Op::kOpaque == OpaqueBehaviour::kSource) dest[i] = src[i];
        }
        (void)src, (void)dest;
    }
}

template <void (*Kernel)(const UInt8 *, UInt8 *), UInt32 kBytes>
void ReferenceRow(const UInt8 *src, UInt8 *dest, UInt32 count) {
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

#define PLIM_DEFINE_KERNELS(op)                                                            \
    void Composite_S_8_##op(const UInt8 *src, UInt8 *dest) {                               \
        OpaqueKernel<formulas::Op##op, 0, 0>(src, dest);                                   \
    }                                                                                      \
    void Composite_RGB_888_##op(const UInt8 *src, UInt8 *dest) {                           \
        OpaqueKernel<formulas::Op##op, 1, 3>(src, dest);                                   \
    }                                                                                      \
    void Composite_ARGB_8888_##op(const UInt8 *src, UInt8 *dest) {                         \
        ArgbKernel<formulas::Op##op>(src, dest);                                           \
    }
PLIM_COMPOSITE_OPERATORS(PLIM_DEFINE_KERNELS)
#undef PLIM_DEFINE_KERNELS

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
#define PLIM_ROW_S_8(op) ReferenceRow<Composite_S_8_##op, 1>,
#define PLIM_ROW_RGB_888(op) ReferenceRow<Composite_RGB_888_##op, 4>,
#define PLIM_ROW_ARGB_8888(op) ReferenceRow<Composite_ARGB_8888_##op, 4>,
const RowTable kReferenceRows = {{
    {PLIM_COMPOSITE_OPERATORS(PLIM_ROW_S_8)},
    {PLIM_COMPOSITE_OPERATORS(PLIM_ROW_RGB_888)},
    {PLIM_COMPOSITE_OPERATORS(PLIM_ROW_ARGB_8888)},
}};
#undef PLIM_ROW_S_8
#undef PLIM_ROW_RGB_888
#undef PLIM_ROW_ARGB_8888

bool Valid(Layout layout, UInt32 operation) {
    return operation < kOperationCount && layout >= 0 && layout < kLayoutCount;
}
}  // namespace

CompositeKernel KernelFor(Layout layout, UInt32 operation) {
    if (!Valid(layout, operation)) return nullptr;
    switch (layout) {
        case kLayoutS_8: return kKernels_S_8[operation];
        case kLayoutRGB_888: return kKernels_RGB_888[operation];
        default: return kKernels_ARGB_8888[operation];
    }
}

CompositeRow ReferenceRowFor(Layout layout, UInt32 operation) {
    return Valid(layout, operation) ? kReferenceRows[layout][operation] : nullptr;
}

CompositeRow RowFor(Layout layout, UInt32 operation) {
    return Valid(layout, operation) ? VectorRows()[layout][operation] : nullptr;
}

const double *OpaqueSqrtTable() {
    static const auto table = [] {
        std::array<double, 256> t{};
        for (int b = 0; b < 256; ++b)
            t[b] = ScalarLanes::SqrtOpaque(static_cast<double>(Norm(static_cast<UInt8>(b))), b);
        return t;
    }();
    return table.data();
}

const double *PremultipliedSqrtTable() {
    // The same ratio the premultiplied soft-light kernel forms, guard included.
    static const std::vector<double> table = [] {
        std::vector<double> t(65536);
        for (int a = 0; a < 256; ++a)
            for (int c = 0; c < 256; ++c) {
                const float alpha = Norm(static_cast<UInt8>(a));
                const float m = alpha == 0.0f ? 0.0f : Norm(static_cast<UInt8>(c)) / alpha;
                t[a * 256 + c] = ScalarLanes::SqrtPremultiplied(static_cast<double>(m), c, a);
            }
        return t;
    }();
    return table.data();
}

}  // namespace plim::composite
