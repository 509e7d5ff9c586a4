// Kernels and stores against known results, and row functions against the per-pixel kernels.
#include "composite/Kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

using namespace plim::composite;

namespace {

using Px = std::array<UInt8, 4>;

Px Apply(CompositeKernel k, Px src, Px dest) {
    k(src.data(), dest.data());
    return dest;
}

UInt8 ApplyS8(UInt32 op, UInt8 s, UInt8 d) {
    kKernels_S_8[op](&s, &d);
    return d;
}

}  // namespace

TEST(CompositeKernels, TablesHoldSeventyTwoDistinctKernels) {
    std::vector<CompositeKernel> all;
    for (UInt32 op = 0; op < kOperationCount; ++op) {
        all.push_back(kKernels_S_8[op]);
        all.push_back(kKernels_RGB_888[op]);
        all.push_back(kKernels_ARGB_8888[op]);
        EXPECT_EQ(KernelFor(kLayoutARGB_8888, op), kKernels_ARGB_8888[op]);
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::unique(all.begin(), all.end()), all.end());
    EXPECT_EQ(KernelFor(kLayoutS_8, 24), nullptr);
    EXPECT_EQ(RowFor(kLayoutS_8, 0xFFFFFFFFu), nullptr);
    EXPECT_EQ(kKernels_ARGB_8888[3], Composite_ARGB_8888_SrcOver);
}

TEST(CompositeKernels, OpaquePorterDuffBehaviours) {
    const int white[] = {0, 7, 8, 11}, source[] = {1, 3, 5, 9}, keep[] = {2, 4, 6, 10};
    for (int op : white) EXPECT_EQ(ApplyS8(op, 10, 20), 255) << op;
    for (int op : source) EXPECT_EQ(ApplyS8(op, 10, 20), 10) << op;
    for (int op : keep) EXPECT_EQ(ApplyS8(op, 10, 20), 20) << op;
    // RGB_888 never touches byte 0, for any operator.
    for (UInt32 op = 0; op < kOperationCount; ++op) {
        Px r = Apply(kKernels_RGB_888[op], {1, 200, 100, 30}, {77, 128, 200, 20});
        EXPECT_EQ(r[0], 77) << op;
    }
    EXPECT_EQ(Apply(Composite_RGB_888_XOR, {1, 2, 3, 4}, {9, 5, 6, 7}), (Px{9, 255, 255, 255}));
    EXPECT_EQ(Apply(Composite_RGB_888_SrcAtop, {1, 2, 3, 4}, {9, 5, 6, 7}), (Px{9, 2, 3, 4}));
}

TEST(CompositeKernels, OpaqueBlendTable) {
    const UInt8 pairs[4][2] = {{128, 128}, {200, 100}, {64, 200}, {30, 20}};
    const UInt8 expected[12][4] = {
        {255, 255, 255, 50}, {64, 78, 50, 2},    {192, 222, 214, 48}, {128, 157, 173, 5},
        {128, 100, 64, 20},  {128, 200, 200, 30}, {255, 255, 255, 23}, {2, 57, 36, 0},
        {128, 188, 100, 5},  {128, 134, 221, 34}, {0, 100, 136, 10},  {127, 143, 164, 45}};
    for (UInt32 mode = 0; mode < 12; ++mode) {
        for (int i = 0; i < 4; ++i) {
            UInt8 s = pairs[i][0], d = pairs[i][1];
            EXPECT_EQ(ApplyS8(12 + mode, s, d), expected[mode][i]) << "mode " << mode << " pair " << i;
            // RGB_888 gives the same per channel, in each channel position.
            Px r = Apply(kKernels_RGB_888[12 + mode], {0, s, 0, s}, {42, d, 0, d});
            EXPECT_EQ(r[1], expected[mode][i]);
            EXPECT_EQ(r[3], expected[mode][i]);
            EXPECT_EQ(r[0], 42);
        }
        EXPECT_EQ(ApplyS8(12 + mode, 0, 0), 0) << mode;
        EXPECT_EQ(ApplyS8(12 + mode, 255, 255), mode >= 10 ? 0 : 255) << mode;
    }
}

TEST(CompositeKernels, PremultipliedPorterDuffExamples) {
    EXPECT_EQ(Apply(Composite_ARGB_8888_Clear, {9, 9, 9, 9}, {200, 10, 20, 30}), (Px{0, 0, 0, 0}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_CopySrc, {9, 8, 7, 6}, {200, 10, 20, 30}), (Px{9, 8, 7, 6}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_CopyDest, {9, 8, 7, 6}, {200, 10, 20, 30}),
              (Px{200, 10, 20, 30}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_SrcOver, {128, 128, 0, 0}, {255, 0, 0, 255}),
              (Px{255, 128, 0, 127}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_SrcOver, {0, 0, 0, 0}, {200, 10, 20, 30}),
              (Px{200, 10, 20, 30}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_SrcOver, {255, 1, 2, 3}, {200, 10, 20, 30}),
              (Px{255, 1, 2, 3}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_SrcIn, {128, 100, 50, 0}, {128, 64, 64, 64}),
              (Px{64, 50, 25, 0}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_DestOut, {128, 100, 50, 0}, {255, 255, 128, 0}),
              (Px{127, 127, 64, 0}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_XOR, {255, 1, 2, 3}, {255, 4, 5, 6}), (Px{0, 0, 0, 0}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_XOR, {128, 128, 0, 0}, {128, 0, 0, 128}),
              (Px{127, 64, 0, 64}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_DestAtop, {255, 255, 0, 0}, {128, 0, 0, 128}),
              (Px{255, 127, 0, 128}));
}

TEST(CompositeKernels, PremultipliedBlendExamples) {
    const Px s{128, 128, 64, 0}, d{255, 0, 128, 255};
    EXPECT_EQ(Apply(Composite_ARGB_8888_Plus, s, d), (Px{255, 128, 192, 255}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_Multiply, s, d), (Px{255, 0, 96, 127}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_Darken, s, d), (Px{255, 0, 128, 127}));
    EXPECT_EQ(Apply(Composite_ARGB_8888_Lighten, s, d), (Px{255, 128, 128, 255}));
    const Px white{255, 255, 255, 255}, half{128, 64, 64, 64};
    for (CompositeKernel k : {Composite_ARGB_8888_Multiply, Composite_ARGB_8888_Darken,
                              Composite_ARGB_8888_Difference, Composite_ARGB_8888_Exclusion})
        EXPECT_EQ(Apply(k, white, half), (Px{255, 191, 191, 191}));
    for (CompositeKernel k : {Composite_ARGB_8888_Screen, Composite_ARGB_8888_Lighten,
                              Composite_ARGB_8888_Plus})
        EXPECT_EQ(Apply(k, white, half), white);
    // A transparent destination takes the guarded ratio and gives back the source.
    EXPECT_EQ(Apply(Composite_ARGB_8888_SoftLight, {200, 150, 100, 50}, {0, 0, 0, 0}),
              (Px{200, 150, 100, 50}));
}

TEST(CompositeKernels, StoresRoundAndClamp) {
    UInt8 px[4] = {1, 2, 3, 4};
    const float half = 0.5f, over = 255.5f / 255.0f;
    float v[4] = {half, over, 0.0f, 1.0f};
    FloatARGBToIntARGB(v, px);
    EXPECT_EQ(px[0], 128);  // halves away from zero
    EXPECT_EQ(px[1], 0);    // low 8 bits of 256
    EXPECT_EQ(px[3], 255);
    EXPECT_EQ(v[1], over);  // input untouched

    float c[4] = {-0.25f, over, 2.0f, half};
    FloatARGBToIntARGB_Clamp(c, px);
    EXPECT_EQ((Px{px[0], px[1], px[2], px[3]}), (Px{0, 255, 255, 128}));
    EXPECT_EQ(c[0], 0.0f);  // the clamped zero stays in the caller's array
    EXPECT_EQ(c[2], 2.0f);

    UInt8 x[4] = {77, 1, 1, 1};
    float rgb[3] = {-1.0f, over, half};
    FloatRGBToIntXRGB_Clamp(rgb, x);
    EXPECT_EQ((Px{x[0], x[1], x[2], x[3]}), (Px{77, 0, 255, 128}));
    EXPECT_EQ(rgb[0], 0.0f);
}

