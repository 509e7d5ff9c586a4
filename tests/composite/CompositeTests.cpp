// The composite driver and tiling through the public API.
#include <PlimBitmapLib/PlimBitmapLib.h>

#include "composite/CompositeInternal.h"
#include "composite/Kernels.h"
#include "platform/runtime/CFRef.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

using plim::CFRef;

namespace {

using Fill = std::function<UInt8(UInt32 x, UInt32 y)>;

CFRef<PlimCFImage> Grey(UInt32 w, UInt32 h, const Fill &fill) {
    std::vector<UInt8> px(static_cast<size_t>(w) * h);
    for (UInt32 y = 0; y < h; ++y)
        for (UInt32 x = 0; x < w; ++x) px[y * w + x] = fill(x, y);
    CFRef<CGColorSpaceRef> grey(CGColorSpaceCreateDeviceGray());
    return CFRef<PlimCFImage>(PlimCFImageCreateWithBuffer(nullptr, px.data(), w, h, 8, 8, w,
                                                          grey.get(), kCGImageAlphaNone));
}

// Premultiplied ARGB, every pixel given by `fill` as (alpha, colour) with colour <= alpha.
CFRef<PlimCFImage> Argb(UInt32 w, UInt32 h, const std::function<UInt32(UInt32, UInt32)> &fill) {
    std::vector<UInt8> px(static_cast<size_t>(w) * h * 4);
    for (UInt32 y = 0; y < h; ++y)
        for (UInt32 x = 0; x < w; ++x) {
            UInt32 v = fill(x, y);
            for (int i = 0; i < 4; ++i) px[(y * w + x) * 4 + i] = static_cast<UInt8>(v >> (24 - 8 * i));
        }
    return CFRef<PlimCFImage>(PlimCFImageCreateWithBuffer(nullptr, px.data(), w, h, 8, 32, w * 4,
                                                          nullptr, kCGImageAlphaPremultipliedFirst));
}

const UInt8 *Row(PlimCFImage image, UInt32 y) {
    return static_cast<const UInt8 *>(PlimCFImageGetImageBuffer(image)) +
           static_cast<size_t>(y) * PlimCFImageGetBytesPerRow(image);
}

UInt8 At(PlimCFImage image, UInt32 x, UInt32 y) { return Row(image, y)[x]; }

}  // namespace

TEST(Composite, GreyRectanglesRoundClipAndSkip) {
    auto src = Grey(100, 100, [](UInt32 x, UInt32 y) { return static_cast<UInt8>(x + y); });
    auto dest = Grey(100, 100, [](UInt32, UInt32) { return 0; });
    ASSERT_TRUE(src && dest);
    // Negative source origin moves to 0 and keeps its size; a half-pixel rectangle widens to
    // 2 x 2; a rectangle wholly to the right is skipped; one to the left draws at the edge.
    const CGRect srcRects[] = {CGRectMake(-10, 0, 50, 50), CGRectMake(0.5f, 0.5f, 1, 1),
                               CGRectMake(0, 0, 5, 5), CGRectMake(0, 0, 20, 20)};
    const CGRect destRects[] = {CGRectMake(0, 0, 50, 50), CGRectMake(60.5f, 60.5f, 1, 1),
                                CGRectMake(150, 0, 5, 5), CGRectMake(-50, 60, 20, 20)};
    PlimCFImageComposite(src.get(), dest.get(), srcRects, destRects, 4, kPlimCompositeCopySrc);
    for (UInt32 y = 0; y < 50; ++y)
        for (UInt32 x = 0; x < 50; ++x) ASSERT_EQ(At(dest.get(), x, y), x + y);
    EXPECT_EQ(At(dest.get(), 50, 0), 0);
    EXPECT_EQ(At(dest.get(), 0, 50), 0);
    EXPECT_EQ(At(dest.get(), 61, 60), 1);
    EXPECT_EQ(At(dest.get(), 61, 61), 2);
    EXPECT_EQ(At(dest.get(), 62, 62), 0);
    EXPECT_EQ(At(dest.get(), 0, 60), 0);
    EXPECT_EQ(At(dest.get(), 19, 79), 19 + 19);
    EXPECT_EQ(At(dest.get(), 20, 79), 0);

    // Negative width is standardized: (50, 0, -10, 1) is (40, 0, 10, 1).
    const CGRect neg = CGRectMake(50, 0, -10, 1), target = CGRectMake(0, 99, 10, 1);
    PlimCFImageComposite(src.get(), dest.get(), &neg, &target, 1, kPlimCompositeCopySrc);
    EXPECT_EQ(At(dest.get(), 0, 99), 40);
    EXPECT_EQ(At(dest.get(), 9, 99), 49);

    // Clear in an opaque layout is white, inside the rectangle only.
    const CGRect clear = CGRectMake(90, 90, 10, 10);
    PlimCFImageComposite(src.get(), dest.get(), nullptr, &clear, 0, kPlimCompositeClear);
    EXPECT_EQ(At(dest.get(), 90, 90), 255);
    EXPECT_EQ(At(dest.get(), 99, 99), 255);
    EXPECT_EQ(At(dest.get(), 89, 90), 0);
}

TEST(Composite, OutOfRangeOperationsDrawNothing) {
    auto src = Grey(10, 10, [](UInt32, UInt32) { return 9; });
    auto dest = Grey(10, 10, [](UInt32, UInt32) { return 3; });
    for (int op : {24, -1, 1000}) {
        PlimCFImageComposite(src.get(), dest.get(), nullptr, nullptr, 0, op);
        EXPECT_EQ(At(dest.get(), 5, 5), 3);
    }
    PlimCFImageComposite(src.get(), dest.get(), nullptr, nullptr, 0, kPlimCompositeDarken);
    EXPECT_EQ(At(dest.get(), 5, 5), 3);
    PlimCFImageComposite(src.get(), dest.get(), nullptr, nullptr, 0, kPlimCompositePlus);
    EXPECT_EQ(At(dest.get(), 5, 5), 12);
}

TEST(Composite, PairsOfDifferentSizesScaleFromTheBottom) {
    // Rows 0-89 are 10, the bottom ten rows 200.
    auto src = Grey(100, 100, [](UInt32, UInt32 y) { return y >= 90 ? 200 : 10; });
    auto dest = Grey(100, 100, [](UInt32, UInt32) { return 0; });
    const CGRect s = CGRectMake(0, 0, 50, 10);
    const CGRect same = CGRectMake(0, 0, 50, 10), taller = CGRectMake(50, 0, 50, 20);
    PlimCFImageComposite(src.get(), dest.get(), &s, &same, 1, kPlimCompositeCopySrc);
    EXPECT_EQ(At(dest.get(), 0, 0), 10);
    EXPECT_EQ(At(dest.get(), 49, 9), 10);
    PlimCFImageComposite(src.get(), dest.get(), &s, &taller, 1, kPlimCompositeCopySrc);
    for (UInt32 y = 0; y < 20; ++y) ASSERT_EQ(At(dest.get(), 75, y), 200) << y;
    EXPECT_EQ(At(dest.get(), 75, 20), 0);

    // A destination rectangle cut at the image's edge scales the source down into it; each of
    // several scaled pairs draws from the whole source, not from an earlier crop.
    auto flat = Grey(40, 40, [](UInt32, UInt32) { return 77; });
    const CGRect srcs[] = {CGRectMake(0, 0, 20, 20), CGRectMake(0, 0, 40, 40)};
    const CGRect dests[] = {CGRectMake(90, 90, 20, 20), CGRectMake(0, 30, 10, 10)};
    PlimCFImageComposite(flat.get(), dest.get(), srcs, dests, 2, kPlimCompositeCopySrc);
    EXPECT_EQ(At(dest.get(), 90, 90), 77);
    EXPECT_EQ(At(dest.get(), 99, 99), 77);
    EXPECT_EQ(At(dest.get(), 89, 89), 0);
    EXPECT_EQ(At(dest.get(), 0, 30), 77);
    EXPECT_EQ(At(dest.get(), 9, 39), 77);
    EXPECT_EQ(At(dest.get(), 10, 39), 0);

    // Both lists null and different sizes: the whole source fills the whole destination.
    auto small = Grey(10, 10, [](UInt32, UInt32) { return 5; });
    PlimCFImageComposite(flat.get(), small.get(), nullptr, nullptr, 0, kPlimCompositeCopySrc);
    EXPECT_EQ(At(small.get(), 0, 0), 77);
    EXPECT_EQ(At(small.get(), 9, 9), 77);
}

TEST(Composite, PremultipliedWholeImagesMatchTheKernel) {
    auto pixel = [](UInt32 x, UInt32 y) {
        UInt32 a = (x * 37 + y * 11) & 0xFF, c = a / 2;
        return (a << 24) | (c << 16) | ((a / 3) << 8) | c;
    };
    auto pixel2 = [](UInt32 x, UInt32 y) {
        UInt32 a = (x * 5 + y * 71 + 13) & 0xFF;
        return (a << 24) | ((a / 4) << 16) | (a << 8) | (a / 7);
    };
    auto src = Argb(33, 17, pixel);
    auto dest = Argb(33, 17, pixel2);
    ASSERT_TRUE(src && dest);
    PlimCFImageComposite(src.get(), dest.get(), nullptr, nullptr, 0, kPlimCompositeSoftLight);
    for (UInt32 y = 0; y < 17; ++y)
        for (UInt32 x = 0; x < 33; ++x) {
            UInt8 s[4], d[4];
            for (int i = 0; i < 4; ++i) {
                s[i] = static_cast<UInt8>(pixel(x, y) >> (24 - 8 * i));
                d[i] = static_cast<UInt8>(pixel2(x, y) >> (24 - 8 * i));
            }
            Composite_ARGB_8888_SoftLight(s, d);
            ASSERT_EQ(0, memcmp(d, Row(dest.get(), y) + x * 4, 4)) << x << "," << y;
        }
}

TEST(Composite, SelfCompositingReadsASnapshot) {
    auto image = Grey(4, 6, [](UInt32, UInt32 y) { return static_cast<UInt8>(y * 10); });
    const CGRect s = CGRectMake(0, 0, 4, 5), d = CGRectMake(0, 1, 4, 5);
    PlimCFImageComposite(image.get(), image.get(), &s, &d, 1, kPlimCompositeCopySrc);
    for (UInt32 y = 1; y < 6; ++y) EXPECT_EQ(At(image.get(), 2, y), (y - 1) * 10);
}

TEST(Composite, RenderedImageShowsTheNewPixels) {
    auto src = Grey(8, 8, [](UInt32, UInt32) { return 99; });
    auto dest = Grey(8, 8, [](UInt32, UInt32) { return 1; });
    CGImageRef before = PlimCFImageGetCGImage(dest.get());
    ASSERT_NE(before, nullptr);
    PlimCFImageComposite(src.get(), dest.get(), nullptr, nullptr, 1, kPlimCompositeCopySrc);
    CGImageRef after = PlimCFImageGetCGImage(dest.get());
    ASSERT_NE(after, nullptr);
    CFRef<CFDataRef> data(CGDataProviderCopyData(CGImageGetDataProvider(after)));
    ASSERT_TRUE(data);
    EXPECT_EQ(CFDataGetBytePtr(data.get())[0], 99);
}

TEST(Tile, LayoutsFromEachCorner) {
    auto src = Argb(100, 100, [](UInt32 x, UInt32 y) {
        UInt32 a = 128 + (x + y) % 128;
        return (a << 24) | ((x % a) << 16) | ((y % a) << 8) | 7;
    });
    auto big = Argb(300, 200, [](UInt32, UInt32) { return 0; });
    PlimCFImageTile(src.get(), big.get(), CGRectMake(0, 0, 100, 100), CGRectMake(0, 0, 300, 200),
                    kPlimCompositeCopySrc, kPlimTileOriginMinXMinY);
    for (UInt32 y = 0; y < 200; y += 7)
        for (UInt32 x = 0; x < 300; x += 3)
            ASSERT_EQ(0, memcmp(Row(big.get(), y) + x * 4, Row(src.get(), y % 100) + (x % 100) * 4, 4))
                << x << "," << y;

    // From the right on 250 wide: tiles at 150, 50 and -50; the last moves to 0 and draws
    // its full width over the second.
    auto wide = Grey(250, 100, [](UInt32, UInt32) { return 0; });
    auto ramp = Grey(100, 100, [](UInt32 x, UInt32) { return static_cast<UInt8>(x); });
    PlimCFImageTile(ramp.get(), wide.get(), CGRectMake(0, 0, 100, 100), CGRectMake(0, 0, 250, 100),
                    kPlimCompositeCopySrc, kPlimTileOriginMaxXMinY);
    EXPECT_EQ(At(wide.get(), 0, 5), 0);
    EXPECT_EQ(At(wide.get(), 99, 5), 99);
    EXPECT_EQ(At(wide.get(), 100, 5), 50);
    EXPECT_EQ(At(wide.get(), 149, 5), 99);
    EXPECT_EQ(At(wide.get(), 150, 5), 0);
    EXPECT_EQ(At(wide.get(), 249, 5), 99);

    // From the top-right corner rows step upward: the first tile sits at y = 200.
    auto tall = Grey(100, 300, [](UInt32, UInt32) { return 0; });
    auto rows = Grey(100, 100, [](UInt32, UInt32 y) { return static_cast<UInt8>(y + 1); });
    PlimCFImageTile(rows.get(), tall.get(), CGRectMake(0, 0, 100, 100), CGRectMake(0, 0, 100, 300),
                    kPlimCompositeCopySrc, kPlimTileOriginMinXMaxY);
    for (UInt32 y = 0; y < 300; y += 50) EXPECT_EQ(At(tall.get(), 3, y), y % 100 + 1) << y;
}

TEST(Tile, DegenerateInputsDrawNothing) {
    auto src = Argb(10, 10, [](UInt32, UInt32) { return 0xFF102030u; });
    auto dest = Grey(20, 20, [](UInt32, UInt32) { return 4; });
    for (int origin : {4, -1})
        PlimCFImageTile(src.get(), dest.get(), CGRectMake(0, 0, 10, 10), CGRectMake(0, 0, 20, 20),
                        kPlimCompositeCopySrc, origin);
    PlimCFImageTile(src.get(), dest.get(), CGRectMake(0, 0, 0.5f, 10), CGRectMake(0, 0, 20, 20),
                    kPlimCompositeCopySrc, 2);
    PlimCFImageTile(src.get(), dest.get(), CGRectMake(0, 0, 10, 10), CGRectMake(0, 0, 20, 0),
                    kPlimCompositeCopySrc, 2);
    // Not even unified: still grey, still untouched.
    EXPECT_EQ(PlimCFImageGetAlphaInfo(dest.get()), kCGImageAlphaNone);
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(dest.get()), 8u);
    EXPECT_EQ(At(dest.get(), 10, 10), 4);
}

TEST(Tile, OntoItselfSeesEarlierTiles) {
    auto image = Grey(30, 10, [](UInt32 x, UInt32) { return static_cast<UInt8>(x < 10 ? 1 : 0); });
    // Tile (0,0,10,10) across the whole width: the second tile copies the first, unchanged.
    PlimCFImageTile(image.get(), image.get(), CGRectMake(0, 0, 10, 10), CGRectMake(0, 0, 30, 10),
                    kPlimCompositePlus, kPlimTileOriginMinXMinY);
    EXPECT_EQ(At(image.get(), 0, 0), 2);   // 1 + 1
    EXPECT_EQ(At(image.get(), 10, 0), 2);  // 0 + the already-doubled first tile
    EXPECT_EQ(At(image.get(), 20, 0), 2);
}

// Copying only the rectangle's rows must give the scaled picture that duplicating the whole
// source and cropping it gives.
TEST(Composite, PairSourceFromRegionMatchesCropOfWholeCopy) {
    auto argb = Argb(64, 48, [](UInt32 x, UInt32 y) {
        UInt32 a = (x * 29 + y * 13) & 0xFF;
        return (a << 24) | ((a * x / 64) << 16) | ((a * y / 48) << 8) | (a / 2);
    });
    auto grey = Grey(64, 48, [](UInt32 x, UInt32 y) { return static_cast<UInt8>(x * 3 + y * 5); });
    const CGRect rects[] = {CGRectMake(0, 0, 64, 48), CGRectMake(5, 7, 20, 11),
                            CGRectMake(40, 30, 24, 18), CGRectMake(0, 47, 64, 1)};
    const CGSize sizes[] = {CGSizeMake(13, 9), CGSizeMake(50, 31), CGSizeMake(3, 40)};
    for (PlimCFImage image : {argb.get(), grey.get()})
        for (const CGRect &r : rects)
            for (const CGSize &size : sizes) {
                CFRef<PlimCFImage> fast(plim::composite::CreatePairSource(image, r, size, true));
                CFRef<PlimCFImage> slow(plim::composite::CreatePairSource(image, r, size, false));
                ASSERT_TRUE(fast && slow);
                const UInt32 w = PlimCFImageGetWidth(slow.get()), h = PlimCFImageGetHeight(slow.get());
                ASSERT_EQ(PlimCFImageGetWidth(fast.get()), w);
                ASSERT_EQ(PlimCFImageGetHeight(fast.get()), h);
                ASSERT_EQ(PlimCFImageGetBitsPerPixel(fast.get()), PlimCFImageGetBitsPerPixel(slow.get()));
                const size_t rowBytes = static_cast<size_t>(w) * PlimCFImageGetBitsPerPixel(slow.get()) / 8;
                for (UInt32 y = 0; y < h; ++y)
                    ASSERT_EQ(0, memcmp(Row(fast.get(), y), Row(slow.get(), y), rowBytes))
                        << r.origin.x << "," << r.origin.y << " row " << y;
            }
}

TEST(Composite, SourceNeverChangesAcrossFormats) {
    auto argb = Argb(6, 6, [](UInt32 x, UInt32) { return 0x80402000u | x; });
    auto grey = Grey(6, 6, [](UInt32, UInt32) { return 100; });
    // Opaque grey destination takes colour and alpha; the ARGB source stays as it was.
    PlimCFImageComposite(argb.get(), grey.get(), nullptr, nullptr, 0, kPlimCompositeCopySrc);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(grey.get()), kCGImageAlphaPremultipliedFirst);
    EXPECT_EQ(0, memcmp(Row(grey.get(), 2) + 12, Row(argb.get(), 2) + 12, 4));
    EXPECT_EQ(Row(argb.get(), 0)[3], 0);
    // A grey source onto ARGB is promoted in a private copy only.
    auto greySrc = Grey(6, 6, [](UInt32, UInt32) { return 255; });
    PlimCFImageComposite(greySrc.get(), argb.get(), nullptr, nullptr, 0, kPlimCompositeCopySrc);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(greySrc.get()), kCGImageAlphaNone);
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(greySrc.get()), 8u);
    EXPECT_EQ(Row(argb.get(), 1)[0], 255);
    EXPECT_EQ(Row(argb.get(), 1)[1], 255);
}

// Tiling gives exactly what one composite call per tile gives, cut (scaled) edge tiles included.
TEST(Tile, SameAsOneCompositePerTile) {
    auto src = Argb(40, 30, [](UInt32 x, UInt32 y) {
        UInt32 a = 100 + (x * 7 + y * 3) % 156;
        return (a << 24) | ((x * 5 % a) << 16) | ((y * 9 % a) << 8) | (a / 3);
    });
    auto tiled = Argb(130, 95, [](UInt32 x, UInt32 y) { return ((x + y) & 0x7F) << 24; });
    auto byHand = Argb(130, 95, [](UInt32 x, UInt32 y) { return ((x + y) & 0x7F) << 24; });
    const CGRect tile = CGRectMake(3, 2, 25, 20);
    PlimCFImageTile(src.get(), tiled.get(), tile, CGRectMake(0, 0, 130, 95), kPlimCompositeSrcOver,
                    kPlimTileOriginMinXMinY);
    for (UInt32 r = 0; r < 5; ++r)
        for (UInt32 c = 0; c < 6; ++c) {
            const CGRect d = CGRectMake(c * 25.0f, r * 20.0f, 25, 20);
            PlimCFImageComposite(src.get(), byHand.get(), &tile, &d, 1, kPlimCompositeSrcOver);
        }
    for (UInt32 y = 0; y < 95; ++y)
        ASSERT_EQ(0, memcmp(Row(tiled.get(), y), Row(byHand.get(), y), 130 * 4)) << y;
    EXPECT_NE(Row(tiled.get(), 90)[127 * 4], 0);  // the cut corner tile was drawn
}
