// Bitmap contexts: which layouts are accepted, memory ownership, snapshots, the transform.
#include "GraphicsTestSupport.h"

#include <gtest/gtest.h>

namespace {

TEST(BitmapContext, AcceptsExactlyTheSupportedLayouts) {
    CGColorSpaceRef rgb = gfxtest::RGB();
    CGColorSpaceRef grey = gfxtest::Grey();
    struct Case {
        size_t bpc;
        CGColorSpaceRef space;
        uint32_t alpha;
        bool ok;
        size_t bpp;
    } cases[] = {
        {8, rgb, 1, true, 32},  {8, rgb, 2, true, 32},     {8, rgb, 5, true, 32},
        {8, rgb, 6, true, 32},  {8, grey, 0, true, 8},     {8, nullptr, 7, true, 8},
        {8, rgb, 0, false, 0},  {8, rgb, 3, false, 0},     {8, rgb, 4, false, 0},
        {8, grey, 1, false, 0}, {8, grey, 3, false, 0},    {1, grey, 0, false, 0},
        {16, rgb, 1, false, 0}, {8, nullptr, 2, false, 0}, {8, rgb, 2 | 0x1000, false, 0},
    };
    for (const Case &c : cases) {
        std::vector<uint8_t> memory(4 * 4 * 4, 0x5A);
        CGContextRef ctx = CGBitmapContextCreate(memory.data(), 4, 4, c.bpc, 16, c.space, c.alpha);
        EXPECT_EQ(ctx != nullptr, c.ok) << c.bpc << " alpha " << c.alpha;
        if (ctx) {
            EXPECT_EQ(CGBitmapContextGetData(ctx), memory.data());
            EXPECT_EQ(CGBitmapContextGetBitsPerPixel(ctx), c.bpp);
            EXPECT_EQ(CGBitmapContextGetBytesPerRow(ctx), 16u);
            EXPECT_EQ(CGBitmapContextGetHeight(ctx), 4u);
            EXPECT_EQ(CGBitmapContextGetAlphaInfo(ctx), static_cast<CGImageAlphaInfo>(c.alpha));
            CGContextRelease(ctx);
        }
        // Neither creating nor refusing writes into the caller's memory.
        EXPECT_EQ(memory, std::vector<uint8_t>(4 * 4 * 4, 0x5A));
    }
    // Rows too short for the width, zero sizes, sizes that overflow.
    std::vector<uint8_t> memory(64);
    EXPECT_EQ(CGBitmapContextCreate(memory.data(), 4, 4, 8, 15, rgb, 2), nullptr);
    EXPECT_EQ(CGBitmapContextCreate(memory.data(), 0, 4, 8, 16, rgb, 2), nullptr);
    EXPECT_EQ(CGBitmapContextCreate(nullptr, SIZE_MAX / 4 + 1, 1, 8, 0, rgb, 2), nullptr);
    EXPECT_EQ(CGBitmapContextCreate(nullptr, 65536, 65536, 8, 0, rgb, 2), nullptr);
    CGColorSpaceRelease(rgb);
    CGColorSpaceRelease(grey);
}

TEST(BitmapContext, OwnMemoryIsZeroedAndSnapshotsAreCopies) {
    CGColorSpaceRef rgb = gfxtest::RGB();
    CGContextRef ctx =
        CGBitmapContextCreate(nullptr, 3, 2, 8, 0, rgb, kCGImageAlphaPremultipliedFirst);
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(CGBitmapContextGetBytesPerRow(ctx), 12u);
    auto *data = static_cast<uint8_t *>(CGBitmapContextGetData(ctx));
    for (int i = 0; i < 24; ++i) ASSERT_EQ(data[i], 0);
    data[5] = 77;
    CGImageRef snapshot = CGBitmapContextCreateImage(ctx);
    ASSERT_NE(snapshot, nullptr);
    data[5] = 1;  // later drawing does not reach the snapshot
    CFDataRef bytes = CGDataProviderCopyData(CGImageGetDataProvider(snapshot));
    EXPECT_EQ(CFDataGetBytePtr(bytes)[5], 77);
    EXPECT_EQ(CGImageGetAlphaInfo(snapshot), kCGImageAlphaPremultipliedFirst);
    EXPECT_EQ(CGImageGetBitsPerPixel(snapshot), 32u);
    EXPECT_TRUE(CFEqual(CGImageGetColorSpace(snapshot), rgb));
    CFRelease(bytes);
    CGImageRelease(snapshot);
    CGContextRelease(ctx);
    CGContextRelease(nullptr);
    CGColorSpaceRelease(rgb);
}

TEST(BitmapContext, TransformSaveAndRestore) {
    CGColorSpaceRef grey = gfxtest::Grey();
    CGContextRef ctx = CGBitmapContextCreate(nullptr, 4, 4, 8, 0, grey, 0);
    CGContextTranslateCTM(ctx, 0, 10);
    CGContextSaveGState(ctx);
    CGContextScaleCTM(ctx, 2, -1);
    CGAffineTransform t = CGContextGetCTM(ctx);
    EXPECT_EQ(t.a, 2);
    EXPECT_EQ(t.d, -1);
    EXPECT_EQ(t.ty, 10);
    CGContextTranslateCTM(ctx, 1, 1);  // in scaled units
    t = CGContextGetCTM(ctx);
    EXPECT_EQ(t.tx, 2);
    EXPECT_EQ(t.ty, 9);
    CGContextRestoreGState(ctx);
    t = CGContextGetCTM(ctx);
    EXPECT_EQ(t.a, 1);
    EXPECT_EQ(t.tx, 0);
    EXPECT_EQ(t.ty, 10);
    CGContextRestoreGState(ctx);  // unmatched: nothing happens
    EXPECT_EQ(CGContextGetCTM(ctx).ty, 10);
    CGContextRelease(ctx);
    CGColorSpaceRelease(grey);
}

}  // namespace
