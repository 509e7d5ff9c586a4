// CGContextDrawImage: exact 1:1 conversions between layouts, placement through the transform,
// source-over, and resampling.
#include "GraphicsTestSupport.h"
#include "platform/graphics/ContextInternal.h"

#include <gtest/gtest.h>

#include <lcms2.h>

#include <random>

namespace {

using gfxtest::Draw;
using gfxtest::MakeImage;
using gfxtest::Round255;

// Random premultiplied ARGB pixels (colour never above alpha), with some 0 and 255 alphas.
std::vector<uint8_t> RandomARGB(size_t pixels, unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> out(pixels * 4);
    for (size_t i = 0; i < pixels; ++i) {
        unsigned a = rng() % 4 == 0 ? (rng() % 2) * 255 : rng() % 256;
        out[i * 4] = static_cast<uint8_t>(a);
        for (int c = 1; c < 4; ++c) out[i * 4 + c] = static_cast<uint8_t>(rng() % (a + 1));
    }
    return out;
}

class Draws : public ::testing::Test {
protected:
    void SetUp() override {
        rgb = gfxtest::RGB();
        grey = gfxtest::Grey();
    }
    void TearDown() override {
        CGColorSpaceRelease(rgb);
        CGColorSpaceRelease(grey);
    }
    CGColorSpaceRef rgb = nullptr, grey = nullptr;
};

TEST_F(Draws, PremultipliedLayoutsConvertExactly) {
    const size_t w = 7, h = 5, n = w * h;
    std::vector<uint8_t> argb = RandomARGB(n, 1);
    std::vector<uint8_t> rgba(n * 4), xrgb(n * 4), rgbx(n * 4), rgb24(n * 3);
    for (size_t i = 0; i < n; ++i) {
        const uint8_t *p = &argb[i * 4];
        uint8_t rgbaPixel[4] = {p[1], p[2], p[3], p[0]};
        std::copy(rgbaPixel, rgbaPixel + 4, &rgba[i * 4]);
        // Without alpha in the destination the colour lands over black: the premultiplied
        // values, with the skipped byte opaque.
        uint8_t x[4] = {255, p[1], p[2], p[3]};
        std::copy(x, x + 4, &xrgb[i * 4]);
        uint8_t xl[4] = {p[1], p[2], p[3], 255};
        std::copy(xl, xl + 4, &rgbx[i * 4]);
        std::copy(p + 1, p + 4, &rgb24[i * 3]);
    }
    CGImageRef src = MakeImage(argb, w, h, 8, 32, w * 4, rgb, kCGImageAlphaPremultipliedFirst);
    EXPECT_EQ(Draw(src, rgb, kCGImageAlphaPremultipliedFirst, 4), argb);
    EXPECT_EQ(Draw(src, rgb, kCGImageAlphaPremultipliedLast, 4), rgba);
    EXPECT_EQ(Draw(src, rgb, kCGImageAlphaNoneSkipFirst, 4), xrgb);
    EXPECT_EQ(Draw(src, rgb, kCGImageAlphaNoneSkipLast, 4), rgbx);
    CGImageRelease(src);

    CGImageRef fromRGBA = MakeImage(rgba, w, h, 8, 32, w * 4, rgb, kCGImageAlphaPremultipliedLast);
    EXPECT_EQ(Draw(fromRGBA, rgb, kCGImageAlphaPremultipliedFirst, 4), argb);
    CGImageRelease(fromRGBA);

    // Opaque sources: 24-bit and skip layouts come out with alpha 255.
    CGImageRef from24 = MakeImage(rgb24, w, h, 8, 24, w * 3, rgb, kCGImageAlphaNone);
    CGImageRef fromX = MakeImage(xrgb, w, h, 8, 32, w * 4, rgb, kCGImageAlphaNoneSkipFirst);
    CGImageRef fromXL = MakeImage(rgbx, w, h, 8, 32, w * 4, rgb, kCGImageAlphaNoneSkipLast);
    CGImageRef padded = MakeImage(rgbx, w, h, 8, 32, w * 4, rgb, kCGImageAlphaNone);
    for (CGImageRef opaque : {from24, fromX, fromXL, padded}) {
        EXPECT_EQ(Draw(opaque, rgb, kCGImageAlphaPremultipliedFirst, 4), xrgb);
        EXPECT_EQ(Draw(opaque, rgb, kCGImageAlphaNoneSkipLast, 4), rgbx);
        CGImageRelease(opaque);
    }
}

TEST_F(Draws, StraightAlphaIsPremultipliedWithRounding) {
    // Every (colour, alpha) pair once.
    const size_t w = 256, h = 256;
    std::vector<uint8_t> rgba(w * h * 4), argb(w * h * 4), expected(w * h * 4);
    for (unsigned a = 0; a < 256; ++a) {
        for (unsigned c = 0; c < 256; ++c) {
            size_t i = (a * 256 + c) * 4;
            uint8_t cc = static_cast<uint8_t>(c), inv = static_cast<uint8_t>(255 - c);
            uint8_t aa = static_cast<uint8_t>(a);
            uint8_t px[4] = {cc, inv, cc, aa};
            std::copy(px, px + 4, &rgba[i]);
            uint8_t pf[4] = {aa, cc, inv, cc};
            std::copy(pf, pf + 4, &argb[i]);
            uint8_t e[4] = {aa, Round255(c, a), Round255(255 - c, a), Round255(c, a)};
            std::copy(e, e + 4, &expected[i]);
        }
    }
    CGImageRef last = MakeImage(rgba, w, h, 8, 32, w * 4, rgb, kCGImageAlphaLast);
    CGImageRef first = MakeImage(argb, w, h, 8, 32, w * 4, rgb, kCGImageAlphaFirst);
    EXPECT_EQ(Draw(last, rgb, kCGImageAlphaPremultipliedFirst, 4), expected);
    EXPECT_EQ(Draw(first, rgb, kCGImageAlphaPremultipliedFirst, 4), expected);
    CGImageRelease(last);
    CGImageRelease(first);
}

TEST_F(Draws, GreySourcesAndDestinations) {
    const size_t w = 256;
    std::vector<uint8_t> ramp(w), xrgb(w * 4);
    for (size_t i = 0; i < w; ++i) {
        ramp[i] = static_cast<uint8_t>(i);
        uint8_t px[4] = {255, ramp[i], ramp[i], ramp[i]};
        std::copy(px, px + 4, &xrgb[i * 4]);
    }
    CGImageRef g8 = MakeImage(ramp, w, 1, 8, 8, w, grey, 0);
    EXPECT_EQ(Draw(g8, rgb, kCGImageAlphaNoneSkipFirst, 4), xrgb);  // g -> (g, g, g)
    EXPECT_EQ(Draw(g8, grey, 0, 1), ramp);
    CGImageRelease(g8);

    // Colour (g, g, g) drawn into grey gives g back.
    CGImageRef colour = MakeImage(xrgb, w, 1, 8, 32, w * 4, rgb, kCGImageAlphaNoneSkipFirst);
    EXPECT_EQ(Draw(colour, grey, 0, 1), ramp);
    CGImageRelease(colour);

    // 1-bit grey: 1 is white, most significant bit first.
    CGImageRef bits = MakeImage({0xA5, 0x80}, 9, 1, 1, 1, 2, grey, 0);
    std::vector<uint8_t> expected = {255, 0, 255, 0, 0, 255, 0, 255, 255};
    EXPECT_EQ(Draw(bits, grey, 0, 1), expected);
    CGImageRelease(bits);

    // Grey with straight alpha first, into premultiplied ARGB; into grey it lands over black.
    CGImageRef ga = MakeImage({128, 200, 255, 10, 0, 99}, 3, 1, 8, 16, 6, grey, kCGImageAlphaFirst);
    uint8_t v = Round255(200, 128);
    EXPECT_EQ(Draw(ga, rgb, kCGImageAlphaPremultipliedFirst, 4),
              (std::vector<uint8_t>{128, v, v, v, 255, 10, 10, 10, 0, 0, 0, 0}));
    EXPECT_EQ(Draw(ga, grey, 0, 1), (std::vector<uint8_t>{v, 10, 0}));
    EXPECT_EQ(Draw(ga, nullptr, kCGImageAlphaOnly, 1), (std::vector<uint8_t>{128, 255, 0}));
    CGImageRelease(ga);

    // Alpha-only sources draw black with their alpha.
    CGImageRef mask = MakeImage({0, 64, 255}, 3, 1, 8, 8, 3, nullptr, kCGImageAlphaOnly);
    EXPECT_EQ(Draw(mask, rgb, kCGImageAlphaPremultipliedLast, 4),
              (std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 0, 64, 0, 0, 0, 255}));
    CGImageRelease(mask);
}

TEST_F(Draws, SourceOverMatchesTheFormulaOnRandomPixels) {
    const size_t w = 64, h = 16, n = w * h;
    std::vector<uint8_t> src = RandomARGB(n, 2);
    std::vector<uint8_t> dst = RandomARGB(n, 3);
    std::vector<uint8_t> expected(n * 4);
    for (size_t i = 0; i < n * 4; ++i) {
        unsigned sa = src[i / 4 * 4];
        expected[i] = static_cast<uint8_t>(src[i] + Round255(dst[i], 255 - sa));
    }
    CGImageRef image = MakeImage(src, w, h, 8, 32, w * 4, rgb, kCGImageAlphaPremultipliedFirst);
    CGContextRef ctx =
        CGBitmapContextCreate(dst.data(), w, h, 8, w * 4, rgb, kCGImageAlphaPremultipliedFirst);
    CGContextDrawImage(ctx, CGRectMake(0, 0, w, h), image);
    EXPECT_EQ(dst, expected);
    CGContextRelease(ctx);
    CGImageRelease(image);
}

TEST_F(Draws, PlacementThroughTheTransform) {
    // A 2 x 3 grey image with distinct values, rows top first.
    std::vector<uint8_t> pixels = {1, 2, 3, 4, 5, 6};
    CGImageRef image = MakeImage(pixels, 2, 3, 8, 8, 2, grey, 0);
    const size_t W = 5, H = 6;
    auto draw = [&](auto setup, CGRect rect) {
        std::vector<uint8_t> out(W * H, 0);
        CGContextRef ctx = CGBitmapContextCreate(out.data(), W, H, 8, W, grey, 0);
        setup(ctx);
        CGContextDrawImage(ctx, rect, image);
        CGContextRelease(ctx);
        return out;
    };
    // y grows upward: a rectangle at y 1 ends one row above the bottom row.
    std::vector<uint8_t> placed = draw([](CGContextRef) {}, CGRectMake(2, 1, 2, 3));
    std::vector<uint8_t> expected(W * H, 0);
    for (size_t r = 0; r < 3; ++r)
        for (size_t c = 0; c < 2; ++c) expected[(H - 1 - 3 + r) * W + 2 + c] = pixels[r * 2 + c];
    EXPECT_EQ(placed, expected);
    // The same through a translation.
    EXPECT_EQ(draw([](CGContextRef c) { CGContextTranslateCTM(c, 2, 1); }, CGRectMake(0, 0, 2, 3)),
              expected);

    // Flip: translate (0, h), scale (1, -1) mirrors the rows.
    std::vector<uint8_t> flipped(6, 0);
    CGContextRef ctx = CGBitmapContextCreate(flipped.data(), 2, 3, 8, 2, grey, 0);
    CGContextTranslateCTM(ctx, 0, 3);
    CGContextScaleCTM(ctx, 1, -1);
    CGContextDrawImage(ctx, CGRectMake(0, 0, 2, 3), image);
    CGContextRelease(ctx);
    EXPECT_EQ(flipped, (std::vector<uint8_t>{5, 6, 3, 4, 1, 2}));

    // A crop: the picture shifted by (-1, -1) into a 1 x 2 context shows column 1 of the
    // two rows above the bottom one.
    std::vector<uint8_t> crop(2, 0);
    ctx = CGBitmapContextCreate(crop.data(), 1, 2, 8, 1, grey, 0);
    CGContextDrawImage(ctx, CGRectMake(-1, -1, 2, 3), image);
    CGContextRelease(ctx);
    EXPECT_EQ(crop, (std::vector<uint8_t>{2, 4}));

    // Mirroring left to right at 1:1 is exact as well.
    std::vector<uint8_t> mirrored(6, 0);
    ctx = CGBitmapContextCreate(mirrored.data(), 2, 3, 8, 2, grey, 0);
    CGContextTranslateCTM(ctx, 2, 0);
    CGContextScaleCTM(ctx, -1, 1);
    CGContextDrawImage(ctx, CGRectMake(0, 0, 2, 3), image);
    CGContextRelease(ctx);
    EXPECT_EQ(mirrored, (std::vector<uint8_t>{2, 1, 4, 3, 6, 5}));
    CGImageRelease(image);
}

TEST_F(Draws, ReductionAveragesAreasAndEnlargementInterpolates) {
    // A one-pixel checkerboard reduced 2:1 is uniform mid grey.
    const size_t n = 16;
    std::vector<uint8_t> board(n * n);
    for (size_t i = 0; i < n * n; ++i) board[i] = ((i / n + i % n) % 2) ? 255 : 0;
    CGImageRef checker = MakeImage(board, n, n, 8, 8, n, grey, 0);
    std::vector<uint8_t> half(n * n / 4, 0);
    CGContextRef ctx = CGBitmapContextCreate(half.data(), n / 2, n / 2, 8, n / 2, grey, 0);
    CGContextDrawImage(ctx, CGRectMake(0, 0, n / 2, n / 2), checker);
    CGContextRelease(ctx);
    for (uint8_t v : half) {
        EXPECT_GE(v, 127);
        EXPECT_LE(v, 128);
        EXPECT_EQ(v, half[0]);
    }
    CGImageRelease(checker);

    // Enlarging a black-white pair: the ends keep their values and the middle runs upward.
    CGImageRef pair = MakeImage({0, 255}, 2, 1, 8, 8, 2, grey, 0);
    std::vector<uint8_t> wide(8, 0);
    ctx = CGBitmapContextCreate(wide.data(), 8, 1, 8, 8, grey, 0);
    CGContextDrawImage(ctx, CGRectMake(0, 0, 8, 1), pair);
    CGContextRelease(ctx);
    EXPECT_EQ(wide.front(), 0);
    EXPECT_EQ(wide.back(), 255);
    for (size_t i = 1; i < wide.size(); ++i) EXPECT_GE(wide[i], wide[i - 1]);
    EXPECT_GT(wide[4], 0);
    EXPECT_LT(wide[3], 255);
    CGImageRelease(pair);

    // A uniform opaque colour stays that colour and opaque at any scale.
    std::vector<uint8_t> solid(3 * 5 * 4);
    for (size_t i = 0; i < solid.size(); i += 4) {
        uint8_t px[4] = {255, 10, 120, 250};
        std::copy(px, px + 4, &solid[i]);
    }
    CGImageRef colour = MakeImage(solid, 3, 5, 8, 32, 12, rgb, kCGImageAlphaPremultipliedFirst);
    for (auto [w, h] : {std::pair<size_t, size_t>{7, 2}, {1, 1}, {11, 13}}) {
        std::vector<uint8_t> out = Draw(colour, rgb, kCGImageAlphaPremultipliedFirst, 4);
        std::vector<uint8_t> scaled(w * h * 4, 0);
        ctx = CGBitmapContextCreate(scaled.data(), w, h, 8, w * 4, rgb,
                                    kCGImageAlphaPremultipliedFirst);
        CGContextDrawImage(ctx, CGRectMake(0, 0, w, h), colour);
        CGContextRelease(ctx);
        for (size_t i = 0; i < scaled.size(); ++i)
            ASSERT_EQ(scaled[i], solid[i % 4]) << w << "x" << h;
    }
    CGImageRelease(colour);
}

TEST_F(Draws, PicturesWiderThanPixmanReachAreStillScaled) {
    const size_t w = 40000;
    std::vector<uint8_t> ramp(w);
    for (size_t i = 0; i < w; ++i) ramp[i] = static_cast<uint8_t>(i * 7);
    CGImageRef image = MakeImage(ramp, w, 1, 8, 8, w, grey, 0);
    std::vector<uint8_t> out(w / 2, 0);
    CGContextRef ctx = CGBitmapContextCreate(out.data(), w / 2, 1, 8, w / 2, grey, 0);
    CGContextDrawImage(ctx, CGRectMake(0, 0, w / 2, 1), image);
    CGContextRelease(ctx);
    // Each pixel takes the source pixel under its centre.
    for (size_t i = 0; i < w / 2; i += 997) EXPECT_EQ(out[i], ramp[2 * i + 1]) << i;
    CGImageRelease(image);
}

TEST_F(Draws, EmbeddedProfilesAreConverted) {
    // A grey profile with a linear tone curve: grey 128 is 50 % light, which sRGB shows as
    // about 188.
    cmsToneCurve *linear = cmsBuildGamma(nullptr, 1.0);
    cmsHPROFILE profile = cmsCreateGrayProfile(cmsD50_xyY(), linear);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    std::vector<uint8_t> icc(size);
    cmsSaveProfileToMem(profile, icc.data(), &size);
    cmsCloseProfile(profile);
    cmsFreeToneCurve(linear);

    CFDataRef data = CFDataCreate(nullptr, icc.data(), static_cast<CFIndex>(icc.size()));
    CGColorSpaceRef linearGrey = CGColorSpaceCreateWithICCProfile(data);
    CFRelease(data);
    ASSERT_NE(linearGrey, nullptr);
    EXPECT_FALSE(CFEqual(linearGrey, grey));
    CGImageRef image = MakeImage({0, 128, 255}, 3, 1, 8, 8, 3, linearGrey, 0);
    std::vector<uint8_t> out = Draw(image, rgb, kCGImageAlphaPremultipliedFirst, 4);
    ASSERT_EQ(out.size(), 12u);
    EXPECT_EQ(out[0], 255);
    EXPECT_LE(out[1], 1);
    EXPECT_NEAR(out[5], 188, 3);
    EXPECT_EQ(out[5], out[6]);
    EXPECT_GE(out[9], 254);
    CGImageRelease(image);
    CGColorSpaceRelease(linearGrey);

    // Linear-light RGB with sRGB primaries, premultiplied: a half-transparent mid grey keeps
    // its alpha and shows as about 188 before premultiplication, 94 after.
    cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1}, {0.30, 0.60, 1}, {0.15, 0.06, 1}};
    cmsCIExyY d65;
    cmsWhitePointFromTemp(&d65, 6504);
    cmsToneCurve *line = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve *curves[3] = {line, line, line};
    cmsHPROFILE linearRGB = cmsCreateRGBProfile(&d65, &primaries, curves);
    cmsSaveProfileToMem(linearRGB, nullptr, &size);
    icc.resize(size);
    cmsSaveProfileToMem(linearRGB, icc.data(), &size);
    cmsCloseProfile(linearRGB);
    cmsFreeToneCurve(line);
    data = CFDataCreate(nullptr, icc.data(), static_cast<CFIndex>(icc.size()));
    CGColorSpaceRef linearSpace = CGColorSpaceCreateWithICCProfile(data);
    CFRelease(data);
    ASSERT_NE(linearSpace, nullptr);
    EXPECT_EQ(CGColorSpaceGetNumberOfComponents(linearSpace), 3u);
    CGImageRef half = MakeImage({128, 64, 64, 64, 255, 255, 0, 0}, 2, 1, 8, 32, 8, linearSpace,
                                kCGImageAlphaPremultipliedFirst);
    out = Draw(half, rgb, kCGImageAlphaPremultipliedFirst, 4);
    ASSERT_EQ(out.size(), 8u);
    EXPECT_EQ(out[0], 128);
    for (int c = 1; c < 4; ++c) EXPECT_NEAR(out[c], 94, 3) << c;
    EXPECT_EQ(out[4], 255);
    EXPECT_GE(out[5], 250);  // linear red 1.0 is sRGB red 255
    EXPECT_LE(out[6], 3);
    CGImageRelease(half);
    // The same pixel with straight alpha last.
    half = MakeImage({128, 128, 128, 128}, 1, 1, 8, 32, 4, linearSpace, kCGImageAlphaLast);
    out = Draw(half, rgb, kCGImageAlphaPremultipliedFirst, 4);
    EXPECT_EQ(out[0], 128);
    for (int c = 1; c < 4; ++c) EXPECT_NEAR(out[c], 94, 3) << c;
    CGImageRelease(half);
    CGColorSpaceRelease(linearSpace);
}

TEST_F(Draws, ClearAndDrawGivesTheDrawOntoZeroWhateverTheMemoryHeld) {
    const size_t w = 37, h = 11;
    std::mt19937 rng(21);
    std::vector<uint8_t> argb = RandomARGB(w * h, 4), noise(w * h * 4);
    for (auto &b : noise) b = static_cast<uint8_t>(rng());
    struct Source {
        std::vector<uint8_t> bytes;
        size_t bpc, bpp;
        CGColorSpaceRef space;
        uint32_t alpha;
    };
    const Source sources[] = {
        {argb, 8, 32, rgb, kCGImageAlphaPremultipliedFirst}, {noise, 8, 32, rgb, kCGImageAlphaFirst},
        {noise, 8, 32, rgb, kCGImageAlphaNoneSkipFirst},     {noise, 8, 32, rgb, kCGImageAlphaLast},
        {noise, 8, 32, rgb, kCGImageAlphaNoneSkipLast},      {noise, 8, 8, grey, kCGImageAlphaNone},
        {noise, 1, 1, grey, kCGImageAlphaNone},              {noise, 16, 64, rgb, kCGImageAlphaLast},
    };
    struct Dest {
        CGColorSpaceRef space;
        uint32_t alpha;
        size_t bytesPerPixel;
    };
    const Dest dests[] = {{rgb, kCGImageAlphaPremultipliedFirst, 4}, {rgb, kCGImageAlphaNoneSkipFirst, 4},
                          {rgb, kCGImageAlphaPremultipliedLast, 4}, {grey, kCGImageAlphaNone, 1}};
    const CGRect rects[] = {CGRectMake(0, 0, w, h), CGRectMake(3, 2, w, h), CGRectMake(-4, 1, w - 10, h - 3),
                            CGRectMake(0, 0, w * 2.5f, h * 1.5f), CGRectMake(0, 0, 0, h)};
    for (const Source &s : sources) {
        const size_t bpr = (w * s.bpp + 7) / 8;
        CGImageRef image = MakeImage(s.bytes, w, h, s.bpc, s.bpp, bpr, s.space, s.alpha);
        for (const Dest &d : dests) {
            for (const CGRect &rect : rects) {
                // Rows with padding, which the draw must clear too.
                const size_t rowBytes = w * d.bytesPerPixel + 3;
                std::vector<uint8_t> expected(rowBytes * h, 0), got(rowBytes * h, 0xA5);
                CGContextRef a = CGBitmapContextCreate(expected.data(), w, h, 8, rowBytes, d.space, d.alpha);
                CGContextRef b = CGBitmapContextCreate(got.data(), w, h, 8, rowBytes, d.space, d.alpha);
                ASSERT_NE(a, nullptr);
                ASSERT_NE(b, nullptr);
                CGContextDrawImage(a, rect, image);
                plim::graphics::ClearAndDrawImage(b, rect, image);
                EXPECT_EQ(got, expected) << "source " << (&s - sources) << ", dest " << (&d - dests) << ", rect "
                                         << (&rect - rects);
                CGContextRelease(a);
                CGContextRelease(b);
            }
        }
        CGImageRelease(image);
    }
    // Without an image there is nothing to draw, and the memory is cleared all the same.
    std::vector<uint8_t> memory(w * h * 4, 0xA5);
    CGContextRef ctx = CGBitmapContextCreate(memory.data(), w, h, 8, w * 4, rgb, kCGImageAlphaPremultipliedFirst);
    plim::graphics::ClearAndDrawImage(ctx, CGRectMake(0, 0, w, h), nullptr);
    EXPECT_EQ(memory, std::vector<uint8_t>(w * h * 4, 0));
    CGContextRelease(ctx);
}

}  // namespace
