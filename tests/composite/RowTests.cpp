// Every vector row, on every instruction set the machine runs, against the per-pixel kernels:
// exhaustively where the inputs are two bytes, over random and special premultiplied pairs
// otherwise, in runs of every length from 1 to 67 starting at unaligned addresses.
#include "composite/Kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace plim::composite;

namespace {

UInt32 Bpp(int layout) { return layout == kLayoutS_8 ? 1 : 4; }

// Applies `row` to `count` pixels in runs of 1, 2, ..., 67, 1, 2, ... pixels, with source and
// destination copied to buffers starting one byte past an aligned address.
std::vector<UInt8> InRuns(CompositeRow row, const std::vector<UInt8> &src,
                          const std::vector<UInt8> &dest, UInt32 bpp) {
    const size_t bytes = dest.size();
    std::vector<UInt8> s(bytes + 1), d(bytes + 1);
    std::memcpy(s.data() + 1, src.data(), bytes);
    std::memcpy(d.data() + 1, dest.data(), bytes);
    const UInt32 count = static_cast<UInt32>(bytes / bpp);
    for (UInt32 done = 0, run = 1; done < count; run = run % 67 + 1) {
        const UInt32 n = std::min(run, count - done);
        row(s.data() + 1 + done * bpp, d.data() + 1 + done * bpp, n);
        done += n;
    }
    return std::vector<UInt8>(d.begin() + 1, d.end());
}

// Runs `check` once per instruction set, with the rows of that set in use.
template <class Check>
void ForEachTarget(Check check) {
    const auto targets = RowTargets();
    ASSERT_FALSE(targets.empty());
    for (const RowTarget &t : targets) {
        UseRowTarget(t.target);
        SCOPED_TRACE(t.name);
        check();
    }
    UseRowTarget(0);
}

void ExpectRowsMatch(int layout, const std::vector<UInt8> &src, const std::vector<UInt8> &dest) {
    const UInt32 bpp = Bpp(layout);
    const UInt32 count = static_cast<UInt32>(dest.size() / bpp);
    for (UInt32 op = 0; op < kOperationCount; ++op) {
        std::vector<UInt8> expected = dest;
        ReferenceRowFor(static_cast<Layout>(layout), op)(src.data(), expected.data(), count);
        ForEachTarget([&] {
            const CompositeRow row = RowFor(static_cast<Layout>(layout), op);
            std::vector<UInt8> whole = dest;
            row(src.data(), whole.data(), count);
            ASSERT_EQ(whole, expected) << "layout " << layout << " operation " << op;
            ASSERT_EQ(InRuns(row, src, dest, bpp), expected)
                << "layout " << layout << " operation " << op << " in runs";
        });
    }
}

}  // namespace

// The exact forms the vector rows rest on, proven over their whole input spaces.
TEST(CompositeRows, ExactFormsHoldForEveryInput) {
    // b / 255 as b / 256 + (rounded b / 65280).
    for (int b = 0; b < 256; ++b) {
        const float f = static_cast<float>(b);
        ASSERT_EQ(f * (1.0f / 256.0f) + f * (1.0f / 65280.0f), f / 255.0f) << b;
    }
    // lroundf(x) as trunc(x + (0.5 - 2^-25)), for every float from 2^-26 to 512 (the stores' range;
    // anything smaller gives 0 both ways).
    const float justBelowHalf = 0.5f - 1.0f / 33554432.0f;
    for (uint32_t bits = 0x32800000u; bits <= 0x44000000u; ++bits) {
        float x;
        std::memcpy(&x, &bits, sizeof x);
        const float sum = x + justBelowHalf;
        if (static_cast<long>(truncf(sum)) != lroundf(x)) FAIL() << std::hexfloat << x;
    }
    // Plus is a saturating byte add in every layout and channel; the opaque Darken and Lighten
    // are the smaller and larger byte.
    for (int s = 0; s < 256; ++s)
        for (int d = 0; d < 256; ++d) {
            const UInt8 sum = static_cast<UInt8>(std::min(s + d, 255));
            UInt8 grey = static_cast<UInt8>(d);
            const UInt8 sb = static_cast<UInt8>(s), db = static_cast<UInt8>(d);
            Composite_S_8_Plus(&sb, &grey);
            ASSERT_EQ(grey, sum) << s << "," << d;
            const UInt8 sp[4] = {sb, sb, sb, sb};
            UInt8 dp[4] = {db, db, db, db};
            Composite_ARGB_8888_Plus(sp, dp);
            for (UInt8 v : dp) ASSERT_EQ(v, sum) << s << "," << d;
            UInt8 low = db, high = db;
            Composite_S_8_Darken(&sb, &low);
            Composite_S_8_Lighten(&sb, &high);
            ASSERT_EQ(low, std::min(sb, db));
            ASSERT_EQ(high, std::max(sb, db));
        }
    // The square-root tables hold pow's own values.
    for (int b = 0; b < 256; ++b)
        ASSERT_EQ(OpaqueSqrtTable()[b], pow(static_cast<double>(b / 255.0f), 0.5));
    EXPECT_EQ(PremultipliedSqrtTable()[0 * 256 + 77], 0.0);
    EXPECT_EQ(PremultipliedSqrtTable()[200 * 256 + 50],
              pow(static_cast<double>((50 / 255.0f) / (200 / 255.0f)), 0.5));
}

// Opaque layouts: every (source, destination) byte pair, for every operation.
TEST(CompositeRows, OpaqueLayoutsMatchKernelsExhaustively) {
    std::vector<UInt8> srcGrey(65536), destGrey(65536), srcRgb(65536 * 4), destRgb(65536 * 4);
    for (UInt32 k = 0; k < 65536; ++k) {
        srcGrey[k] = static_cast<UInt8>(k >> 8);
        destGrey[k] = static_cast<UInt8>(k);
        // Each colour channel sees every pair, in a different order; byte 0 is noise.
        for (UInt32 c = 1; c < 4; ++c) {
            const UInt32 pair = (k * (2 * c + 1) + c * 1234) & 0xFFFF;
            srcRgb[k * 4 + c] = static_cast<UInt8>(pair >> 8);
            destRgb[k * 4 + c] = static_cast<UInt8>(pair);
        }
        srcRgb[k * 4] = static_cast<UInt8>(k * 7);
        destRgb[k * 4] = static_cast<UInt8>(k * 13 + 1);
    }
    ExpectRowsMatch(kLayoutS_8, srcGrey, destGrey);
    ExpectRowsMatch(kLayoutRGB_888, srcRgb, destRgb);
}

// Premultiplied ARGB: a million random valid pairs, then every combination of the special
// values 0, 1, 127, 128, 254, 255 over all eight bytes (valid or not).
TEST(CompositeRows, PremultipliedLayoutMatchesKernels) {
    constexpr UInt32 kRandom = 1000000;
    const UInt8 special[6] = {0, 1, 127, 128, 254, 255};
    constexpr UInt32 kSpecial = 6 * 6 * 6 * 6 * 6 * 6 * 6 * 6;
    std::vector<UInt8> src((kRandom + kSpecial) * 4), dest((kRandom + kSpecial) * 4);
    std::mt19937 rng(20261123);
    for (UInt32 i = 0; i < kRandom; ++i)
        for (std::vector<UInt8> *image : {&src, &dest}) {
            UInt8 *p = image->data() + i * 4;
            p[0] = static_cast<UInt8>(rng());
            for (int c = 1; c < 4; ++c) p[c] = static_cast<UInt8>(rng() % (p[0] + 1u));
        }
    for (UInt32 k = 0; k < kSpecial; ++k) {
        UInt32 digits = k;
        for (int b = 0; b < 8; ++b, digits /= 6)
            (b < 4 ? src : dest)[(kRandom + k) * 4 + (b & 3)] = special[digits % 6];
    }
    ExpectRowsMatch(kLayoutARGB_8888, src, dest);
}
