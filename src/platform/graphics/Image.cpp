// Rendered images: a checked layout over a data provider's bytes.
#include "platform/graphics/GraphicsTypes.h"

#include <cstring>

using plim::graphics::ImageData;

namespace {

void ImageFinalize(CFTypeRef cf) {
    auto *image = static_cast<CGImage *>(const_cast<void *>(cf));
    CGColorSpaceRelease(image->space);
    CGDataProviderRelease(image->provider);
}

bool SameSpace(CGColorSpaceRef a, CGColorSpaceRef b) {
    if (!a || !b) return a == b;
    return CFEqual(a, b);
}

// Two images are equal when they show the same pixels in the same layout; padding at the end
// of rows is not compared.
Boolean ImageEqual(CFTypeRef a, CFTypeRef b) {
    auto *x = static_cast<const CGImage *>(a);
    auto *y = static_cast<const CGImage *>(b);
    if (x->width != y->width || x->height != y->height ||
        x->bitsPerComponent != y->bitsPerComponent || x->bitsPerPixel != y->bitsPerPixel ||
        x->alphaInfo != y->alphaInfo || !SameSpace(x->space, y->space)) {
        return false;
    }
    if (!plim::graphics::ImagePixelsReady(x) || !plim::graphics::ImagePixelsReady(y)) return false;
    size_t fullBytes = x->width * x->bitsPerPixel / 8;
    unsigned tailBits = static_cast<unsigned>(x->width * x->bitsPerPixel % 8);
    const uint8_t *p = ImageData(x);
    const uint8_t *q = ImageData(y);
    for (size_t r = 0; r < x->height; ++r) {
        const uint8_t *pr = p + r * x->bytesPerRow;
        const uint8_t *qr = q + r * y->bytesPerRow;
        if (std::memcmp(pr, qr, fullBytes) != 0) return false;
        if (tailBits) {
            auto mask = static_cast<uint8_t>(0xFF00u >> tailBits);
            if ((pr[fullBytes] & mask) != (qr[fullBytes] & mask)) return false;
        }
    }
    return true;
}

CFHashCode ImageHash(CFTypeRef cf) {
    auto *image = static_cast<const CGImage *>(cf);
    return static_cast<CFHashCode>(image->width * 31u + image->height * 17u + image->bitsPerPixel);
}

CFStringRef ImageCopyDescription(CFTypeRef cf, CFDictionaryRef options) {
    auto *image = static_cast<const CGImage *>(cf);
    return CFStringCreateWithFormat(
        CFGetAllocator(cf), options,
        CFSTR("<CGImage %p> (%zu x %zu, %zu bpc, %zu bpp, %zu bytes per row, alpha %d)"), cf,
        image->width, image->height, image->bitsPerComponent, image->bitsPerPixel,
        image->bytesPerRow, static_cast<int>(image->alphaInfo));
}

CFStringRef ImageCopyDebugDescription(CFTypeRef cf) { return ImageCopyDescription(cf, nullptr); }

const CFRuntimeClass kImageClass = {0,
                                    "CGImage",
                                    nullptr,
                                    nullptr,
                                    ImageFinalize,
                                    ImageEqual,
                                    ImageHash,
                                    ImageCopyDescription,
                                    ImageCopyDebugDescription};

}  // namespace

extern "C" {

PLIM_EXPORT CFTypeID CGImageGetTypeID(void) {
    static const CFTypeID id = _CFRuntimeRegisterClass(&kImageClass);
    return id;
}

PLIM_EXPORT CGImageRef CGImageCreate(size_t width, size_t height, size_t bitsPerComponent,
                                     size_t bitsPerPixel, size_t bytesPerRow, CGColorSpaceRef space,
                                     CGBitmapInfo bitmapInfo, CGDataProviderRef provider,
                                     const float *decode, bool shouldInterpolate,
                                     CGColorRenderingIntent intent) {
    plim::graphics::Layout layout;
    size_t total, row;
    if (!provider || decode || !plim::graphics::KnownIntent(intent)) return nullptr;
    if (!plim::graphics::ImageLayout(bitsPerComponent, bitsPerPixel, space, bitmapInfo, &layout))
        return nullptr;
    if (!plim::graphics::ImageBytes(width, height, bitsPerPixel, bytesPerRow, &total))
        return nullptr;
    plim::graphics::RowBytes(width, bitsPerPixel, &row);
    // The last row needs only its pixels, not its padding.
    if (!plim::graphics::EnsureProviderData(provider) || !plim::graphics::ProviderData(provider) ||
        provider->size < total - bytesPerRow + row)
        return nullptr;

    auto *image = static_cast<CGImage *>(const_cast<void *>(_CFRuntimeCreateInstance(
        nullptr, CGImageGetTypeID(), sizeof(CGImage) - sizeof(CFRuntimeBase), nullptr)));
    if (!image) return nullptr;
    image->width = width;
    image->height = height;
    image->bitsPerComponent = bitsPerComponent;
    image->bitsPerPixel = bitsPerPixel;
    image->bytesPerRow = bytesPerRow;
    image->space = CGColorSpaceRetain(space);
    image->alphaInfo = static_cast<CGImageAlphaInfo>(bitmapInfo & kCGBitmapAlphaInfoMask);
    image->provider = CGDataProviderRetain(provider);
    image->shouldInterpolate = shouldInterpolate;
    image->intent = intent;
    return image;
}

PLIM_EXPORT CGImageRef CGImageRetain(CGImageRef image) {
    if (image) CFRetain(image);
    return image;
}

PLIM_EXPORT void CGImageRelease(CGImageRef image) {
    if (image) CFRelease(image);
}

PLIM_EXPORT size_t CGImageGetWidth(CGImageRef image) { return image ? image->width : 0; }
PLIM_EXPORT size_t CGImageGetHeight(CGImageRef image) { return image ? image->height : 0; }

PLIM_EXPORT size_t CGImageGetBitsPerComponent(CGImageRef image) {
    return image ? image->bitsPerComponent : 0;
}

PLIM_EXPORT size_t CGImageGetBitsPerPixel(CGImageRef image) {
    return image ? image->bitsPerPixel : 0;
}

PLIM_EXPORT size_t CGImageGetBytesPerRow(CGImageRef image) {
    return image ? image->bytesPerRow : 0;
}

PLIM_EXPORT CGColorSpaceRef CGImageGetColorSpace(CGImageRef image) {
    return image ? image->space : nullptr;
}

PLIM_EXPORT CGImageAlphaInfo CGImageGetAlphaInfo(CGImageRef image) {
    return image ? image->alphaInfo : kCGImageAlphaNone;
}

PLIM_EXPORT CGBitmapInfo CGImageGetBitmapInfo(CGImageRef image) {
    return image ? static_cast<CGBitmapInfo>(image->alphaInfo) : 0;
}

PLIM_EXPORT CGDataProviderRef CGImageGetDataProvider(CGImageRef image) {
    return image ? image->provider : nullptr;
}

PLIM_EXPORT bool CGImageGetShouldInterpolate(CGImageRef image) {
    return image && image->shouldInterpolate;
}

PLIM_EXPORT CGColorRenderingIntent CGImageGetRenderingIntent(CGImageRef image) {
    return image ? image->intent : kCGRenderingIntentDefault;
}

PLIM_EXPORT bool CGImageIsMask(CGImageRef) { return false; }

}  // extern "C"
