// The image object and its two representations, through the public API.
#include <PlimBitmapLib/PlimBitmapLib.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/FailingAllocator.h"

namespace {

std::string Describe(CFTypeRef object) {
    CFStringRef text = CFCopyDescription(object);
    std::string result = text ? CFStringGetCStringPtr(text, kCFStringEncodingUTF8) : "<null>";
    if (text) CFRelease(text);
    return result;
}

CGColorSpaceRef Native() {
    static CGColorSpaceRef space = PlimCGColorSpaceCreateMainDisplay();
    return space;
}

CGColorSpaceRef Grey() {
    static CGColorSpaceRef space = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    return space;
}

// A rendered image over a copy of `bytes`.
CGImageRef MakeRendered(const std::vector<UInt8> &bytes, size_t width, size_t height, size_t bpp,
                        size_t rowBytes, CGColorSpaceRef space, CGImageAlphaInfo alpha) {
    CFDataRef data = CFDataCreate(nullptr, bytes.data(), static_cast<CFIndex>(bytes.size()));
    CGDataProviderRef provider = CGDataProviderCreateWithCFData(data);
    CFRelease(data);
    CGImageRef image = CGImageCreate(width, height, 8, bpp, rowBytes, space, alpha, provider, nullptr, true,
                                     kCGRenderingIntentDefault);
    CGDataProviderRelease(provider);
    return image;
}

std::vector<UInt8> Bytes(PlimCFImage image) {
    auto *p = static_cast<const UInt8 *>(PlimCFImageGetImageBuffer(image));
    UInt32 n = PlimCFImageGetImageBufferSize(image);
    return p ? std::vector<UInt8>(p, p + n) : std::vector<UInt8>();
}

PlimCFImage ARGBImage(std::vector<UInt8> pixels, UInt32 width, UInt32 height) {
    return PlimCFImageCreateWithBuffer(nullptr, pixels.data(), width, height, 8, 32, width * 4, Native(),
                                       kCGImageAlphaPremultipliedFirst);
}

// Must run in a process that has made no image yet; ctest runs each test in its own process.
TEST(ImageObject, TypeIDAppearsWithTheFirstImageAndDescribesItsDefaults) {
    EXPECT_EQ(PlimCFImageGetTypeID(), 0u);
    PlimCFImage image = PlimCFImageCreate(nullptr);
    ASSERT_NE(image, nullptr);
    EXPECT_NE(PlimCFImageGetTypeID(), 0u);
    EXPECT_EQ(PlimCFImageGetTypeID(), _kPlimCFImageID);
    EXPECT_EQ(CFGetTypeID(image), PlimCFImageGetTypeID());
    EXPECT_EQ(Describe(image), "<PlimCFImage: 0x0 bpc=0 bpp=0 rowBytes=0 kCGImageAlphaPremultipliedFirst>");
    EXPECT_EQ(PlimCFImageGetAlphaInfo(image), kCGImageAlphaPremultipliedFirst);
    EXPECT_EQ(PlimCFImageGetImageBuffer(image), nullptr);
    EXPECT_EQ(PlimCFImageGetCGImage(image), nullptr);
    CFStringRef formatted = CFStringCreateWithFormat(nullptr, nullptr, CFSTR("[%@]"), image);
    EXPECT_EQ(std::string(CFStringGetCStringPtr(formatted, kCFStringEncodingUTF8)),
              "[<PlimCFImage: 0x0 bpc=0 bpp=0 rowBytes=0 kCGImageAlphaPremultipliedFirst>]");
    CFRelease(formatted);
    CFRelease(image);
}

TEST(ImageObject, CreateWithBufferComputesMissingLayoutAndCopiesPixels) {
    std::vector<UInt8> pixels(400, 7);
    PlimCFImage rgb = PlimCFImageCreateWithBuffer(nullptr, pixels.data(), 10, 2, 8, 0, 0, Native(), kCGImageAlphaNone);
    ASSERT_NE(rgb, nullptr);
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(rgb), 32u);  // three components counted as four
    EXPECT_EQ(PlimCFImageGetBytesPerRow(rgb), 40u);
    EXPECT_EQ(PlimCFImageGetImageBufferSize(rgb), 80u);
    EXPECT_NE(PlimCFImageGetImageBuffer(rgb), pixels.data());
    EXPECT_FALSE(PlimCFImageHasAlpha(rgb));
    EXPECT_EQ(Describe(rgb), "<PlimCFImage: 10x2 bpc=8 bpp=32 rowBytes=40 kCGImageAlphaNone>");

    PlimCFImage grey = PlimCFImageCreateWithBuffer(nullptr, pixels.data(), 10, 2, 8, 0, 0, Grey(), kCGImageAlphaNone);
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(grey), 8u);
    EXPECT_EQ(PlimCFImageGetBytesPerRow(grey), 10u);
    PlimCFImage bits = PlimCFImageCreateWithBuffer(nullptr, pixels.data(), 10, 2, 1, 0, 0, Grey(), kCGImageAlphaNone);
    EXPECT_EQ(PlimCFImageGetBytesPerRow(bits), 2u);
    PlimCFImage defaultSpace = PlimCFImageCreateWithBuffer(nullptr, pixels.data(), 2, 2, 8, 0, 0, nullptr,
                                                           kCGImageAlphaPremultipliedFirst);
    EXPECT_TRUE(CFEqual(PlimCFImageGetColorSpace(defaultSpace), Native()));
    for (CFTypeRef o : {CFTypeRef(rgb), CFTypeRef(grey), CFTypeRef(bits), CFTypeRef(defaultSpace)}) CFRelease(o);

    // Sizes that do not fit 32 bits, and empty images, are refused rather than allocated short.
    EXPECT_EQ(PlimCFImageCreateWithBuffer(nullptr, pixels.data(), 70000, 70000, 8, 32, 0, Native(),
                                          kCGImageAlphaPremultipliedFirst), nullptr);
    EXPECT_EQ(PlimCFImageCreateWithBuffer(nullptr, pixels.data(), 0x40000000u, 1, 8, 32, 0, Native(),
                                          kCGImageAlphaPremultipliedFirst), nullptr);
    EXPECT_EQ(PlimCFImageCreateWithBuffer(nullptr, pixels.data(), 0, 5, 8, 32, 0, Native(),
                                          kCGImageAlphaPremultipliedFirst), nullptr);
}

TEST(ImageObject, CreateWithSizeRoundsAndClears) {
    PlimCFImage clear = PlimCFImageCreateWithSize(nullptr, CGSize{10.5f, 2.5f}, true);
    ASSERT_NE(clear, nullptr);
    EXPECT_EQ(PlimCFImageGetWidth(clear), 11u);
    EXPECT_EQ(PlimCFImageGetHeight(clear), 3u);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(clear), kCGImageAlphaPremultipliedFirst);
    EXPECT_EQ(Bytes(clear), std::vector<UInt8>(11 * 3 * 4, 0));
    PlimCFImage white = PlimCFImageCreateWithSize(nullptr, CGSize{3.0f, 2.0f}, false);
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(white), 8u);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(white), kCGImageAlphaNone);
    EXPECT_EQ(CGColorSpaceGetNumberOfComponents(PlimCFImageGetColorSpace(white)), 1u);
    EXPECT_EQ(Bytes(white), std::vector<UInt8>(6, 255));
    CFRelease(clear);
    CFRelease(white);
    for (CGSize bad : {CGSize{-3.0f, 2.0f}, CGSize{NAN, 2.0f}, CGSize{2.0f, INFINITY}, CGSize{0.2f, 5.0f},
                       CGSize{1e9f, 1e9f}})
        EXPECT_EQ(PlimCFImageCreateWithSize(nullptr, bad, true), nullptr) << bad.width << "x" << bad.height;
}

TEST(ImageObject, CopiesNeverSharePixelsNorHoldRenderedImages) {
    std::vector<UInt8> px = {255, 10, 20, 30, 128, 64, 0, 0};
    CGImageRef rendered = MakeRendered(px, 2, 1, 32, 8, Native(), kCGImageAlphaPremultipliedFirst);
    ASSERT_NE(rendered, nullptr);
    PlimCFImage source = PlimCFImageCreateWithImage(nullptr, rendered);
    PlimCFImage copy = PlimCFImageCreateCopy(nullptr, source);
    ASSERT_NE(copy, nullptr);
    // The source still holds only its rendered image; the copy holds only a buffer.
    EXPECT_EQ(PlimCFImageGetCGImage(source), rendered);
    EXPECT_EQ(Bytes(copy), px);
    EXPECT_NE(PlimCFImageGetCGImage(copy), rendered);

    PlimCFImage second = PlimCFImageCreateCopy(nullptr, copy);
    static_cast<UInt8 *>(PlimCFImageGetImageBuffer(second))[1] = 99;
    PlimCFImageInvalidateImage(second);
    EXPECT_EQ(Bytes(copy)[1], 10);
    EXPECT_EQ(Bytes(second)[1], 99);

    // Equality: the same object, or the same rendered image; buffers are not compared.
    PlimCFImage again = PlimCFImageCreateWithImage(nullptr, rendered);
    EXPECT_TRUE(CFEqual(source, again));
    EXPECT_TRUE(CFEqual(copy, copy));
    PlimCFImage bufferA = ARGBImage(px, 2, 1), bufferB = ARGBImage(px, 2, 1);
    EXPECT_FALSE(CFEqual(bufferA, bufferB));
    EXPECT_EQ(CFHash(bufferA), static_cast<CFHashCode>(reinterpret_cast<uintptr_t>(bufferA)));
    for (CFTypeRef o : {CFTypeRef(source), CFTypeRef(copy), CFTypeRef(second), CFTypeRef(again), CFTypeRef(bufferA),
                        CFTypeRef(bufferB)})
        CFRelease(o);
    CGImageRelease(rendered);
}

TEST(Representations, PromotionKeepsOnlySupportedRenderedImages) {
    // Alpha first, not premultiplied: alpha 128 over (255, 0, 0).
    std::vector<UInt8> px = {128, 255, 0, 0, 255, 1, 2, 3};
    for (int info = 1; info <= 6; ++info) {
        CGImageRef rendered = MakeRendered(px, 2, 1, 32, 8, Native(), static_cast<CGImageAlphaInfo>(info));
        ASSERT_NE(rendered, nullptr) << info;
        PlimCFImage image = PlimCFImageCreateWithImage(nullptr, rendered);
        ASSERT_NE(PlimCFImageGetImageBuffer(image), nullptr) << info;
        bool kept = info == 2 || info == 6;
        EXPECT_EQ(PlimCFImageGetCGImage(image) == rendered, kept) << info;
        bool hasAlpha = info != 5 && info != 6;
        EXPECT_EQ(PlimCFImageGetAlphaInfo(image), hasAlpha ? kCGImageAlphaPremultipliedFirst : kCGImageAlphaNoneSkipFirst)
            << info;
        CFRelease(image);
        CGImageRelease(rendered);
    }
    // Non-premultiplied alpha first is premultiplied by the draw.
    CGImageRef first = MakeRendered(px, 2, 1, 32, 8, Native(), kCGImageAlphaFirst);
    PlimCFImage image = PlimCFImageCreateWithImage(nullptr, first);
    EXPECT_EQ(Bytes(image), (std::vector<UInt8>{128, 128, 0, 0, 255, 1, 2, 3}));
    CFRelease(image);
    CGImageRelease(first);

    // 24-bit RGB without alpha becomes 32-bit XRGB with four bytes a pixel.
    std::vector<UInt8> rgb = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    CGImageRef rendered24 = MakeRendered(rgb, 3, 1, 24, 9, Native(), kCGImageAlphaNone);
    ASSERT_NE(rendered24, nullptr);
    PlimCFImage xrgb = PlimCFImageCreateWithImage(nullptr, rendered24);
    std::vector<UInt8> bytes = Bytes(xrgb);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(xrgb), kCGImageAlphaNoneSkipFirst);
    EXPECT_EQ(PlimCFImageGetBytesPerRow(xrgb), 12u);
    ASSERT_EQ(bytes.size(), 12u);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ((std::vector<UInt8>(bytes.begin() + 4 * i + 1, bytes.begin() + 4 * i + 4)),
                  (std::vector<UInt8>{rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2]}));
    CFRelease(xrgb);
    CGImageRelease(rendered24);

    // A grey rendered image becomes a 32-bit colour buffer in the display's space, g -> (g, g, g).
    std::vector<UInt8> g = {0, 77, 255};
    CGImageRef greyRendered = MakeRendered(g, 3, 1, 8, 3, Grey(), kCGImageAlphaNone);
    PlimCFImage grey = PlimCFImageCreateWithImage(nullptr, greyRendered);
    bytes = Bytes(grey);
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(grey), 32u);
    EXPECT_TRUE(CFEqual(PlimCFImageGetColorSpace(grey), Native()));
    ASSERT_EQ(bytes.size(), 12u);
    for (int i = 0; i < 3; ++i)
        for (int c = 1; c < 4; ++c) EXPECT_EQ(bytes[4 * i + c], g[i]);
    CFRelease(grey);
    CGImageRelease(greyRendered);
}

TEST(Representations, ForcedPromotionOfAGreyBuffer) {
    for (int mode = 0; mode < 3; ++mode) {
        PlimCFImage image = PlimCFImageCreateWithSize(nullptr, CGSize{2.0f, 2.0f}, false);
        static_cast<UInt8 *>(PlimCFImageGetImageBuffer(image))[0] = 40;
        PlimCFImageInvalidateImage(image);
        if (mode == 0) {
            EXPECT_EQ(PlimCFImageGetBitsPerPixel(image), 8u);  // an existing buffer is accepted
        } else {
            PlimCFImagePromoteImage(image, mode == 1, mode == 2);
            EXPECT_EQ(PlimCFImageGetBitsPerPixel(image), 32u);
            EXPECT_EQ(PlimCFImageGetAlphaInfo(image),
                      mode == 1 ? kCGImageAlphaNoneSkipFirst : kCGImageAlphaPremultipliedFirst);
            std::vector<UInt8> bytes = Bytes(image);
            EXPECT_EQ((std::vector<UInt8>(bytes.begin() + 1, bytes.begin() + 8)),
                      (std::vector<UInt8>{40, 40, 40, bytes[4], 255, 255, 255}));
            if (mode == 2) {
                EXPECT_EQ(bytes[0], 255);
            }
        }
        CFRelease(image);
    }
}

TEST(Representations, ForcedPromotionOfAnARGBOrXRGBBuffer) {
    // Premultiplied ARGB in the display's colour space comes out byte for byte, whatever the
    // bytes (colour above alpha included); the ignored byte of XRGB is drawn opaque.
    std::vector<UInt8> pixels(4 * 5 * 3);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<UInt8>(i * 37 + 11);
    for (auto [force, alpha] : {std::pair{0, kCGImageAlphaPremultipliedFirst}, {1, kCGImageAlphaPremultipliedFirst},
                                {2, kCGImageAlphaPremultipliedFirst}, {1, kCGImageAlphaNoneSkipFirst}}) {
        PlimCFImage image =
            PlimCFImageCreateWithBuffer(nullptr, pixels.data(), 5, 3, 8, 32, 20, Native(), alpha);
        PlimCFImagePromoteImage(image, force != 2, force != 1);
        ASSERT_NE(PlimCFImageGetImageBuffer(image), nullptr);
        EXPECT_EQ(PlimCFImageGetBytesPerRow(image), 20u);
        std::vector<UInt8> expected = pixels;
        if (alpha == kCGImageAlphaNoneSkipFirst)
            for (size_t i = 0; i < expected.size(); i += 4) expected[i] = 255;
        EXPECT_EQ(Bytes(image), expected) << force;
        CFRelease(image);
    }
}

TEST(Representations, UnificationPromotesTheRightImage) {
    PlimCFImage grey = PlimCFImageCreateWithSize(nullptr, CGSize{2.0f, 1.0f}, false);
    PlimCFImage argb = ARGBImage({255, 1, 2, 3, 0, 0, 0, 0}, 2, 1);
    void *argbBuffer = PlimCFImageGetImageBuffer(argb);
    PlimCFImageUnifyImageFormats(grey, argb);
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(grey), 32u);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(grey), kCGImageAlphaPremultipliedFirst);
    EXPECT_EQ(Bytes(grey), (std::vector<UInt8>{255, 255, 255, 255, 255, 255, 255, 255}));
    EXPECT_EQ(PlimCFImageGetImageBuffer(argb), argbBuffer);  // left alone

    PlimCFImage xrgb = PlimCFImageCreateWithBuffer(nullptr, std::vector<UInt8>(8, 9).data(), 2, 1, 8, 32, 8, Native(),
                                                   kCGImageAlphaNoneSkipFirst);
    PlimCFImageUnifyImageFormats(xrgb, argb);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(xrgb), kCGImageAlphaPremultipliedFirst);
    EXPECT_EQ(Bytes(xrgb), (std::vector<UInt8>{255, 9, 9, 9, 255, 9, 9, 9}));

    // Two grey images without alpha stay grey; so does a when b is the one promoted.
    PlimCFImage g1 = PlimCFImageCreateWithSize(nullptr, CGSize{1.0f, 1.0f}, false);
    PlimCFImage g2 = PlimCFImageCreateWithSize(nullptr, CGSize{1.0f, 1.0f}, false);
    PlimCFImageUnifyImageFormats(g1, g2);
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(g1), 8u);
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(g2), 8u);
    PlimCFImageUnifyImageFormats(argb, g2);
    EXPECT_EQ(PlimCFImageGetImageBuffer(argb), argbBuffer);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(g2), kCGImageAlphaPremultipliedFirst);
    for (CFTypeRef o : {CFTypeRef(grey), CFTypeRef(argb), CFTypeRef(xrgb), CFTypeRef(g1), CFTypeRef(g2)}) CFRelease(o);
}

TEST(Representations, RenderedImageIsACopyRemadeAfterChanges) {
    PlimCFImage image = ARGBImage({255, 1, 2, 3}, 1, 1);
    CGImageRef first = PlimCFImageGetCGImage(image);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(PlimCFImageGetCGImage(image), first);
    CGImageRetain(first);
    static_cast<UInt8 *>(PlimCFImageGetImageBuffer(image))[1] = 200;
    PlimCFImageInvalidateImage(image);
    CGImageRef second = PlimCFImageGetCGImage(image);
    EXPECT_NE(second, first);
    CFDataRef oldBytes = CGDataProviderCopyData(CGImageGetDataProvider(first));
    CFDataRef newBytes = CGDataProviderCopyData(CGImageGetDataProvider(second));
    EXPECT_EQ(CFDataGetBytePtr(oldBytes)[1], 1);
    EXPECT_EQ(CFDataGetBytePtr(newBytes)[1], 200);
    CFRelease(oldBytes);
    CFRelease(newBytes);
    CGImageRelease(first);
    CFRelease(image);
}

TEST(Representations, LentContextDrawsIntoTheBufferAndLastReleaseDropsTheRenderedImage) {
    PlimCFImage image = PlimCFImageCreateWithSize(nullptr, CGSize{2.0f, 2.0f}, true);
    CGContextRef a = PlimCFImageRetainContext(image);
    CGContextRef b = PlimCFImageRetainContext(image);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a, b);
    EXPECT_EQ(CGBitmapContextGetData(a), PlimCFImageGetImageBuffer(image));
    CGImageRef red = MakeRendered({255, 255, 0, 0}, 1, 1, 32, 4, Native(), kCGImageAlphaPremultipliedFirst);
    CGContextDrawImage(a, CGRectMake(0, 0, 2, 2), red);
    CGImageRelease(red);
    ASSERT_NE(PlimCFImageGetCGImage(image), nullptr);
    PlimCFImageReleaseContext(image);
    EXPECT_NE(PlimCFImageGetCGImage(image), nullptr);
    CGImageRef before = PlimCFImageGetCGImage(image);
    CGImageRetain(before);
    PlimCFImageReleaseContext(image);
    CGImageRef after = PlimCFImageGetCGImage(image);
    EXPECT_NE(after, before);  // dropped at the last release, remade on demand
    CGImageRelease(before);
    EXPECT_EQ(Bytes(image), (std::vector<UInt8>{255, 255, 0, 0, 255, 255, 0, 0, 255, 255, 0, 0, 255, 255, 0, 0}));

    // A context kept when the image goes is ended with it (the sanitizer build checks the frees).
    PlimCFImageRetainContext(image);
    PlimCFImageRetainContext(image);
    CFRelease(image);

    PlimCFImage source = ARGBImage({255, 1, 2, 3, 255, 4, 5, 6}, 2, 1);
    PlimCFContext own = PlimCFContextCreateForImage(nullptr, source, nullptr);
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(CGBitmapContextGetWidth(PlimCFContextGetCGContext(own)), 2u);
    EXPECT_EQ(CGBitmapContextGetBytesPerRow(PlimCFContextGetCGContext(own)), 8u);
    EXPECT_EQ(static_cast<UInt8 *>(PlimCFContextGetBuffer(own))[1], 0);  // not drawn into
    EXPECT_EQ(PlimCFContextCreateForImage(nullptr, nullptr, nullptr), nullptr);
    CFRelease(own);
    CFRelease(source);
}

TEST(ImageObject, AllocationFailureAtEveryStepLeaksNothing) {
    using plim::test::ExhaustFailures;
    std::vector<UInt8> px = {255, 10, 20, 30, 128, 64, 0, 0};
    auto released = [](CFTypeRef cf) {
        if (!cf) return false;
        CFRelease(cf);
        return true;
    };
    EXPECT_GE(ExhaustFailures([&](CFAllocatorRef a) {
                  return released(PlimCFImageCreateWithBuffer(a, px.data(), 2, 1, 8, 32, 8, Native(),
                                                              kCGImageAlphaPremultipliedFirst));
              }),
              1);
    EXPECT_GE(ExhaustFailures([&](CFAllocatorRef a) {
                  return released(PlimCFImageCreateWithSize(a, CGSize{4.0f, 4.0f}, true));
              }),
              1);
    PlimCFImage source = ARGBImage(px, 2, 1);
    EXPECT_GE(ExhaustFailures([&](CFAllocatorRef a) { return released(PlimCFImageCreateCopy(a, source)); }), 1);
    // A rendered image that cannot be made leaves the buffer and its pixels as they were.
    EXPECT_GE(ExhaustFailures([&](CFAllocatorRef a) {
                  PlimCFImage image = PlimCFImageCreateWithBuffer(a, px.data(), 2, 1, 8, 32, 8, Native(),
                                                                  kCGImageAlphaNoneSkipFirst);
                  if (!image) return false;
                  PlimCFImagePromoteImage(image, false, true);
                  bool ok = PlimCFImageGetAlphaInfo(image) == kCGImageAlphaPremultipliedFirst;
                  if (!ok) {
                      // The pixels survive in whichever representation is left.
                      CGImageRef rendered = PlimCFImageGetCGImage(image);
                      std::vector<UInt8> bytes;
                      if (rendered) {
                          CFDataRef data = CGDataProviderCopyData(CGImageGetDataProvider(rendered));
                          bytes.assign(CFDataGetBytePtr(data), CFDataGetBytePtr(data) + CFDataGetLength(data));
                          CFRelease(data);
                      } else {
                          bytes = Bytes(image);
                      }
                      EXPECT_EQ(bytes, px);
                  }
                  CFRelease(image);
                  return ok;
              }),
              1);
    CFRelease(source);
}

}  // namespace
