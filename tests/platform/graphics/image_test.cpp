// Data providers and rendered images: layout checks, release callbacks, equality.
#include "GraphicsTestSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdint>

namespace {

using gfxtest::MakeImage;

struct ReleaseLog {
    int calls = 0;
    const void *data = nullptr;
    size_t size = 0;
};

void LogRelease(void *info, const void *data, size_t size) {
    auto *log = static_cast<ReleaseLog *>(info);
    ++log->calls;
    log->data = data;
    log->size = size;
}

TEST(DataProvider, ReleaseCallbackRunsOnceWhenTheLastUserGoes) {
    static const uint8_t bytes[16] = {};
    ReleaseLog log;
    CGDataProviderRef provider =
        CGDataProviderCreateWithData(&log, bytes, sizeof bytes, LogRelease);
    ASSERT_NE(provider, nullptr);
    CGColorSpaceRef grey = gfxtest::Grey();
    CGImageRef image = CGImageCreate(4, 4, 8, 8, 4, grey, kCGImageAlphaNone, provider, nullptr,
                                     true, kCGRenderingIntentDefault);
    ASSERT_NE(image, nullptr);
    CGDataProviderRelease(provider);
    EXPECT_EQ(log.calls, 0);  // the image still holds it
    EXPECT_EQ(CGImageGetDataProvider(image), provider);
    CGImageRelease(image);
    EXPECT_EQ(log.calls, 1);
    EXPECT_EQ(log.data, bytes);
    EXPECT_EQ(log.size, sizeof bytes);
    CGColorSpaceRelease(grey);
    CGDataProviderRelease(nullptr);
}

TEST(DataProvider, CopiesDataAndReadsFiles) {
    const UInt8 bytes[] = {9, 8, 7};
    CFDataRef data = CFDataCreate(nullptr, bytes, 3);
    CGDataProviderRef provider = CGDataProviderCreateWithCFData(data);
    CFRelease(data);  // the provider keeps its own reference
    CFDataRef copy = CGDataProviderCopyData(provider);
    ASSERT_EQ(CFDataGetLength(copy), 3);
    EXPECT_EQ(CFDataGetBytePtr(copy)[2], 7);
    CFRelease(copy);
    CGDataProviderRelease(provider);

    char path[] = "/tmp/plim_provider_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "hello", 5), 5);
    close(fd);
    CFStringRef s = CFStringCreateWithCString(nullptr, path, kCFStringEncodingUTF8);
    CFURLRef url = CFURLCreateWithFileSystemPath(nullptr, s, kCFURLPOSIXPathStyle, false);
    CGDataProviderRef fromFile = CGDataProviderCreateWithURL(url);
    ASSERT_NE(fromFile, nullptr);
    CFDataRef contents = CGDataProviderCopyData(fromFile);
    ASSERT_EQ(CFDataGetLength(contents), 5);
    EXPECT_EQ(std::memcmp(CFDataGetBytePtr(contents), "hello", 5), 0);
    CFRelease(contents);
    CGDataProviderRelease(fromFile);
    unlink(path);
    EXPECT_EQ(CGDataProviderCreateWithURL(url), nullptr);  // the file is gone
    CFRelease(url);
    CFRelease(s);
}

TEST(Image, SupportedLayoutsAndRefusals) {
    CGColorSpaceRef rgb = gfxtest::RGB();
    CGColorSpaceRef grey = gfxtest::Grey();
    std::vector<uint8_t> bytes(64 * 4, 0);
    struct Case {
        size_t bpc, bpp, bpr;
        CGColorSpaceRef space;
        uint32_t alpha;
        bool ok;
    } cases[] = {
        {8, 8, 4, grey, 0, true},
        {1, 1, 1, grey, 0, true},
        {8, 16, 8, grey, 1, true},
        {8, 16, 8, grey, 4, true},
        {8, 24, 12, rgb, 0, true},
        {8, 32, 16, rgb, 1, true},
        {8, 32, 16, rgb, 3, true},
        {8, 32, 16, rgb, 6, true},
        {8, 8, 4, nullptr, 7, true},
        {8, 8, 4, rgb, 7, true},
        {8, 32, 16, rgb, 0, true},
        {8, 24, 12, rgb, 1, false},
        {8, 8, 4, rgb, 0, false},
        {8, 32, 16, grey, 2, false},
        {16, 64, 32, rgb, 1, false},
        {8, 8, 4, nullptr, 0, false},
        {8, 32, 15, rgb, 2, false},           // row too short
        {8, 32, 16, rgb, 2 | 0x2000, false},  // byte-order flags
    };
    for (const Case &c : cases) {
        CGImageRef image = MakeImage(bytes, 4, 4, c.bpc, c.bpp, c.bpr, c.space, c.alpha);
        EXPECT_EQ(image != nullptr, c.ok) << c.bpc << "/" << c.bpp << " alpha " << c.alpha;
        if (image) {
            EXPECT_EQ(CGImageGetWidth(image), 4u);
            EXPECT_EQ(CGImageGetBitsPerPixel(image), c.bpp);
            EXPECT_EQ(CGImageGetBytesPerRow(image), c.bpr);
            EXPECT_EQ(CGImageGetAlphaInfo(image), static_cast<CGImageAlphaInfo>(c.alpha));
            EXPECT_EQ(CGImageGetColorSpace(image), c.space);
        }
        CGImageRelease(image);
    }
    // Too few bytes for the rows; the last row may lack its padding.
    EXPECT_EQ(MakeImage(std::vector<uint8_t>(4 * 16 - 1), 4, 4, 8, 32, 16, rgb, 2), nullptr);
    CGImageRef tight = MakeImage(std::vector<uint8_t>(3 * 20 + 16), 4, 4, 8, 32, 20, rgb, 2);
    EXPECT_NE(tight, nullptr);
    CGImageRelease(tight);
    // Sizes past the 32-bit limit and zero sizes.
    EXPECT_EQ(MakeImage(bytes, SIZE_MAX / 2, 2, 8, 32, 0, rgb, 2), nullptr);
    EXPECT_EQ(MakeImage(bytes, 70000, 70000, 8, 32, 280000, rgb, 2), nullptr);
    EXPECT_EQ(MakeImage(bytes, 0, 4, 8, 32, 16, rgb, 2), nullptr);
    CGImageRelease(nullptr);
    CGColorSpaceRelease(rgb);
    CGColorSpaceRelease(grey);
}

TEST(Image, EqualWhenPixelsAndLayoutMatch) {
    CGColorSpaceRef rgb = gfxtest::RGB();
    // 2 x 2 ARGB, once tight and once with 4 bytes of differing padding per row.
    std::vector<uint8_t> tight = {255, 1, 2, 3, 255, 4, 5, 6, 255, 7, 8, 9, 255, 10, 11, 12};
    std::vector<uint8_t> padded = {255, 1, 2, 3, 255, 4,  5,  6,  0xAA, 0xAA, 0xAA, 0xAA,
                                   255, 7, 8, 9, 255, 10, 11, 12, 0x55, 0x55, 0x55, 0x55};
    CGImageRef a = MakeImage(tight, 2, 2, 8, 32, 8, rgb, 2);
    CGImageRef b = MakeImage(padded, 2, 2, 8, 32, 12, rgb, 2);
    CGImageRef c = MakeImage(tight, 2, 2, 8, 32, 8, rgb, 6);
    tight[15] = 13;
    CGImageRef d = MakeImage(tight, 2, 2, 8, 32, 8, rgb, 2);
    EXPECT_TRUE(CFEqual(a, b));
    EXPECT_FALSE(CFEqual(a, c));  // alpha info differs
    EXPECT_FALSE(CFEqual(a, d));  // last byte differs
    for (CGImageRef i : {a, b, c, d}) CGImageRelease(i);

    // 1-bit rows compare only the bits that hold pixels.
    CGColorSpaceRef grey = gfxtest::Grey();
    CGImageRef e = MakeImage({0xA0}, 3, 1, 1, 1, 1, grey, 0);
    CGImageRef f = MakeImage({0xBF}, 3, 1, 1, 1, 1, grey, 0);
    CGImageRef g = MakeImage({0x80}, 3, 1, 1, 1, 1, grey, 0);
    EXPECT_TRUE(CFEqual(e, f));
    EXPECT_FALSE(CFEqual(e, g));
    for (CGImageRef i : {e, f, g}) CGImageRelease(i);
    CGColorSpaceRelease(grey);
    CGColorSpaceRelease(rgb);
}

}  // namespace
