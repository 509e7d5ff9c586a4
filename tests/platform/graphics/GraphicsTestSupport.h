// Helpers for the graphics tests: rendered images over test bytes and bitmap contexts.
#pragma once

#include <PlimBitmapLib/platform/CoreFoundation.h>
#include <PlimBitmapLib/platform/CoreGraphics.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace gfxtest {

inline void FreeCopy(void *, const void *data, size_t) { std::free(const_cast<void *>(data)); }

// A rendered image over a copy of `bytes`.
inline CGImageRef MakeImage(const std::vector<uint8_t> &bytes, size_t w, size_t h, size_t bpc,
                            size_t bpp, size_t bpr, CGColorSpaceRef space, uint32_t alpha) {
    void *copy = std::malloc(bytes.size() ? bytes.size() : 1);
    if (!bytes.empty()) std::memcpy(copy, bytes.data(), bytes.size());
    CGDataProviderRef provider =
        CGDataProviderCreateWithData(nullptr, copy, bytes.size(), FreeCopy);
    CGImageRef image = CGImageCreate(w, h, bpc, bpp, bpr, space, alpha, provider, nullptr, true,
                                     kCGRenderingIntentDefault);
    CGDataProviderRelease(provider);
    return image;
}

inline CGColorSpaceRef RGB() { return CGColorSpaceCreateWithName(kCGColorSpaceGenericRGB); }
inline CGColorSpaceRef Grey() { return CGColorSpaceCreateWithName(kCGColorSpaceGenericGray); }

// Draws `image` at 1:1 into a fresh zeroed context of the given layout and returns its bytes.
inline std::vector<uint8_t> Draw(CGImageRef image, CGColorSpaceRef space, uint32_t alpha,
                                 size_t bytesPerPixel) {
    size_t w = CGImageGetWidth(image), h = CGImageGetHeight(image);
    std::vector<uint8_t> out(w * h * bytesPerPixel, 0);
    CGContextRef ctx = CGBitmapContextCreate(out.data(), w, h, 8, w * bytesPerPixel, space, alpha);
    if (!ctx) return {};
    CGContextDrawImage(ctx, CGRectMake(0, 0, static_cast<float>(w), static_cast<float>(h)), image);
    CGContextRelease(ctx);
    return out;
}

inline uint8_t Round255(unsigned c, unsigned a) {
    return static_cast<uint8_t>(c * a / 255.0 + 0.5);
}

}  // namespace gfxtest
