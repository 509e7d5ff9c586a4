// Creation as a careless or hostile caller drives it: layouts whose rows cannot hold their
// pixels, sizes that wrap 32 bits, and enumeration values outside the listed ones.
#include <PlimBitmapLib/PlimBitmapLib.h>

#include <gtest/gtest.h>

#include "io/IOTestSupport.h"

#include <cstring>
#include <vector>

namespace {

struct Layout {
    UInt32 bitsPerComponent, bitsPerPixel;
    bool grey;
    CGImageAlphaInfo alpha;
};

CGColorSpaceRef Space(bool grey) {
    static CGColorSpaceRef rgb = PlimCGColorSpaceCreateMainDisplay();
    static CGColorSpaceRef gray = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    return grey ? gray : rgb;
}

TEST(ImageMisuse, CreateWithBufferRefusesRowsThatCannotHoldTheirPixels) {
    const Layout layouts[] = {{8, 32, false, kCGImageAlphaPremultipliedFirst},
                              {8, 24, false, kCGImageAlphaNone},
                              {8, 8, true, kCGImageAlphaNone},
                              {1, 1, true, kCGImageAlphaNone}};
    for (const Layout &l : layouts) {
        for (UInt32 width : {1u, 7u, 13u}) {
            const UInt32 height = 3, shortest = (width * l.bitsPerPixel + 7) / 8;
            // The caller's memory is exactly as long as the rows it describes; a refused
            // creation must not read it, an accepted one reads all of it.
            for (UInt32 rowBytes : {shortest - 1, shortest, shortest + 5}) {
                if (rowBytes == 0) continue;  // 0 asks for the shortest row
                std::vector<UInt8> pixels(static_cast<size_t>(rowBytes) * height, 0x5A);
                PlimCFImage image =
                    PlimCFImageCreateWithBuffer(nullptr, pixels.data(), width, height,
                                                l.bitsPerComponent, l.bitsPerPixel, rowBytes, Space(l.grey), l.alpha);
                if (rowBytes < shortest) {
                    EXPECT_EQ(image, nullptr) << l.bitsPerPixel << " bpp, width " << width << ", row " << rowBytes;
                    continue;
                }
                ASSERT_NE(image, nullptr) << l.bitsPerPixel << " bpp, width " << width << ", row " << rowBytes;
                EXPECT_EQ(PlimCFImageGetBytesPerRow(image), rowBytes);
                EXPECT_EQ(PlimCFImageGetImageBufferSize(image), rowBytes * height);
                CFRelease(image);
            }
        }
    }

    // The reported layout: 65536 x 65536 pixels of four bytes in rows of 4 bytes. Its true size
    // wraps a 32-bit product to 0; the 4-byte buffer must not be trusted for anything.
    UInt8 tiny[4] = {1, 2, 3, 4};
    EXPECT_EQ(PlimCFImageCreateWithBuffer(nullptr, tiny, 65536, 65536, 8, 32, 4, nullptr,
                                          kCGImageAlphaPremultipliedFirst),
              nullptr);
    // Computed row lengths and buffer sizes that do not fit 32 bits.
    EXPECT_EQ(PlimCFImageCreateWithBuffer(nullptr, tiny, 0x80000000u, 1, 8, 32, 0, nullptr,
                                          kCGImageAlphaPremultipliedFirst),
              nullptr);
    EXPECT_EQ(PlimCFImageCreateWithBuffer(nullptr, tiny, 65536, 65537, 8, 8, 0, Space(true), kCGImageAlphaNone),
              nullptr);
    EXPECT_EQ(PlimCFImageCreateWithBuffer(nullptr, tiny, 1, 1, 0x40000000u, 0, 0, nullptr,
                                          kCGImageAlphaPremultipliedFirst),
              nullptr);
}

TEST(ImageMisuse, CropAndFlipOfPaddedRowsReadOnlyTheRows) {
    // 5 x 4 premultiplied pixels in rows of 20 bytes (no padding) and of 29 (odd padding): the
    // row copies must walk the caller's row length and nothing beyond the last row's pixels.
    for (UInt32 rowBytes : {20u, 29u}) {
        const UInt32 width = 5, height = 4;
        std::vector<UInt8> pixels(static_cast<size_t>(rowBytes) * height, 0);
        for (UInt32 y = 0; y < height; ++y)
            for (UInt32 x = 0; x < width; ++x) {
                UInt8 *p = &pixels[y * rowBytes + x * 4];
                p[0] = 255;
                p[1] = static_cast<UInt8>(x * 40);
                p[2] = static_cast<UInt8>(y * 60);
                p[3] = 7;
            }
        PlimCFImage image = PlimCFImageCreateWithBuffer(nullptr, pixels.data(), width, height, 8, 32, rowBytes,
                                                        nullptr, kCGImageAlphaPremultipliedFirst);
        ASSERT_NE(image, nullptr);
        // Columns 1-3 of the two bottom rows (drawing space counts y from the bottom).
        PlimCFImageCropToRect(image, CGRectMake(1, 0, 3, 2));
        ASSERT_EQ(PlimCFImageGetWidth(image), 3u);
        ASSERT_EQ(PlimCFImageGetHeight(image), 2u);
        PlimCFImageFlipVertically(image);
        const auto *out = static_cast<const UInt8 *>(PlimCFImageGetImageBuffer(image));
        const UInt32 outRow = PlimCFImageGetBytesPerRow(image);
        for (UInt32 y = 0; y < 2; ++y)
            for (UInt32 x = 0; x < 3; ++x) {
                const UInt8 *p = out + y * outRow + x * 4;
                EXPECT_EQ(p[1], (x + 1) * 40) << rowBytes;
                EXPECT_EQ(p[2], (3 - y) * 60) << rowBytes;  // flipped: the last row first
            }
        CFRelease(image);
    }
}

TEST(ImageMisuse, EnumerationValuesOutsideTheListAreRefused) {
    UInt8 pixel[4] = {255, 1, 2, 3};
    CFDataRef png = iotest::MakeData(iotest::EncodePNG(iotest::Bytes(4, 9), 1, 1, PNG_FORMAT_RGBA));
    CGDataProviderRef pngProvider = CGDataProviderCreateWithCFData(png);
    CFRelease(png);
    CGImageRef decoded = CGImageCreateWithPNGDataProvider(pngProvider, nullptr, true, kCGRenderingIntentPerceptual);
    ASSERT_NE(decoded, nullptr);
    CGImageRelease(decoded);
    // What a C caller can pass where the library declares an enumeration.
    for (int value : {8, 31, 255, -1, 0x7FFFFFFF}) {
        const auto alpha = static_cast<CGImageAlphaInfo>(value);
        EXPECT_EQ(PlimCFImageCreateWithBuffer(nullptr, pixel, 1, 1, 8, 32, 4, nullptr, alpha), nullptr) << value;
        EXPECT_EQ(PlimCFContextCreate(nullptr, 1, 1, nullptr, 8, 0, nullptr, alpha), nullptr) << value;

        CFDataRef data = CFDataCreate(nullptr, pixel, 4);
        CGDataProviderRef provider = CGDataProviderCreateWithCFData(data);
        EXPECT_EQ(CGImageCreate(1, 1, 8, 32, 4, Space(false), static_cast<CGBitmapInfo>(value), provider, nullptr,
                                true, kCGRenderingIntentDefault),
                  nullptr);
        EXPECT_EQ(CGImageCreate(1, 1, 8, 32, 4, Space(false), kCGImageAlphaPremultipliedFirst, provider, nullptr,
                                true, static_cast<CGColorRenderingIntent>(value)),
                  nullptr);
        EXPECT_EQ(CGImageCreateWithPNGDataProvider(pngProvider, nullptr, true, static_cast<CGColorRenderingIntent>(value)),
                  nullptr);
        CGDataProviderRelease(provider);
        CFRelease(data);

        CFURLRef url = CFURLCreateWithFileSystemPath(nullptr, CFSTR("/tmp/x.png"), static_cast<CFURLPathStyle>(value),
                                                     false);
        EXPECT_EQ(url, nullptr) << value;
        if (url) CFRelease(url);
    }
    CGDataProviderRelease(pngProvider);
    // The listed values still work, the last one included.
    PlimCFImage image = PlimCFImageCreateWithBuffer(nullptr, pixel, 4, 1, 8, 8, 4, nullptr, kCGImageAlphaOnly);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(image), kCGImageAlphaOnly);
    CFRelease(image);
}

}  // namespace
