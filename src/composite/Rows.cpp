// Row functions: the formulas of Formulas-inl.h over vectors, compiled once per instruction set
// and chosen at run time. Each row gives exactly the bytes of its per-pixel kernel: the vector
// lanes do the kernel's operations in its order and precision, bytes become floats by an exact
// division-free form, and results become bytes exactly as lroundf and the stores do.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "composite/Rows.cpp"
#include <hwy/foreach_target.h>  // IWYU pragma: keep

#include <hwy/highway.h>

#include "composite/Formulas-inl.h"
#include "composite/Kernels.h"

#include <cstring>
#include <type_traits>

HWY_BEFORE_NAMESPACE();
namespace plim::composite::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// ---------------------------------------------------------------- double lanes

// The double-precision image of a float vector: its lower and upper halves, widened.
template <class DD>
struct DPair {
    hn::Vec<DD> lo, hi;
};
template <class DD>
struct MPair {
    hn::Mask<DD> lo, hi;
};

#define PLIM_DPAIR_ARITHMETIC(op)                                                          \
    template <class DD>                                                                    \
    HWY_INLINE DPair<DD> operator op(DPair<DD> a, DPair<DD> b) {                           \
        return {a.lo op b.lo, a.hi op b.hi};                                               \
    }                                                                                      \
    template <class DD>                                                                    \
    HWY_INLINE DPair<DD> operator op(DPair<DD> a, double b) {                              \
        const auto k = hn::Set(DD(), b);                                                   \
        return {a.lo op k, a.hi op k};                                                     \
    }                                                                                      \
    template <class DD>                                                                    \
    HWY_INLINE DPair<DD> operator op(double a, DPair<DD> b) {                              \
        const auto k = hn::Set(DD(), a);                                                   \
        return {k op b.lo, k op b.hi};                                                     \
    }
PLIM_DPAIR_ARITHMETIC(+)
PLIM_DPAIR_ARITHMETIC(-)
PLIM_DPAIR_ARITHMETIC(*)
PLIM_DPAIR_ARITHMETIC(/)
#undef PLIM_DPAIR_ARITHMETIC

#define PLIM_DPAIR_COMPARISON(op)                                                          \
    template <class DD>                                                                    \
    HWY_INLINE MPair<DD> operator op(DPair<DD> a, DPair<DD> b) {                           \
        return {a.lo op b.lo, a.hi op b.hi};                                               \
    }                                                                                      \
    template <class DD>                                                                    \
    HWY_INLINE MPair<DD> operator op(double a, DPair<DD> b) {                              \
        const auto k = hn::Set(DD(), a);                                                   \
        return {k op b.lo, k op b.hi};                                                     \
    }
PLIM_DPAIR_COMPARISON(>)
PLIM_DPAIR_COMPARISON(>=)
#undef PLIM_DPAIR_COMPARISON

// ---------------------------------------------------------------- the lane policy

template <class DF>
struct VecLanes {
    using DI = hn::RebindToSigned<DF>;
#if HWY_TARGET == HWY_SCALAR
    // One lane: its double is one lane too, kept in `lo` (and `hi` as a copy).
    using DD = hn::Rebind<double, DF>;
#else
    using DH = hn::Half<DF>;
    using DD = hn::Repartition<double, DF>;
#endif
    using DI64 = hn::RebindToSigned<DD>;
    using F = hn::Vec<DF>;
    using D = DPair<DD>;
    using B = hn::Vec<DI>;

    static HWY_INLINE F Float(float c) { return hn::Set(DF(), c); }
#if HWY_TARGET == HWY_SCALAR
    static HWY_INLINE D Wide(F v) {
        const auto w = hn::PromoteTo(DD(), v);
        return {w, w};
    }
    static HWY_INLINE F Narrow(D v) { return hn::DemoteTo(DF(), v.lo); }
    static HWY_INLINE D Gather(const double *table, B index) {
        const auto g = hn::GatherIndex(DD(), table, hn::PromoteTo(DI64(), index));
        return {g, g};
    }
#else
    static HWY_INLINE D Wide(F v) {
        return {hn::PromoteTo(DD(), hn::LowerHalf(DH(), v)),
                hn::PromoteTo(DD(), hn::UpperHalf(DH(), v))};
    }
    static HWY_INLINE F Narrow(D v) {
        return hn::Combine(DF(), hn::DemoteTo(DH(), v.hi), hn::DemoteTo(DH(), v.lo));
    }
    static HWY_INLINE D Gather(const double *table, B index) {
        const hn::Half<DI> dh;
        return {hn::GatherIndex(DD(), table, hn::PromoteTo(DI64(), hn::LowerHalf(dh, index))),
                hn::GatherIndex(DD(), table, hn::PromoteTo(DI64(), hn::UpperHalf(dh, index)))};
    }
#endif
    static HWY_INLINE F Min(F a, F b) { return hn::Min(a, b); }
    static HWY_INLINE F Max(F a, F b) { return hn::Max(a, b); }
    template <class A, class Z>
    static HWY_INLINE F If(hn::Mask<DF> m, A a, Z b) {
        return hn::IfThenElse(m, a(), b());
    }
    template <class A, class Z>
    static HWY_INLINE D If(MPair<DD> m, A a, Z b) {
        const D x = a(), y = b();
        return {hn::IfThenElse(m.lo, x.lo, y.lo), hn::IfThenElse(m.hi, x.hi, y.hi)};
    }
    static HWY_INLINE D SqrtOpaque(D, B byte) { return Gather(OpaqueSqrtTable(), byte); }
    static HWY_INLINE D SqrtPremultiplied(D, B colour, B alpha) {
        return Gather(PremultipliedSqrtTable(), hn::ShiftLeft<8>(alpha) + colour);
    }
};

// ---------------------------------------------------------------- bytes in and out

// b / 255.0f, exactly: b / 256 is exact and the rounded b / 65280 added to it gives the
// correctly rounded quotient for every byte (checked over all 256 in the tests). As b / 256 is
// exact, a fused multiply-add rounds the sum just as the separate add does.
template <class DF, class VI>
HWY_INLINE hn::Vec<DF> Normalise(DF df, VI bytes) {
    const auto f = hn::ConvertTo(df, bytes);
    return hn::MulAdd(f, hn::Set(df, 1.0f / 256.0f), f * hn::Set(df, 1.0f / 65280.0f));
}

// lroundf(x) for 0 <= x < 2^22 is trunc(x + kJustBelowHalf) (checked over every float of the
// range that matters in the tests), and 2^23 added to that whole number keeps it in the low
// mantissa bits: the byte the stores want is the low 8 bits of the result, with no conversion.
constexpr float kJustBelowHalf = 0.5f - 1.0f / 33554432.0f;  // 0.5 - 2^-25
template <class DF>
HWY_INLINE hn::Vec<hn::RebindToUnsigned<DF>> RoundedBits(DF df, hn::Vec<DF> x) {
    const auto whole = hn::Trunc(x + hn::Set(df, kJustBelowHalf));
    return hn::BitCast(hn::RebindToUnsigned<DF>(), whole + hn::Set(df, 8388608.0f));
}

// The low 8 bits of lroundf(v * 255.0f). Only the Porter-Duff formulas store this way, and for
// any input bytes their values lie in [-1e-6, 2]: products in RoundedBits' range, or a hair
// below 0, which rounds to 0 both ways.
template <class DF>
HWY_INLINE hn::Vec<hn::RebindToUnsigned<DF>> WrappedByte(DF df, hn::Vec<DF> v) {
    const hn::RebindToUnsigned<DF> du;
    return hn::And(RoundedBits(df, v * hn::Set(df, 255.0f)), hn::Set(du, 0xFFu));
}

// The clamping store: negatives (and NaN) to 0, a rounded 256 or more to 255 (so anything from
// 255 up stores 255); lroundf's answer for infinities and products past 2^63 is negative, which
// the store keeps as byte 0.
template <class DF>
HWY_INLINE hn::Vec<hn::RebindToUnsigned<DF>> ClampedByte(DF df, hn::Vec<DF> v) {
    const hn::RebindToUnsigned<DF> du;
    const auto p = hn::Max(v, hn::Zero(df)) * hn::Set(df, 255.0f);
    const auto huge = hn::RebindMask(du, p >= hn::Set(df, 9223372036854775808.0f));
    const auto bits = hn::And(RoundedBits(df, hn::Min(p, hn::Set(df, 255.0f))), hn::Set(du, 0xFFu));
    return hn::IfThenZeroElse(huge, bits);
}

// Byte `shift / 8` of every 4-byte pixel, as integer lanes.
template <class VU>
HWY_INLINE auto Channel(VU w, int shift) {
    const hn::DFromV<VU> du;
    return hn::BitCast(hn::RebindToSigned<decltype(du)>(),
                       hn::And(hn::ShiftRightSame(w, shift), hn::Set(du, 0xFFu)));
}

// ---------------------------------------------------------------- one vector of pixels

using Full = hn::ScalableTag<float>;

template <class Op>
HWY_INLINE void ArgbVector(const UInt8 *src, UInt8 *dest) {
    using L = VecLanes<Full>;
    const Full df;
    const hn::RebindToUnsigned<Full> du;
    const auto ws = hn::LoadU(du, reinterpret_cast<const uint32_t *>(src));
    const auto wd = hn::LoadU(du, reinterpret_cast<const uint32_t *>(dest));
    ArgbPair<L> p;
    p.as = Normalise(df, Channel(ws, 0));
    p.adByte = Channel(wd, 0);
    p.ad = Normalise(df, p.adByte);
    for (int c = 0; c < 3; ++c) {
        p.s[c] = Normalise(df, Channel(ws, 8 * (c + 1)));
        p.dByte[c] = Channel(wd, 8 * (c + 1));
        p.d[c] = Normalise(df, p.dByte[c]);
    }
    const auto one = hn::Set(df, 1.0f);
    p.ias = one - p.as;
    p.iad = one - p.ad;
    hn::Vec<Full> out[4];
    out[0] = Op::template Alpha<L>(p);
    for (int c = 0; c < 3; ++c) out[c + 1] = ArgbChannel<Op, L>(p.s[c], p.d[c], p, p.dByte[c]);
    auto store = [&](hn::Vec<Full> v) {
        if constexpr (Op::kArgb == ArgbKind::kWrapped) return WrappedByte(df, v);
        else return ClampedByte(df, v);
    };
    auto w = store(out[0]);
    for (int c = 1; c < 4; ++c) w = hn::Or(w, hn::ShiftLeftSame(store(out[c]), 8 * c));
    hn::StoreU(w, du, reinterpret_cast<uint32_t *>(dest));
}

template <class Op>
HWY_INLINE void Rgb888Vector(const UInt8 *src, UInt8 *dest) {
    using L = VecLanes<Full>;
    const Full df;
    const hn::RebindToUnsigned<Full> du;
    const auto ws = hn::LoadU(du, reinterpret_cast<const uint32_t *>(src));
    const auto wd = hn::LoadU(du, reinterpret_cast<const uint32_t *>(dest));
    auto w = hn::And(wd, hn::Set(du, 0xFFu));
    for (int c = 1; c < 4; ++c) {
        const auto dByte = Channel(wd, 8 * c);
        const auto r = OpaqueRow<Op, L>(Normalise(df, Channel(ws, 8 * c)),
                                        Normalise(df, dByte), dByte);
        w = hn::Or(w, hn::ShiftLeftSame(ClampedByte(df, r), 8 * c));
    }
    hn::StoreU(w, du, reinterpret_cast<uint32_t *>(dest));
}

template <class Op>
HWY_INLINE void S8Vector(const UInt8 *src, UInt8 *dest) {
    using L = VecLanes<Full>;
    const Full df;
    const hn::RebindToSigned<Full> di;
    const hn::Rebind<uint8_t, Full> d8;
    const auto sByte = hn::PromoteTo(di, hn::LoadU(d8, src));
    const auto dByte = hn::PromoteTo(di, hn::LoadU(d8, dest));
    const auto r = OpaqueRow<Op, L>(Normalise(df, sByte), Normalise(df, dByte), dByte);
    hn::StoreU(hn::DemoteTo(d8, hn::BitCast(di, ClampedByte(df, r))), d8, dest);
}

// Runs `vector` over whole vectors of pixels, and over the last few through a full-size scratch
// vector, so that every pixel of the row goes through the same lanes.
template <UInt32 kBytes, class Vector>
HWY_INLINE void RunRow(const UInt8 *src, UInt8 *dest, UInt32 count, Vector vector) {
    const size_t lanes = hn::Lanes(Full());
    const size_t step = lanes * kBytes;
    UInt32 i = 0;
    for (; i + lanes <= count; i += static_cast<UInt32>(lanes), src += step, dest += step)
        vector(src, dest);
    if (i < count) {
        HWY_ALIGN UInt8 s[HWY_MAX_BYTES] = {}, d[HWY_MAX_BYTES] = {};
        const size_t rest = static_cast<size_t>(count - i) * kBytes;
        std::memcpy(s, src, rest);
        std::memcpy(d, dest, rest);
        vector(s, d);
        std::memcpy(dest, d, rest);
    }
}

// ---------------------------------------------------------------- byte-level rows

// Byte lanes of a whole row; `keepFirst` leaves byte 0 of each 4-byte pixel as it was.
template <class Bytes>
HWY_INLINE void ByteRow(const UInt8 *src, UInt8 *dest, size_t n, bool keepFirst, Bytes bytes) {
    const hn::ScalableTag<uint8_t> d8;
#if HWY_TARGET == HWY_SCALAR
    // One byte a lane: a pixel's bytes fall in different vectors.
    for (size_t i = 0; i < n; ++i) {
        if (keepFirst && i % 4 == 0) continue;
        hn::StoreU(bytes(hn::LoadU(d8, src + i), hn::LoadU(d8, dest + i)), d8, dest + i);
    }
#else
    const hn::Repartition<uint32_t, decltype(d8)> d32;
    const auto keep = hn::MaskFromVec(hn::BitCast(d8, hn::Set(d32, keepFirst ? 0xFFu : 0u)));
    const size_t lanes = hn::Lanes(d8);
    size_t i = 0;
    for (; i + lanes <= n; i += lanes) {
        const auto s = hn::LoadU(d8, src + i), d = hn::LoadU(d8, dest + i);
        hn::StoreU(hn::IfThenElse(keep, d, bytes(s, d)), d8, dest + i);
    }
    if (i < n) {
        HWY_ALIGN UInt8 s[HWY_MAX_BYTES] = {}, d[HWY_MAX_BYTES] = {};
        std::memcpy(s, src + i, n - i);
        std::memcpy(d, dest + i, n - i);
        const auto r = bytes(hn::Load(d8, s), hn::Load(d8, d));
        hn::Store(hn::IfThenElse(keep, hn::Load(d8, d), r), d8, d);
        std::memcpy(dest + i, d, n - i);
    }
#endif
}

template <Shortcut kKind, class V>
HWY_INLINE V ApplyShortcut(V s, V d) {
    if constexpr (kKind == Shortcut::kSaturatedAdd) return hn::SaturatedAdd(s, d);
    else if constexpr (kKind == Shortcut::kMin) return hn::Min(s, d);
    else return hn::Max(s, d);
}

// ---------------------------------------------------------------- rows by layout

template <class Op>
void ArgbRow(const UInt8 *src, UInt8 *dest, UInt32 count) {
    const size_t bytes = static_cast<size_t>(count) * 4;
    if constexpr (Op::kArgb == ArgbKind::kZero) {
        std::memset(dest, 0, bytes);
    } else if constexpr (Op::kArgb == ArgbKind::kSource) {
        std::memcpy(dest, src, bytes);
    } else if constexpr (Op::kArgb == ArgbKind::kKeep) {
        (void)src, (void)dest, (void)bytes;
    } else if constexpr (Op::kArgbShortcut != Shortcut::kNone) {
        ByteRow(src, dest, bytes, false,
                [](auto s, auto d) { return ApplyShortcut<Op::kArgbShortcut>(s, d); });
    } else {
        RunRow<4>(src, dest, count, ArgbVector<Op>);
    }
}

// The opaque layouts: grey (one byte a pixel) and XRGB (four, byte 0 never touched).
template <class Op, UInt32 kBytes>
void OpaqueLayoutRow(const UInt8 *src, UInt8 *dest, UInt32 count) {
    const size_t bytes = static_cast<size_t>(count) * kBytes;
    constexpr bool kXrgb = kBytes == 4;
    if constexpr (Op::kOpaque == OpaqueBehaviour::kKeep) {
        (void)src, (void)dest, (void)bytes;
    } else if constexpr (Op::kOpaque == OpaqueBehaviour::kWhite && !kXrgb) {
        std::memset(dest, 255, bytes);
    } else if constexpr (Op::kOpaque == OpaqueBehaviour::kSource && !kXrgb) {
        std::memcpy(dest, src, bytes);
    } else if constexpr (Op::kOpaque == OpaqueBehaviour::kWhite) {
        ByteRow(src, dest, bytes, true,
                [](auto s, auto) { return hn::Set(hn::DFromV<decltype(s)>(), 0xFF); });
    } else if constexpr (Op::kOpaque == OpaqueBehaviour::kSource) {
        ByteRow(src, dest, bytes, true, [](auto s, auto) { return s; });
    } else if constexpr (Op::kOpaqueShortcut != Shortcut::kNone) {
        ByteRow(src, dest, bytes, kXrgb,
                [](auto s, auto d) { return ApplyShortcut<Op::kOpaqueShortcut>(s, d); });
    } else if constexpr (kXrgb) {
        RunRow<4>(src, dest, count, Rgb888Vector<Op>);
    } else {
        RunRow<1>(src, dest, count, S8Vector<Op>);
    }
}

const RowTable *TargetRows() {
#define PLIM_ROW_S_8(op) OpaqueLayoutRow<Op##op, 1>,
#define PLIM_ROW_RGB_888(op) OpaqueLayoutRow<Op##op, 4>,
#define PLIM_ROW_ARGB_8888(op) ArgbRow<Op##op>,
    static const RowTable table = {{
        {PLIM_COMPOSITE_OPERATORS(PLIM_ROW_S_8)},
        {PLIM_COMPOSITE_OPERATORS(PLIM_ROW_RGB_888)},
        {PLIM_COMPOSITE_OPERATORS(PLIM_ROW_ARGB_8888)},
    }};
#undef PLIM_ROW_S_8
#undef PLIM_ROW_RGB_888
#undef PLIM_ROW_ARGB_8888
    return &table;
}

}  // namespace plim::composite::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace plim::composite {

HWY_EXPORT(TargetRows);

const RowTable &VectorRows() { return *HWY_DYNAMIC_DISPATCH(TargetRows)(); }

std::vector<RowTarget> RowTargets() {
    std::vector<RowTarget> targets;
    for (int64_t target : hwy::SupportedAndGeneratedTargets())
        targets.push_back({target, hwy::TargetName(target)});
    return targets;
}

void UseRowTarget(int64_t target) { hwy::SetSupportedTargetsForTest(target); }

}  // namespace plim::composite
#endif
