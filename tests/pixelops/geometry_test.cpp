// Crop, scale and flip through the public API.
#include <gtest/gtest.h>

#include "../support/FailingAllocator.h"
#include "ImageTestSupport.h"
#include "pixelops/GeometryInternal.h"

#include <random>

namespace {

using namespace plim::test;

// Opaque pixels that name their own place: (255, column, row from the top, 7).
ImageRef Coordinates(UInt32 width, UInt32 height, CFAllocatorRef allocator = nullptr) {
    std::vector<Pixel> px;
    for (UInt32 y = 0; y < height; ++y)
        for (UInt32 x = 0; x < width; ++x) px.push_back(Pixel{255, static_cast<UInt8>(x), static_cast<UInt8>(y), 7});
    return MakeImage32(width, height, px, kCGImageAlphaPremultipliedFirst, 0, 0, allocator);
}

// Every pixel of `image` is the source pixel at (x0 + x, y0 + y), rows counted from the top.
void ExpectWindow(PlimCFImage image, UInt32 x0, UInt32 y0) {
    for (UInt32 y = 0; y < PlimCFImageGetHeight(image); ++y)
        for (UInt32 x = 0; x < PlimCFImageGetWidth(image); ++x)
            ASSERT_EQ(At(image, x, y), (Pixel{255, static_cast<UInt8>(x0 + x), static_cast<UInt8>(y0 + y), 7}))
                << "at " << x << "," << y;
}

TEST(Geometry, CropRoundsOutwardAndClipsAtTheEdges) {
    ImageRef whole = Coordinates(100, 100);
    CGImageRef rendered = PlimCFImageGetCGImage(whole.get());
    void *buffer = whole.get()->buffer;
    PlimCFImageCropToRect(whole.get(), CGRectMake(0, 0, 100, 100));
    EXPECT_EQ(whole.get()->image, rendered);
    EXPECT_EQ(whole.get()->buffer, buffer);

    // (10.2, 10.7, 20.1, 20.1) covers (10, 10, 21, 21); y counts up from the bottom row.
    ImageRef a = Coordinates(100, 100);
    PlimCFImageCropToRect(a.get(), CGRectMake(10.2f, 10.7f, 20.1f, 20.1f));
    ASSERT_EQ(PlimCFImageGetWidth(a.get()), 21u);
    ASSERT_EQ(PlimCFImageGetHeight(a.get()), 21u);
    EXPECT_EQ(PlimCFImageGetBytesPerRow(a.get()), 96u);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(a.get()), kCGImageAlphaPremultipliedFirst);
    EXPECT_EQ(a.get()->image, nullptr);
    ExpectWindow(a.get(), 10, 100 - 31);

    // A negative origin moves to 0 without shrinking; y 0 keeps the bottom rows.
    ImageRef b = Coordinates(100, 100);
    PlimCFImageCropToRect(b.get(), CGRectMake(-10, 0, 50, 50));
    ASSERT_EQ(PlimCFImageGetWidth(b.get()), 50u);
    ASSERT_EQ(PlimCFImageGetHeight(b.get()), 50u);
    ExpectWindow(b.get(), 0, 50);

    // A negative width is standardized first; the part past the right edge is cut.
    ImageRef c = Coordinates(100, 100);
    PlimCFImageCropToRect(c.get(), CGRectMake(130, 90, -50, 10));
    ASSERT_EQ(PlimCFImageGetWidth(c.get()), 20u);
    ASSERT_EQ(PlimCFImageGetHeight(c.get()), 10u);
    EXPECT_EQ(PlimCFImageGetBytesPerRow(c.get()), 96u);
    ExpectWindow(c.get(), 80, 0);

    // Wholly beyond the right or top edge, or empty: nothing to keep, the image stays.
    ImageRef d = Coordinates(10, 8);
    std::vector<UInt8> before = Bytes(d.get());
    PlimCFImageCropToRect(d.get(), CGRectMake(12, 0, 5, 5));
    PlimCFImageCropToRect(d.get(), CGRectMake(0, 8, 5, 5));
    PlimCFImageCropToRect(d.get(), CGRectMake(2, 2, 0, 5));
    PlimCFImageCropToRect(d.get(), CGRectNull);
    EXPECT_EQ(PlimCFImageGetWidth(d.get()), 10u);
    EXPECT_EQ(Bytes(d.get()), before);
}

TEST(Geometry, RowLengthsAfterReRendering) {
    ImageRef ten = Coordinates(12, 4);
    PlimCFImageCropToRect(ten.get(), CGRectMake(1, 0, 10, 4));
    EXPECT_EQ(PlimCFImageGetBytesPerRow(ten.get()), 64u);
    EXPECT_EQ(PlimCFImageGetImageBufferSize(ten.get()), 256u);
    ExpectWindow(ten.get(), 1, 0);
    ImageRef eight = Coordinates(12, 4);
    PlimCFImageScaleToSize(eight.get(), CGSizeMake(8, 4));
    EXPECT_EQ(PlimCFImageGetBytesPerRow(eight.get()), 32u);
}

TEST(Geometry, TwentyFourBitPicturesComeBackAsThirtyTwo) {
    std::vector<UInt8> rgb;
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) rgb.insert(rgb.end(), {static_cast<UInt8>(10 * x), static_cast<UInt8>(50 * y), 9});
    ImageRef cropped = MakeRendered24(5, 3, rgb);
    ASSERT_TRUE(cropped);
    ASSERT_EQ(PlimCFImageGetBitsPerPixel(cropped.get()), 24u);
    PlimCFImageCropToRect(cropped.get(), CGRectMake(1, 0, 3, 2));  // the two bottom rows
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(cropped.get()), 32u);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(cropped.get()), kCGImageAlphaNoneSkipLast);
    EXPECT_EQ(PlimCFImageGetBytesPerRow(cropped.get()), 32u);
    Pixel p = At(cropped.get(), 2, 0);
    EXPECT_EQ(p[0], 30);
    EXPECT_EQ(p[1], 50);
    EXPECT_EQ(p[2], 9);

    ImageRef scaled = MakeRendered24(5, 3, rgb);
    PlimCFImageScaleToSize(scaled.get(), CGSizeMake(10, 6));
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(scaled.get()), 32u);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(scaled.get()), kCGImageAlphaNoneSkipLast);
    EXPECT_EQ(PlimCFImageGetBytesPerRow(scaled.get()), 64u);
}

TEST(Geometry, ScaleRoundsTheSizeAndSkipsNoOps) {
    ImageRef image = MakeImage32(20, 8, std::vector<Pixel>(160, Pixel{255, 40, 80, 120}));
    CGImageRef rendered = PlimCFImageGetCGImage(image.get());
    PlimCFImageScaleToSize(image.get(), CGSizeMake(-1, 10));
    PlimCFImageScaleToSize(image.get(), CGSizeMake(20.4f, 7.5f));
    EXPECT_EQ(image.get()->image, rendered);

    PlimCFImageScaleToSize(image.get(), CGSizeMake(10.5f, 4.4f));
    ASSERT_EQ(PlimCFImageGetWidth(image.get()), 11u);
    ASSERT_EQ(PlimCFImageGetHeight(image.get()), 4u);
    // Resampling a flat colour gives the same colour everywhere.
    for (UInt32 y = 0; y < 4; ++y)
        for (UInt32 x = 0; x < 11; ++x) ASSERT_EQ(At(image.get(), x, y), (Pixel{255, 40, 80, 120}));
}

TEST(Geometry, ScalingABufferAloneDrawsWhatItsRenderedFormDraws) {
    // A buffer held alone is drawn from directly; holding its rendered form must not matter.
    std::mt19937 rng(12);
    std::vector<Pixel> px(13 * 9);
    for (Pixel &p : px) {
        p[0] = static_cast<UInt8>(rng());
        for (size_t c = 1; c < 4; ++c) p[c] = static_cast<UInt8>(rng() % (p[0] + 1u));
    }
    for (CGSize size : {CGSizeMake(26, 18), CGSizeMake(4, 3), CGSizeMake(20, 5), CGSizeMake(1, 1)}) {
        ImageRef alone = MakeImage32(13, 9, px, kCGImageAlphaPremultipliedFirst);
        ImageRef both = MakeImage32(13, 9, px, kCGImageAlphaPremultipliedFirst);
        ASSERT_EQ(alone.get()->image, nullptr);
        ASSERT_NE(PlimCFImageGetCGImage(both.get()), nullptr);
        PlimCFImageScaleToSize(alone.get(), size);
        PlimCFImageScaleToSize(both.get(), size);
        ASSERT_EQ(PlimCFImageGetWidth(alone.get()), static_cast<UInt32>(size.width));
        EXPECT_EQ(PlimCFImageGetBytesPerRow(alone.get()), PlimCFImageGetBytesPerRow(both.get()));
        EXPECT_EQ(Bytes(alone.get()), Bytes(both.get())) << size.width << "x" << size.height;
    }
}

TEST(Geometry, FlipMirrorsRowsAndTwiceIsTheIdentity) {
    ImageRef image = Coordinates(7, 5);
    std::vector<UInt8> before = Bytes(image.get());
    PlimCFImageFlipVertically(image.get());
    for (UInt32 y = 0; y < 5; ++y)
        for (UInt32 x = 0; x < 7; ++x)
            ASSERT_EQ(At(image.get(), x, y), (Pixel{255, static_cast<UInt8>(x), static_cast<UInt8>(4 - y), 7}));
    PlimCFImageFlipVertically(image.get());
    EXPECT_EQ(Bytes(image.get()), before);

    ImageRef grey = MakeGrey(3, 2, {1, 2, 3, 4, 5, 6});
    PlimCFImageFlipVertically(grey.get());
    EXPECT_EQ(Bytes(grey.get()), (std::vector<UInt8>{4, 5, 6, 1, 2, 3}));
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(grey.get()), 8u);
}

TEST(Geometry, FailuresLeaveTheImageUnchanged) {
    ImageRef empty(PlimCFImageCreate(nullptr));
    PlimCFImageCropToRect(empty.get(), CGRectMake(1, 1, 2, 2));
    PlimCFImageScaleToSize(empty.get(), CGSizeMake(3, 3));
    PlimCFImageFlipVertically(empty.get());
    EXPECT_EQ(empty.get()->buffer, nullptr);
    EXPECT_EQ(PlimCFImageGetWidth(empty.get()), 0u);

    FailingAllocator alloc;
    {
        ImageRef image = Coordinates(16, 16, alloc.get());
        ASSERT_TRUE(image);
        std::vector<UInt8> before = Bytes(image.get());
        // Every budget up to full success; each failure must leave the pixels as they were.
        for (long budget = 0; budget < 4; ++budget) {
            alloc.setBudget(budget);
            PlimCFImageCropToRect(image.get(), CGRectMake(2, 2, 8, 8));
            PlimCFImageScaleToSize(image.get(), CGSizeMake(4, 4));
            alloc.setBudget(-1);
            if (PlimCFImageGetWidth(image.get()) != 16) break;
            EXPECT_EQ(Bytes(image.get()), before) << "budget " << budget;
        }
        alloc.setBudget(0);
        ImageRef other = Coordinates(16, 16, alloc.get());  // fails: nothing is made
        EXPECT_FALSE(other);
        alloc.setBudget(-1);
    }
    EXPECT_EQ(alloc.live(), 0);

    FailingAllocator flipAlloc;
    {
        // XRGB is flipped by drawing, which needs memory; premultiplied ARGB needs none.
        ImageRef image = MakeImage32(3, 2, std::vector<Pixel>{{255, 1, 1, 1}, {255, 2, 2, 2}, {255, 3, 3, 3},
                                                              {255, 4, 4, 4}, {255, 5, 5, 5}, {255, 6, 6, 6}},
                                     kCGImageAlphaNoneSkipFirst, 0, 0, flipAlloc.get());
        std::vector<UInt8> before = Bytes(image.get());
        for (long budget = 0; budget < 2; ++budget) {
            flipAlloc.setBudget(budget);
            PlimCFImageFlipVertically(image.get());
            flipAlloc.setBudget(-1);
            EXPECT_EQ(Bytes(image.get()), before) << "budget " << budget;
        }
        PlimCFImageFlipVertically(image.get());
        EXPECT_EQ(At(image.get(), 0, 0)[1], 4);
    }
    EXPECT_EQ(flipAlloc.live(), 0);
}

// Row copying must give exactly the bytes of the graphics layer's drawing, for random pixels
// (premultiplied ones with colour above alpha included) and random rectangles.
TEST(Geometry, RowCopiesMatchDrawing) {
    std::mt19937 rng(5);
    auto random = [&](UInt32 n) { return static_cast<UInt32>(rng() % n); };
    for (int trial = 0; trial < 60; ++trial) {
        UInt32 w = 1 + random(40), h = 1 + random(30);
        bool grey = trial % 3 == 0;
        std::vector<Pixel> px(static_cast<size_t>(w) * h);
        std::vector<UInt8> values(px.size());
        for (auto &p : px) p = Pixel{static_cast<UInt8>(rng()), static_cast<UInt8>(rng()), static_cast<UInt8>(rng()),
                                     static_cast<UInt8>(rng())};
        for (auto &v : values) v = static_cast<UInt8>(rng());
        UInt32 pad = grey ? 0 : 4 * random(3);
        auto make = [&] {
            return grey ? MakeGrey(w, h, values)
                        : MakeImage32(w, h, px, kCGImageAlphaPremultipliedFirst, w * 4 + pad, 0);
        };
        CGRect rect = CGRectMake(static_cast<float>(random(w + 10)) - 5.0f, static_cast<float>(random(h + 10)) - 5.0f,
                                 static_cast<float>(random(w + 5)) + 0.5f, static_cast<float>(random(h + 5)));
        ImageRef drawn = make(), copied = make();
        if (trial % 2) PlimCFImageGetCGImage(copied.get());  // a matching rendered image may be held
        plim::pixel::CropToRect(drawn.get(), rect, false);
        plim::pixel::CropToRect(copied.get(), rect, true);
        ASSERT_EQ(PlimCFImageGetWidth(copied.get()), PlimCFImageGetWidth(drawn.get()));
        ASSERT_EQ(PlimCFImageGetBytesPerRow(copied.get()), PlimCFImageGetBytesPerRow(drawn.get()));
        ASSERT_EQ(PlimCFImageGetAlphaInfo(copied.get()), PlimCFImageGetAlphaInfo(drawn.get()));
        ASSERT_EQ(Bytes(copied.get()), Bytes(drawn.get())) << "crop, trial " << trial;

        ImageRef flipDrawn = make(), flipCopied = make();
        plim::pixel::FlipVertically(flipDrawn.get(), false);
        plim::pixel::FlipVertically(flipCopied.get(), true);
        ASSERT_EQ(Bytes(flipCopied.get()), Bytes(flipDrawn.get())) << "flip, trial " << trial;
    }
}

}  // namespace
