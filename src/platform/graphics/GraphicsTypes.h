// Object layouts of the 2-D graphics types, shared by the files that implement them.
#pragma once

#include <PlimBitmapLib/platform/CFRuntime.h>
#include <PlimBitmapLib/platform/CoreGraphics.h>

#include <cstddef>
#include <cstdint>
#include <vector>

struct CGColorSpace {
    CFRuntimeBase base;
    int components;  // 1 grey, 3 RGB, 4 CMYK
    int type;        // kCGColorSpaceType...
    // Spaces on the sRGB tone curve (display, generic RGB and grey, device spaces): between
    // them a colour is copied, never run through the colour engine.
    bool srgbFamily;
    std::vector<uint8_t> *icc;  // the profile's bytes
    CFHashCode hash;
};

struct CGDataProvider {
    CFRuntimeBase base;
    const void *data;  // read through plim::graphics::ProviderData once it may have been handed over
    size_t size;
    void *info;
    CGDataProviderReleaseDataCallback releaseData;
    // Bytes that can be made again: `remake` decodes `remakeSource` (retained) into a new malloc'd
    // block of `size` bytes. Only such bytes may be handed over (plim::graphics::TakeImagePixels);
    // they are then remade the next time they are read.
    bool (*remake)(CGDataProviderRef remakeSource, void **block, size_t size);
    CGDataProviderRef remakeSource;
};

struct CGImage {
    CFRuntimeBase base;
    size_t width, height, bitsPerComponent, bitsPerPixel, bytesPerRow;
    CGColorSpaceRef space;  // retained; may be null for alpha-only images
    CGImageAlphaInfo alphaInfo;
    CGDataProviderRef provider;  // retained
    bool shouldInterpolate;
    CGColorRenderingIntent intent;
};

namespace plim::graphics {

// Pixel layouts the drawing engine reads and writes (8-bit samples unless said).
enum class Layout {
    Grey1,      // 1 bit grey, most significant bit first, 1 is white
    Grey8,      // alpha 0
    GreyAlpha,  // 16 bits per pixel, alpha 0 to 6 (0: a padding byte last)
    RGB24,      // alpha 0
    RGB32,      // alpha 0 to 6 (0: a padding byte last)
    Alpha8,     // alpha 7
};

// The layout of a rendered image, or false when it is not supported.
bool ImageLayout(size_t bitsPerComponent, size_t bitsPerPixel, CGColorSpaceRef space,
                 uint32_t bitmapInfo, Layout *layout);

// Bytes holding the pixels of one row; false on overflow.
bool RowBytes(size_t width, size_t bitsPerPixel, size_t *bytes);

// Bytes from the first row to the end of the last row's pixels, checked against the limits
// of every size field (32 bits); false when it does not fit.
bool ImageBytes(size_t width, size_t height, size_t bitsPerPixel, size_t bytesPerRow,
                size_t *bytes);

// Whether a caller's rendering intent is one of the listed ones.
inline bool KnownIntent(CGColorRenderingIntent intent) {
    return static_cast<unsigned>(intent) <= static_cast<unsigned>(kCGRenderingIntentSaturation);
}

// A provider's bytes as they are now: null once handed over and not yet remade.
inline const uint8_t *ProviderData(const CGDataProvider *provider) {
    return static_cast<const uint8_t *>(__atomic_load_n(&provider->data, __ATOMIC_ACQUIRE));
}

// Makes sure the provider holds its bytes, remaking handed-over ones; false when they cannot be
// made (out of memory). Every reader of a rendered image's pixels calls it (through
// ImagePixelsReady) before ImageData.
bool EnsureProviderData(CGDataProvider *provider);

inline bool ImagePixelsReady(const CGImage *image) {
    return image->provider && EnsureProviderData(image->provider);
}

inline const uint8_t *ImageData(const CGImage *image) { return ProviderData(image->provider); }

// Hands the pixel block of a rendered image (`size` bytes) over to the caller, who frees it with
// free(), when nobody else can be holding the image or its bytes (one reference to each) and the
// bytes can be remade; null otherwise. The image stays as it was: its pixels are decoded again
// when next read.
void *TakeImagePixels(CGImageRef image, size_t size);

}  // namespace plim::graphics
