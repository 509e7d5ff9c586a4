// The 24 operators' formulas, each written once over a lane policy L, so that the per-pixel
// kernels (L = plain float and double) and the vector rows (L = vectors of each instruction set)
// compute the same operations in the same order and precision.
//
// A lane policy provides:
//   F, D           float lanes and double lanes (the same number of lanes)
//   B              integer lanes holding the input bytes (for the square-root tables)
//   Wide(F) -> D, Narrow(D) -> F   exact widening, rounding narrowing
//   Float(c)       a float constant in every lane
//   Min(a, b), Max(a, b)           a < b ? a : b and a > b ? a : b, lane by lane
//   If(mask, a(), b())             a() where mask holds, else b(); the scalar policy calls only
//                                  the branch it takes
//   SqrtOpaque(D x, B xByte), SqrtPremultiplied(D m, B colourByte, B alphaByte)
//                                  pow(x, 0.5) of the value the bytes were turned into
// D supports + - * / and comparisons with double constants on either side.
//
// Included once per instruction set (the vector rows) and once for the kernels.
#if defined(PLIM_COMPOSITE_FORMULAS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef PLIM_COMPOSITE_FORMULAS_INL_H_
#undef PLIM_COMPOSITE_FORMULAS_INL_H_
#else
#define PLIM_COMPOSITE_FORMULAS_INL_H_
#endif

#include <hwy/highway.h>

#include <type_traits>

HWY_BEFORE_NAMESPACE();
namespace plim::composite::HWY_NAMESPACE {

// One premultiplied ARGB pixel pair, normalised: alphas, their complements, the colours.
template <class L>
struct ArgbPair {
    typename L::F as, ad, ias, iad;
    typename L::F s[3], d[3];
    typename L::B adByte, dByte[3];
};

// What the twelve Porter-Duff operators do in the opaque layouts.
enum class OpaqueBehaviour { kWhite, kSource, kKeep, kBlend };
// What a premultiplied kernel stores: the bytes it computes, or a byte-level rule.
enum class ArgbKind { kWrapped, kClamped, kZero, kSource, kKeep };
// Byte-level forms proven equal to an operator's formula over every input (see the tests).
enum class Shortcut { kNone, kSaturatedAdd, kMin, kMax };

template <class L>
HWY_INLINE typename L::F UnionAlpha(const ArgbPair<L> &p) {
    return (p.as + p.ad) - p.as * p.ad;
}

// ---------------------------------------------------------------- Porter-Duff operators

struct PorterDuffBytes {
    static constexpr Shortcut kArgbShortcut = Shortcut::kNone;
    static constexpr Shortcut kOpaqueShortcut = Shortcut::kNone;
};

struct OpClear : PorterDuffBytes {
    static constexpr ArgbKind kArgb = ArgbKind::kZero;
    static constexpr OpaqueBehaviour kOpaque = OpaqueBehaviour::kWhite;
};
struct OpCopySrc : PorterDuffBytes {
    static constexpr ArgbKind kArgb = ArgbKind::kSource;
    static constexpr OpaqueBehaviour kOpaque = OpaqueBehaviour::kSource;
};
struct OpCopyDest : PorterDuffBytes {
    static constexpr ArgbKind kArgb = ArgbKind::kKeep;
    static constexpr OpaqueBehaviour kOpaque = OpaqueBehaviour::kKeep;
};

#define PLIM_PORTER_DUFF_OP(name, opaque, alpha, colour)                                   \
    struct Op##name : PorterDuffBytes {                                                    \
        static constexpr ArgbKind kArgb = ArgbKind::kWrapped;                              \
        static constexpr OpaqueBehaviour kOpaque = OpaqueBehaviour::opaque;                \
        template <class L>                                                                 \
        static HWY_INLINE typename L::F Alpha(const ArgbPair<L> &p) {                      \
            return alpha;                                                                  \
        }                                                                                  \
        template <class L, class F>                                                        \
        static HWY_INLINE F Colour(F Cs, F Cd, const ArgbPair<L> &p) {                     \
            return colour;                                                                 \
        }                                                                                  \
    };

PLIM_PORTER_DUFF_OP(SrcOver, kSource, (p.as + p.ad) - p.as * p.ad, Cs + p.ias * Cd)
PLIM_PORTER_DUFF_OP(DestOver, kKeep, (p.as + p.ad) - p.as * p.ad, Cs * p.iad + Cd)
PLIM_PORTER_DUFF_OP(SrcIn, kSource, p.as * p.ad, ((void)Cd, Cs * p.ad))
PLIM_PORTER_DUFF_OP(DestIn, kKeep, p.as * p.ad, ((void)Cs, p.as * Cd))
PLIM_PORTER_DUFF_OP(SrcOut, kWhite, p.as - p.as * p.ad, ((void)Cd, Cs * p.iad))
PLIM_PORTER_DUFF_OP(DestOut, kWhite, p.ad - p.as * p.ad, ((void)Cs, p.ias * Cd))
PLIM_PORTER_DUFF_OP(SrcAtop, kSource, p.ad, Cs * p.ad + p.ias * Cd)
PLIM_PORTER_DUFF_OP(DestAtop, kKeep, p.as, p.as * Cd + Cs * p.iad)
// The sum of the alphas in single, widened; the product term in double.
PLIM_PORTER_DUFF_OP(XOR, kWhite,
                    L::Narrow(L::Wide(p.as + p.ad) + (L::Wide(p.as) * -2.0) * L::Wide(p.ad)),
                    p.ias * Cd + Cs * p.iad)
#undef PLIM_PORTER_DUFF_OP

// ---------------------------------------------------------------- blend modes

struct BlendMode {
    static constexpr ArgbKind kArgb = ArgbKind::kClamped;
    static constexpr OpaqueBehaviour kOpaque = OpaqueBehaviour::kBlend;
    static constexpr Shortcut kArgbShortcut = Shortcut::kNone;
    static constexpr Shortcut kOpaqueShortcut = Shortcut::kNone;
    template <class L>
    static HWY_INLINE typename L::F Alpha(const ArgbPair<L> &p) {
        return UnionAlpha(p);
    }
};

// (B + Sc × (1 − αd)) + Dc × (1 − αs): the cover products in single, the sums in double.
template <class L, class F, class D>
HWY_INLINE F Cover(D B, F Sc, F Dc, const ArgbPair<L> &p) {
    const F sCover = Sc * p.iad;
    const F dCover = Dc * p.ias;
    return L::Narrow((B + L::Wide(sCover)) + L::Wide(dCover));
}

// The second formula Overlay and HardLight share, in both layouts' forms.
template <class L, class F>
HWY_INLINE typename L::D HardMix(F Sc, F Dc, const ArgbPair<L> &p) {
    const F asad = p.as * p.ad;
    const F adDc = p.ad - Dc;
    const F asSc = p.as - Sc;
    return L::Wide(asad) + (L::Wide(adDc) * -2.0) * L::Wide(asSc);
}
template <class D>
HWY_INLINE D OpaqueHardMix(D S, D Dd) {
    return ((1.0 - Dd) * -2.0) * (1.0 - S) + 1.0;
}

struct OpPlus : BlendMode {
    static constexpr Shortcut kArgbShortcut = Shortcut::kSaturatedAdd;
    static constexpr Shortcut kOpaqueShortcut = Shortcut::kSaturatedAdd;
    template <class L>
    static HWY_INLINE typename L::F Alpha(const ArgbPair<L> &p) {
        return p.as + p.ad;
    }
    template <class L, class F>
    static HWY_INLINE F Colour(F Sc, F Dc, const ArgbPair<L> &) {
        return Sc + Dc;
    }
    template <class L, class F, class B>
    static HWY_INLINE F Opaque(F s, F d, B) {
        return s + d;
    }
};

struct OpMultiply : BlendMode {
    template <class L, class F>
    static HWY_INLINE F Colour(F Sc, F Dc, const ArgbPair<L> &p) {
        return Sc * p.iad + (p.ias * Dc + Dc * Sc);
    }
    template <class L, class F, class B>
    static HWY_INLINE F Opaque(F s, F d, B) {
        return s * d;
    }
};

struct OpScreen : BlendMode {
    template <class L, class F>
    static HWY_INLINE F Colour(F Sc, F Dc, const ArgbPair<L> &) {
        return (Sc + Dc) - Sc * Dc;
    }
    template <class L, class F, class B>
    static HWY_INLINE F Opaque(F s, F d, B) {
        return (s + d) - s * d;
    }
};

struct OpOverlay : BlendMode {
    template <class L, class F>
    static HWY_INLINE F Colour(F Sc, F Dc, const ArgbPair<L> &p) {
        const auto S = L::Wide(Sc), Dd = L::Wide(Dc);
        const auto B = L::If(L::Wide(p.ad) > Dd + Dd, [&] { return Dd * (S + S); },
                             [&] { return HardMix(Sc, Dc, p); });
        return Cover(B, Sc, Dc, p);
    }
    template <class L, class F, class B>
    static HWY_INLINE F Opaque(F s, F d, B) {
        const auto S = L::Wide(s), Dd = L::Wide(d);
        return L::Narrow(L::If(1.0 > Dd + Dd, [&] { return Dd * (S + S); },
                               [&] { return OpaqueHardMix(S, Dd); }));
    }
};

struct OpDarken : BlendMode {
    static constexpr Shortcut kOpaqueShortcut = Shortcut::kMin;
    template <class L, class F>
    static HWY_INLINE F Colour(F Sc, F Dc, const ArgbPair<L> &p) {
        return L::Min(Sc * p.ad, Dc * p.as) + (Sc * p.iad + p.ias * Dc);
    }
    template <class L, class F, class B>
    static HWY_INLINE F Opaque(F s, F d, B) {
        return L::Min(s, d);
    }
};

struct OpLighten : BlendMode {
    static constexpr Shortcut kOpaqueShortcut = Shortcut::kMax;
    template <class L, class F>
    static HWY_INLINE F Colour(F Sc, F Dc, const ArgbPair<L> &p) {
        return (L::Max(p.ad * Sc, p.as * Dc) + Sc * p.iad) + Dc * p.ias;
    }
    template <class L, class F, class B>
    static HWY_INLINE F Opaque(F s, F d, B) {
        return L::Max(s, d);
    }
};

struct OpColorDodge : BlendMode {
    template <class L, class F>
    static HWY_INLINE F Colour(F Sc, F Dc, const ArgbPair<L> &p) {
        return L::If(
            Sc * p.ad + p.as * Dc >= p.as * p.ad,
            [&] { return (Sc * p.iad + p.as * p.ad) + Dc * p.ias; },
            [&] {
                const F asDc = p.as * Dc;
                const F ratio = Sc / p.as;
                return Cover(L::Wide(asDc) / (1.0 - L::Wide(ratio)), Sc, Dc, p);
            });
    }
    template <class L, class F, class B>
    static HWY_INLINE F Opaque(F s, F d, B) {
        return L::If(s + d >= L::Float(1.0f), [&] { return L::Float(1.0f); },
                     [&] { return L::Narrow(L::Wide(d) / (1.0 - L::Wide(s))); });
    }
};

struct OpColorBurn : BlendMode {
    template <class L, class F>
    static HWY_INLINE F Colour(F Sc, F Dc, const ArgbPair<L> &p) {
        const F t = Sc * p.ad + p.as * Dc;
        const F u = p.as * p.ad;
        return L::If(u >= t, [&] { return Sc * p.iad + Dc * p.ias; },
                     [&] { return (((t - u) * p.as) / Sc + Sc * p.iad) + Dc * p.ias; });
    }
    template <class L, class F, class B>
    static HWY_INLINE F Opaque(F s, F d, B) {
        const F t = d + s;
        return L::If(t > L::Float(1.0f),
                     [&] { return L::Narrow((L::Wide(t) - 1.0) / L::Wide(s)); },
                     [&] { return L::Float(0.0f); });
    }
    // The same in single precision, for the vector rows: t - 1 is exact for 1 < t <= 2, and a
    // quotient of two floats formed in double and rounded to single is the correctly rounded
    // single quotient, so the bytes agree for every input (the tests check all 65,536 pairs).
    template <class L, class F, class B>
    static HWY_INLINE F OpaqueSingle(F s, F d, B) {
        const F t = d + s;
        return L::If(t > L::Float(1.0f), [&] { return (t - L::Float(1.0f)) / s; },
                     [&] { return L::Float(0.0f); });
    }
};

struct OpHardLight : BlendMode {
    template <class L, class F>
    static HWY_INLINE F Colour(F Sc, F Dc, const ArgbPair<L> &p) {
        const auto S = L::Wide(Sc), Dd = L::Wide(Dc);
        const auto B = L::If(L::Wide(p.as) > S + S, [&] { return (S + S) * Dd; },
                             [&] { return HardMix(Sc, Dc, p); });
        return Cover(B, Sc, Dc, p);
    }
    template <class L, class F, class B>
    static HWY_INLINE F Opaque(F s, F d, B) {
        const auto S = L::Wide(s), Dd = L::Wide(d);
        return L::Narrow(L::If(1.0 > S + S, [&] { return (S + S) * Dd; },
                               [&] { return OpaqueHardMix(S, Dd); }));
    }
};

struct OpSoftLight : BlendMode {
    // Needs the colour byte and alpha byte of the destination for its square-root table.
    template <class L, class F>
    static HWY_INLINE F Colour(F Sc, F Dc, const ArgbPair<L> &p, typename L::B dcByte) {
        const F mf = L::If(p.ad == L::Float(0.0f), [&] { return L::Float(0.0f); },
                           [&] { return Dc / p.ad; });
        const auto m = L::Wide(mf);
        const auto as = L::Wide(p.as), ad = L::Wide(p.ad), Dd = L::Wide(Dc);
        const auto twoS = L::Wide(Sc) + L::Wide(Sc);
        const auto B = L::If(
            as > twoS, [&] { return Dd * (as - (1.0 - m) * (twoS - as)); },
            [&] {
                return L::If(
                    ad >= Dd * 8.0,
                    [&] { return Dd * (as - (1.0 - m) * (twoS - as) * (m * -8.0 + 3.0)); },
                    [&] {
                        const F asDc = p.as * Dc;
                        return L::Wide(asDc) +
                               (ad * L::SqrtPremultiplied(m, dcByte, p.adByte) - Dd) *
                                   (twoS - as);
                    });
            });
        return Cover(B, Sc, Dc, p);
    }
    template <class L, class F, class B>
    static HWY_INLINE F Opaque(F s, F d, B dByte) {
        const auto S = L::Wide(s), Dd = L::Wide(d);
        const auto m = S + S;
        return L::Narrow(L::If(
            1.0 > m, [&] { return Dd * (1.0 - (1.0 - Dd) * (m - 1.0)); },
            [&] {
                return L::If(
                    1.0 >= Dd * 8.0,
                    [&] { return Dd * (1.0 - (1.0 - Dd) * (m - 1.0) * (Dd * -8.0 + 3.0)); },
                    [&] { return Dd + (m - 1.0) * (L::SqrtOpaque(Dd, dByte) - Dd); });
            }));
    }
};

struct OpDifference : BlendMode {
    template <class L, class F>
    static HWY_INLINE F Colour(F Sc, F Dc, const ArgbPair<L> &p) {
        const F sum = Sc + Dc;
        const F smaller = L::Min(Sc * p.ad, Dc * p.as);
        return L::Narrow(L::Wide(sum) + L::Wide(smaller) * -2.0);
    }
    template <class L, class F, class B>
    static HWY_INLINE F Opaque(F s, F d, B) {
        const F sum = s + d;
        const F smaller = L::Min(s, d);
        return L::Narrow(L::Wide(sum) + L::Wide(smaller) * -2.0);
    }
};

struct OpExclusion : BlendMode {
    template <class L, class F>
    static HWY_INLINE F Colour(F Sc, F Dc, const ArgbPair<L> &p) {
        const F cross = p.ad * Sc + p.as * Dc;
        return Cover(L::Wide(cross) + (L::Wide(Sc) * -2.0) * L::Wide(Dc), Sc, Dc, p);
    }
    template <class L, class F, class B>
    static HWY_INLINE F Opaque(F s, F d, B) {
        const F sum = s + d;
        return L::Narrow(L::Wide(sum) + (L::Wide(s) * -2.0) * L::Wide(d));
    }
};

// An opaque blend in the rows: the single-precision form where an operator has one.
template <class Op, class L, class F, class B>
HWY_INLINE F OpaqueRow(F s, F d, B dByte) {
    if constexpr (std::is_same_v<Op, OpColorBurn>)
        return Op::template OpaqueSingle<L>(s, d, dByte);
    else
        return Op::template Opaque<L>(s, d, dByte);
}

// One channel of a premultiplied pair: SoftLight alone reads the destination byte.
template <class Op, class L, class F>
HWY_INLINE F ArgbChannel(F Sc, F Dc, const ArgbPair<L> &p, typename L::B dcByte) {
    if constexpr (std::is_same_v<Op, OpSoftLight>)
        return Op::template Colour<L>(Sc, Dc, p, dcByte);
    else
        return Op::template Colour<L>(Sc, Dc, p);
}

}  // namespace plim::composite::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // PLIM_COMPOSITE_FORMULAS_INL_H_
