// Tiling against the plain loop it stands for: one composite call per tile, row by row. Random
// grids (fractional and negative rectangles, every corner, several layouts and operations, an
// image tiled onto itself) must give the same bytes; hostile grids must return quickly.
#include <PlimBitmapLib/PlimBitmapLib.h>

#include "composite/PairDrawer.h"
#include "core/ImageInternal.h"
#include "platform/runtime/CFRef.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

using plim::CFRef;

namespace {

enum class Kind { kGrey, kRgb, kArgb };

CFRef<PlimCFImage> Noise(Kind kind, UInt32 w, UInt32 h, std::mt19937 &rng) {
    const UInt32 bpp = kind == Kind::kGrey ? 1 : 4;
    std::vector<UInt8> px(static_cast<size_t>(w) * h * bpp);
    for (size_t i = 0; i < px.size(); i += bpp) {
        const UInt8 a = static_cast<UInt8>(rng());
        px[i] = a;
        for (UInt32 c = 1; c < bpp; ++c)
            px[i + c] = static_cast<UInt8>(kind == Kind::kArgb ? rng() % (a + 1u) : rng());
    }
    CFRef<CGColorSpaceRef> space(kind == Kind::kGrey ? CGColorSpaceCreateDeviceGray()
                                                     : PlimCGColorSpaceCreateMainDisplay());
    const CGImageAlphaInfo alpha = kind == Kind::kGrey  ? kCGImageAlphaNone
                                   : kind == Kind::kRgb ? kCGImageAlphaNoneSkipFirst
                                                        : kCGImageAlphaPremultipliedFirst;
    return CFRef<PlimCFImage>(PlimCFImageCreateWithBuffer(nullptr, px.data(), w, h, 8, bpp * 8,
                                                          w * bpp, space.get(), alpha));
}

CFRef<PlimCFImage> Copy(PlimCFImage image) {
    return CFRef<PlimCFImage>(
        static_cast<PlimCFImage>(const_cast<void *>(PlimCFImageCopy(nullptr, image))));
}

std::vector<UInt8> Pixels(PlimCFImage image) {
    PlimCFImagePromoteImage(image, false, false);
    const UInt8 *p = static_cast<const UInt8 *>(image->buffer);
    const size_t row = static_cast<size_t>(image->width) * (image->bitsPerPixel / 8);
    std::vector<UInt8> out;
    for (UInt32 y = 0; y < image->height; ++y)
        out.insert(out.end(), p + static_cast<size_t>(y) * image->bytesPerRow,
                   p + static_cast<size_t>(y) * image->bytesPerRow + row);
    return out;
}

// The loop tiling stands for, written out; false when the grid is too big to loop over here.
bool TileByHand(PlimCFImage src, PlimCFImage dest, CGRect srcRect, CGRect destRect, int op,
                int origin, uint64_t maxTiles = 20000) {
    auto whole = [](float v) { return v > 0 ? static_cast<UInt32>(v) : 0u; };
    const UInt32 tw = whole(CGRectGetWidth(srcRect)), th = whole(CGRectGetHeight(srcRect));
    const UInt32 dw = whole(CGRectGetWidth(destRect)), dh = whole(CGRectGetHeight(destRect));
    if (tw == 0 || th == 0 || dw == 0 || dh == 0) return true;
    const UInt32 cols = static_cast<UInt32>(ceilf(static_cast<float>(dw) / static_cast<float>(tw)));
    const UInt32 rows = static_cast<UInt32>(ceilf(static_cast<float>(dh) / static_cast<float>(th)));
    if (static_cast<uint64_t>(cols) * rows > maxTiles) return false;
    const float W = srcRect.size.width, H = srcRect.size.height;
    const float maxX = CGRectGetMaxX(destRect), maxY = CGRectGetMaxY(destRect);
    const float ox[4] = {destRect.origin.x, maxX - tw, destRect.origin.x, maxX - tw};
    const float oy[4] = {maxY - th, maxY - th, destRect.origin.y, destRect.origin.y};
    const float sx[4] = {W, -W, W, -W}, sy[4] = {-H, -H, H, H};
    for (UInt32 r = 0; r < rows; ++r)
        for (UInt32 c = 0; c < cols; ++c) {
            const CGRect tile = CGRectMake(static_cast<float>(c) * sx[origin] + ox[origin],
                                           static_cast<float>(r) * sy[origin] + oy[origin], W, H);
            PlimCFImageComposite(src, dest, &srcRect, &tile, 1, op);
        }
    return true;
}

float Coordinate(std::mt19937 &rng, float range) {
    const float v = static_cast<float>(static_cast<int>(rng() % static_cast<UInt32>(2 * range)) -
                                       static_cast<int>(range));
    switch (rng() % 4) {
        case 0: return v + 0.5f;
        case 1: return v + 0.25f * static_cast<float>(rng() % 4);
        default: return v;
    }
}

}  // namespace

TEST(TileGrid, MatchesOneCompositePerTile) {
    std::mt19937 rng(4242);
    const int ops[] = {kPlimCompositeCopySrc, kPlimCompositeSrcOver, kPlimCompositeXOR,
                       kPlimCompositePlus,    kPlimCompositeDifference, kPlimCompositeSoftLight,
                       kPlimCompositeClear};
    int compared = 0;
    for (int trial = 0; trial < 400; ++trial) {
        const Kind kind = static_cast<Kind>(rng() % 3);
        const UInt32 sw = 3 + rng() % 20, sh = 3 + rng() % 20;
        const UInt32 dw = 5 + rng() % 40, dh = 5 + rng() % 40;
        auto src = Noise(kind, sw, sh, rng);
        auto start = Noise(static_cast<Kind>(rng() % 3), dw, dh, rng);
        ASSERT_TRUE(src && start);
        float tileW = 1.0f + static_cast<float>(rng() % 9), tileH = 1.0f + static_cast<float>(rng() % 9);
        if (rng() % 4 == 0) tileW += 0.5f;
        if (rng() % 4 == 0) tileH = -tileH;
        const CGRect srcRect = CGRectMake(Coordinate(rng, 4), Coordinate(rng, 4), tileW, tileH);
        const CGRect destRect = CGRectMake(Coordinate(rng, 60), Coordinate(rng, 60),
                                           Coordinate(rng, 90), Coordinate(rng, 90));
        const int op = ops[rng() % (sizeof ops / sizeof ops[0])];
        const int origin = static_cast<int>(rng() % 4);
        const bool ontoItself = rng() % 8 == 0;

        auto tiled = Copy(start.get()), byHand = Copy(start.get());
        PlimCFImage from = ontoItself ? tiled.get() : src.get();
        PlimCFImage fromByHand = ontoItself ? byHand.get() : src.get();
        if (!TileByHand(fromByHand, byHand.get(), srcRect, destRect, op, origin)) continue;
        PlimCFImageTile(from, tiled.get(), srcRect, destRect, op, origin);
        ASSERT_EQ(PlimCFImageGetBitsPerPixel(tiled.get()), PlimCFImageGetBitsPerPixel(byHand.get()));
        ASSERT_EQ(Pixels(tiled.get()), Pixels(byHand.get()))
            << "trial " << trial << " op " << op << " origin " << origin << " src "
            << srcRect.origin.x << "," << srcRect.origin.y << "," << tileW << "," << tileH
            << " dest " << destRect.origin.x << "," << destRect.origin.y << ","
            << destRect.size.width << "," << destRect.size.height << (ontoItself ? " self" : "");
        ++compared;
    }
    EXPECT_GT(compared, 300);
}

// A tile far smaller than a huge destination rectangle, and grids reaching millions of pixels
// past the image's left and top edges: the tiles off the image cost nothing, the piled ones at
// the edge settle, and the result is the loop's.
TEST(TileGrid, HostileGridsReturnQuicklyWithTheLoopsResult) {
    std::mt19937 rng(7);
    auto src = Noise(Kind::kArgb, 8, 8, rng);
    auto start = Noise(Kind::kArgb, 40, 30, rng);

    // 10^12 one-pixel tiles from the origin: only those on the image draw.
    auto huge = Copy(start.get()), small = Copy(start.get());
    PlimCFImageTile(src.get(), huge.get(), CGRectMake(2, 3, 1, 1), CGRectMake(0, 0, 1e6f, 1e6f),
                    kPlimCompositeSrcOver, kPlimTileOriginMinXMinY);
    PlimCFImageTile(src.get(), small.get(), CGRectMake(2, 3, 1, 1), CGRectMake(0, 0, 40, 30),
                    kPlimCompositeSrcOver, kPlimTileOriginMinXMinY);
    EXPECT_EQ(Pixels(huge.get()), Pixels(small.get()));

    // Piles: whole-pixel tiles land on the left edge of every row and rows of tiles on the top
    // edge. 600 of each, against the loop itself; then 600,000 of each, which must give what
    // 600 gave: the edge settles within a few hundred passes into a cycle whose length divides
    // the difference (SrcOver reaches a fixed point, Difference alternates with period 2).
    auto edge = Noise(Kind::kArgb, 6, 4, rng);
    for (int op : {kPlimCompositeSrcOver, kPlimCompositeDifference, kPlimCompositeXOR}) {
        auto loop = Copy(edge.get()), near = Copy(edge.get()), far = Copy(edge.get());
        const CGRect tile = CGRectMake(1, 2, 3, 2);
        ASSERT_TRUE(TileByHand(src.get(), loop.get(), tile, CGRectMake(-1800, -1200, 1806, 1204), op,
                               kPlimTileOriginMaxXMaxY, 400000));
        PlimCFImageTile(src.get(), near.get(), tile, CGRectMake(-1800, -1200, 1806, 1204), op,
                        kPlimTileOriginMaxXMaxY);
        PlimCFImageTile(src.get(), far.get(), tile, CGRectMake(-1.8e6f, -1.2e6f, 1.8e6f + 6, 1.2e6f + 4),
                        op, kPlimTileOriginMaxXMaxY);
        EXPECT_EQ(Pixels(near.get()), Pixels(loop.get())) << "op " << op;
        EXPECT_EQ(Pixels(far.get()), Pixels(loop.get())) << "op " << op;
    }

    // Sizes past 2^32 and not numbers at all are taken in range, not converted blindly.
    auto odd = Copy(start.get());
    for (float v : {INFINITY, NAN, 1e10f, -1e10f}) {
        PlimCFImageTile(src.get(), odd.get(), CGRectMake(0, 0, v, 4), CGRectMake(0, 0, 40, 30),
                        kPlimCompositeSrcOver, kPlimTileOriginMinXMinY);
        PlimCFImageTile(src.get(), odd.get(), CGRectMake(0, 0, 4, 4), CGRectMake(v, 0, v, 30),
                        kPlimCompositeSrcOver, kPlimTileOriginMaxXMinY);
        PlimCFImageTile(src.get(), odd.get(), CGRectMake(0, 0, 4, 4), CGRectMake(0, v, 40, 1e9f),
                        kPlimCompositeSrcOver, kPlimTileOriginMinXMaxY);
    }
}

// A layout whose rows do not fit its buffer is refused by the driver rather than read past.
TEST(TileGrid, DriverRefusesRowsPastTheBuffer) {
    std::mt19937 rng(3);
    auto src = Noise(Kind::kArgb, 16, 16, rng);
    auto dest = Noise(Kind::kArgb, 16, 16, rng);
    const std::vector<UInt8> before = Pixels(dest.get());
    src.get()->bytesPerRow = 8;  // as if made with rows too short for their pixels
    PlimCFImageComposite(src.get(), dest.get(), nullptr, nullptr, 1, kPlimCompositeCopySrc);
    PlimCFImageTile(src.get(), dest.get(), CGRectMake(0, 0, 4, 4), CGRectMake(0, 0, 16, 16),
                    kPlimCompositeCopySrc, kPlimTileOriginMinXMinY);
    src.get()->bytesPerRow = 64;
    EXPECT_EQ(Pixels(dest.get()), before);
}

// The driver's per-axis placement against the rectangle helpers it stands for: standardize,
// widen to whole pixels, move a negative start to 0, trim at the far edge.
TEST(TileGrid, PlacementMatchesTheRectangleHelpers) {
    std::mt19937 rng(11);
    auto value = [&]() -> float {
        switch (rng() % 6) {
            case 0: return static_cast<float>(static_cast<int>(rng() % 400) - 200);
            case 1: return static_cast<float>(static_cast<int>(rng() % 4000) - 2000) / 8.0f;
            case 2: return std::ldexp(static_cast<float>(rng() % 1000) - 500.0f, static_cast<int>(rng() % 40));
            case 3: return std::bit_cast<float>(static_cast<uint32_t>(rng()));
            case 4: return (rng() % 2 ? -1.0f : 1.0f) * (8388608.0f + static_cast<float>(rng() % 5) - 2.0f);
            default: return static_cast<float>(rng() % 100) - 0.5f;
        }
    };
    for (int i = 0; i < 200000; ++i) {
        const float origin = value(), length = value();
        const UInt32 size = 1 + rng() % 300;
        const float limit = static_cast<float>(size);
        CGRect r = CGRectIntegral(CGRectStandardize(CGRectMake(origin, 0, length, 1)));
        if (r.origin.x < 0) r.origin.x = 0;
        if (r.origin.x + r.size.width > limit) r.size.width = limit - r.origin.x;
        const bool expected = r.size.width > 0 && !CGRectIsNull(CGRectMake(origin, 0, length, 1));
        plim::composite::Extent e;
        const bool placed = plim::composite::PlaceAxis(origin, length, limit, size, &e);
        ASSERT_EQ(placed, expected) << origin << " " << length << " " << size;
        if (placed) {
            ASSERT_EQ(e.pos, static_cast<UInt32>(r.origin.x)) << origin << " " << length;
            ASSERT_EQ(e.len, static_cast<UInt32>(r.size.width)) << origin << " " << length;
        }
    }
}
