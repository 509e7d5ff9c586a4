// New images made from an image's colour or alpha: opaque copies, the alpha channel as a grey
// image, and an image joined with a grey mask.
#include "ChannelArithmetic.h"
#include "PixelArithmetic.h"

#include <PlimBitmapLib/PlimCFImageOperations.h>

#include "core/ImageInternal.h"
#include "platform/runtime/CFRef.h"
#include "platform/runtime/Errors.h"

#include <cstring>

using plim::CFRef;
using namespace plim::pixel;

namespace {

PlimCFImage CopyImage(CFAllocatorRef allocator, PlimCFImage image) {
    return static_cast<PlimCFImage>(const_cast<void *>(PlimCFImageCopy(allocator, image)));
}

// The buffer as four-byte pixels, or null when it is missing or in another layout.
UInt8 *ARGBPixels(PlimCFImage image) {
    PlimCFImagePromoteImage(image, false, false);
    if (!image->buffer || image->bitsPerPixel != 32 || image->bitsPerComponent != 8) return nullptr;
    return static_cast<UInt8 *>(image->buffer);
}

}  // namespace

extern "C" {

PlimCFImage PlimCFImageCopyOpaqueImage(CFAllocatorRef allocator, PlimCFImage image) {
    PlimCFImage copy = CopyImage(allocator, image);
    if (copy) PlimCFImageRemoveAlphaChannel(copy);
    return copy;
}

PlimCFImage PlimCFImageCopyPremultipliedOpaqueImage(CFAllocatorRef allocator, PlimCFImage image) {
    PlimCFImage copy = CopyImage(allocator, image);
    if (!copy || !PlimCFImageHasAlpha(copy)) return copy;
    if (UInt8 *pixels = ARGBPixels(copy)) {
        SetAlphaOpaque(pixels, copy->bufferSize >> 2);
        PlimCFImageInvalidateImage(copy);
    }
    return copy;
}

PlimCFImage PlimCFImageCopyAlphaChannel(CFAllocatorRef allocator, PlimCFImage image) {
    CFRef<PlimCFImage> result(PlimCFImageCreate(allocator));
    if (!result) return nullptr;

    PlimCFImage source = image;
    CFRef<PlimCFImage> temporary;
    PlimCFImagePromoteImage(image, false, false);
    // An image without alpha, or whose buffer is not in four-byte pixels, is read through a copy
    // with an alpha channel added.
    if (!PlimCFImageHasAlpha(image) || !ARGBPixels(image)) {
        temporary.reset(CopyImage(allocator, image));
        if (!temporary) return nullptr;
        PlimCFImagePromoteImage(temporary.get(), false, true);
        source = temporary.get();
    }
    const plim::errors::Mark mark;
    const UInt8 *pixels = ARGBPixels(source);
    if (!pixels) {
        mark.Fallback(kPlimErrorUnsupportedLayout);
        return nullptr;
    }

    UInt32 width = source->width, height = source->height, size = 0;
    if (width > source->bytesPerRow / 4) return plim::errors::Fail(kPlimErrorUnsupportedLayout, nullptr);
    if (!plim::core::Multiply32(width, height, &size)) return plim::errors::Fail(kPlimErrorTooLarge, nullptr);
    PlimCFImage out = result.get();
    out->colorSpace = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    out->buffer = CFAllocatorAllocate(allocator, size, 0);
    if (!out->buffer || !out->colorSpace) {
        mark.Fallback(kPlimErrorOutOfMemory);
        return nullptr;  // the result's finalizer frees both
    }
    out->width = width;
    out->height = height;
    out->bitsPerComponent = 8;
    out->bitsPerPixel = 8;
    out->bytesPerRow = width;
    out->bufferSize = size;
    out->alphaInfo = kCGImageAlphaNone;

    auto *dst = static_cast<UInt8 *>(out->buffer);
    for (UInt32 y = 0; y < height; ++y) {
        const UInt8 *row = pixels + static_cast<size_t>(y) * source->bytesPerRow;
        UInt8 *outRow = dst + static_cast<size_t>(y) * width;
        for (UInt32 x = 0; x < width; ++x) outRow[x] = row[static_cast<size_t>(x) * 4];
    }
    return result.release();
}

PlimCFImage PlimCFImageCreateWithImageAndMask(CFAllocatorRef allocator, PlimCFImage image, PlimCFImage mask,
                                              Boolean isPremultiplied) {
    UInt32 width = PlimCFImageGetWidth(image), height = PlimCFImageGetHeight(image);
    if (width != PlimCFImageGetWidth(mask) || height != PlimCFImageGetHeight(mask))
        return plim::errors::Fail(kPlimErrorInvalidArgument, nullptr);
    const plim::errors::Mark mark;

    CFRef<PlimCFImage> opaque(PlimCFImageCopyOpaqueImage(allocator, image));
    if (!opaque) return nullptr;
    CFRef<PlimCFImage> grey(CopyImage(allocator, mask));
    if (!grey) return nullptr;
    PlimCFImageConvertToGrayscale(grey.get());
    CFRef<PlimCFImage> result(PlimCFImageCreateWithSize(
        allocator, CGSizeMake(static_cast<float>(width), static_cast<float>(height)), true));
    if (!result) return nullptr;

    // A grey image has one byte a pixel: give its opaque copy the colour layout first.
    PlimCFImagePromoteImage(opaque.get(), false, false);
    if (opaque.get()->buffer && opaque.get()->bitsPerPixel != 32) PlimCFImagePromoteImage(opaque.get(), true, false);
    const UInt8 *colour = ARGBPixels(opaque.get());
    UInt8 *out = ARGBPixels(result.get());
    PlimCFImagePromoteImage(grey.get(), false, false);
    const PlimCFImage m = grey.get();
    if (!colour || !out || !m->buffer || m->bitsPerPixel != 8) {
        mark.Fallback(kPlimErrorUnsupportedLayout);
        return nullptr;
    }
    const PlimCFImage o = opaque.get(), r = result.get();
    // Every image must hold width x height pixels in its rows.
    if (o->width != width || o->height != height || m->width != width || m->height != height ||
        r->width != width || r->height != height || o->bytesPerRow / 4 < width || m->bytesPerRow < width)
        return plim::errors::Fail(kPlimErrorUnsupportedLayout, nullptr);

    const auto *maskBytes = static_cast<const UInt8 *>(m->buffer);
    for (UInt32 y = 0; y < height; ++y) {
        const UInt8 *src = colour + static_cast<size_t>(y) * o->bytesPerRow;
        const UInt8 *k = maskBytes + static_cast<size_t>(y) * m->bytesPerRow;
        UInt8 *dst = out + static_cast<size_t>(y) * r->bytesPerRow;
        for (UInt32 x = 0; x < width; ++x, src += 4, dst += 4) {
            UInt8 a = k[x];
            dst[0] = a;
            if (isPremultiplied) {
                dst[1] = src[1];
                dst[2] = src[2];
                dst[3] = src[3];
            } else {
                dst[1] = PremultiplySample(src[1], a);
                dst[2] = PremultiplySample(src[2], a);
                dst[3] = PremultiplySample(src[3], a);
            }
        }
    }
    PlimCFImageInvalidateImage(r);
    return result.release();
}

}  // extern "C"
