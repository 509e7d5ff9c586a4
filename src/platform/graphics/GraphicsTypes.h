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
    const void *data;
    size_t size;
    void *info;
    CGDataProviderReleaseDataCallback releaseData;
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

inline const uint8_t *ImageData(const CGImage *image) {
    return static_cast<const uint8_t *>(image->provider->data);
}

}  // namespace plim::graphics
