// Keeping an image's two representations in step: rendering from the buffer, promotion into a
// supported layout, unification of two images, and drawing contexts over the buffer.
#include "ImageInternal.h"
#include "platform/graphics/ContextInternal.h"
#include "platform/graphics/GraphicsTypes.h"
#include "platform/runtime/Errors.h"

#include <cstring>

using plim::errors::Fail;
using plim::errors::Record;
using plim::core::Multiply32;
using plim::core::NativeColorSpace;
using plim::core::ResetLayoutFields;

namespace {

// Frees the buffer (if any) and resets the layout fields.
void DropBuffer(PlimCFImage image) {
    if (image->buffer) CFAllocatorDeallocate(CFGetAllocator(image), image->buffer);
    ResetLayoutFields(image);
}

// A buffer held alone that is premultiplied ARGB in the main display's colour space, rows
// packed, is what any promotion would draw it into, byte for byte (a premultiplied pixel drawn
// over zero is itself), and no rendered image is left to drop.
bool AlreadyPromoted(PlimCFImage image) {
    CGColorSpaceRef native = NativeColorSpace();
    return !image->image && image->buffer && native && image->colorSpace && image->bitsPerComponent == 8 &&
           image->bitsPerPixel == 32 && image->bytesPerRow == 4 * image->width &&
           image->alphaInfo == kCGImageAlphaPremultipliedFirst && CFEqual(image->colorSpace, native);
}

}  // namespace

extern "C" {

CGImageRef PlimCFImageGetCGImage(PlimCFImage image) {
    if (image->image) return image->image;
    if (!image->buffer) return Fail(kPlimErrorNoPixels, nullptr);
    CFAllocatorRef allocator = CFGetAllocator(image);
    void *copy = CFAllocatorAllocate(allocator, image->bufferSize, 0);
    if (!copy) return nullptr;
    std::memcpy(copy, image->buffer, image->bufferSize);
    // The rendered image owns its copy: it goes back to the image's allocator with the provider.
    CGDataProviderRef provider = CGDataProviderCreateWithData(const_cast<void *>(static_cast<const void *>(allocator)),
                                                              copy, image->bufferSize, PlimCFReleaseImageBuffer);
    if (!provider) {
        CFAllocatorDeallocate(allocator, copy);
        return nullptr;
    }
    const plim::errors::Mark mark;
    image->image = CGImageCreate(image->width, image->height, image->bitsPerComponent, image->bitsPerPixel,
                                 image->bytesPerRow, image->colorSpace, static_cast<CGBitmapInfo>(image->alphaInfo),
                                 provider, nullptr, true, kCGRenderingIntentDefault);
    CGDataProviderRelease(provider);
    // A buffer in a layout the graphics layer cannot describe (made from a caller's pixels).
    if (!image->image) mark.Fallback(kPlimErrorUnsupportedLayout);
    return image->image;
}

void *PlimCFImageGetImageBuffer(PlimCFImage image) {
    PlimCFImagePromoteImage(image, false, false);
    return image->buffer;
}

void PlimCFImageInvalidateImage(PlimCFImage image) {
    if (image->image) CGImageRelease(image->image);
    image->image = nullptr;
}

void PlimCFImageInvalidateBuffer(PlimCFImage image) { DropBuffer(image); }

void PlimCFImagePromoteImage(PlimCFImage image, Boolean forceColor, Boolean forceAlpha) {
    if (!forceColor && !forceAlpha && image->buffer) return;
    if (AlreadyPromoted(image)) return;
    if (!image->image) {
        if (!image->buffer) {
            ResetLayoutFields(image);
            return Record(kPlimErrorNoPixels);
        }
        // A buffer that cannot be rendered cannot be converted: keep it and its pixels.
        if (!PlimCFImageGetCGImage(image)) return;
    }
    // Pixels the rendered image handed over to the buffer are decoded again before the buffer
    // goes; without memory for that, the buffer and its pixels stay.
    if (!plim::graphics::ImagePixelsReady(image->image)) return Record(kPlimErrorOutOfMemory);
    DropBuffer(image);
    // Without a target colour space there is nothing to convert into; the rendered image stays.
    CGColorSpaceRef native = NativeColorSpace();
    if (!native) return Record(kPlimErrorOutOfMemory);

    CGImageRef rendered = image->image;
    UInt32 width = static_cast<UInt32>(CGImageGetWidth(rendered));
    UInt32 height = static_cast<UInt32>(CGImageGetHeight(rendered));
    CGColorSpaceRef space = CGImageGetColorSpace(rendered);
    auto alphaRead = static_cast<SInt32>(CGImageGetAlphaInfo(rendered));
    if (!space) return Record(kPlimErrorUnsupportedLayout);

    bool changed = false;
    if (forceColor || !CFEqual(space, native)) {
        space = native;
        changed = true;
    }
    SInt32 alphaInfo;
    if (forceAlpha) {
        alphaInfo = kCGImageAlphaPremultipliedFirst;
        changed = true;
    } else if (alphaRead == kCGImageAlphaPremultipliedFirst || alphaRead == kCGImageAlphaNoneSkipFirst) {
        alphaInfo = alphaRead;
    } else if (alphaRead == kCGImageAlphaNone || alphaRead == kCGImageAlphaNoneSkipLast) {
        alphaInfo = kCGImageAlphaNoneSkipFirst;
        changed = true;
    } else {
        alphaInfo = kCGImageAlphaPremultipliedFirst;
        changed = true;
    }

    UInt32 bitsPerPixel = CGColorSpaceGetNumberOfComponents(space) == 3 ? 32 : 8;
    UInt32 rowBits = 0, bytesPerRow = 0, bufferSize = 0;
    if (!Multiply32(bitsPerPixel, width, &rowBits)) return Record(kPlimErrorTooLarge);
    bytesPerRow = rowBits >> 3;
    if (!Multiply32(bytesPerRow, height, &bufferSize)) return Record(kPlimErrorTooLarge);

    image->width = width;
    image->height = height;
    image->bitsPerComponent = 8;
    image->bitsPerPixel = bitsPerPixel;
    image->bytesPerRow = bytesPerRow;
    image->bufferSize = bufferSize;
    image->colorSpace = CGColorSpaceRetain(space);
    image->alphaInfo = alphaInfo;

    CFAllocatorRef allocator = CFGetAllocator(image);
    // A picture decoded straight into the buffer's layout (opaque, 8 bits, rows packed, these
    // colours) is what the draw below would make of it byte for byte: its pixel block becomes the
    // buffer instead, when the rendered image can give it up (see TakeImagePixels).
    if (!changed && alphaInfo == kCGImageAlphaNoneSkipFirst && bitsPerPixel == 32 &&
        CGImageGetBitsPerComponent(rendered) == 8 && CGImageGetBitsPerPixel(rendered) == 32 &&
        CGImageGetBytesPerRow(rendered) == bytesPerRow &&
        (allocator == kCFAllocatorSystemDefault || allocator == kCFAllocatorMalloc)) {
        image->buffer = plim::graphics::TakeImagePixels(rendered, bufferSize);
        if (image->buffer) return;
    }
    image->buffer = CFAllocatorAllocate(allocator, bufferSize, 0);
    if (!image->buffer) {
        if (bufferSize == 0) Record(kPlimErrorNoPixels);
        ResetLayoutFields(image);
        return;
    }
    PlimCFContext context = PlimCFContextCreate(allocator, width, height, image->buffer, 8, bytesPerRow,
                                                space, static_cast<CGImageAlphaInfo>(alphaInfo));
    CGContextRef cg = context ? PlimCFContextGetCGContext(context) : nullptr;
    if (!cg) {
        DropBuffer(image);
        if (context) CFRelease(context);
        return;
    }
    // The buffer is drawn onto as zero bytes: cleared row by row as the draw reaches it.
    plim::graphics::ClearAndDrawImage(
        cg, CGRectMake(0.0f, 0.0f, static_cast<float>(width), static_cast<float>(height)), rendered);
    if (changed) PlimCFImageInvalidateImage(image);
    CFRelease(context);
}

void PlimCFImageUnifyImageFormats(PlimCFImage a, PlimCFImage b) {
    PlimCFImageGetImageBuffer(a);
    PlimCFImageGetImageBuffer(b);
    CGColorSpaceRef spaceA = PlimCFImageGetColorSpace(a);
    CGColorSpaceRef spaceB = PlimCFImageGetColorSpace(b);
    if (!spaceA || !spaceB) return;
    size_t na = CGColorSpaceGetNumberOfComponents(spaceA);
    size_t nb = CGColorSpaceGetNumberOfComponents(spaceB);

    bool aHasAlpha = PlimCFImageHasAlpha(a), bHasAlpha = PlimCFImageHasAlpha(b);
    PlimCFImagePromoteImage(a, na < nb,
                            (bHasAlpha && !aHasAlpha) ||
                                (aHasAlpha && PlimCFImageGetAlphaInfo(a) != kCGImageAlphaPremultipliedFirst));

    size_t naAfter = CGColorSpaceGetNumberOfComponents(PlimCFImageGetColorSpace(a));
    aHasAlpha = PlimCFImageHasAlpha(a);
    PlimCFImagePromoteImage(b, nb < naAfter,
                            (aHasAlpha && !bHasAlpha) ||
                                (bHasAlpha && PlimCFImageGetAlphaInfo(b) != kCGImageAlphaPremultipliedFirst));
}

CGContextRef PlimCFImageRetainContext(PlimCFImage image) {
    if (image->context) {
        CFRetain(image->context);
    } else {
        PlimCFImagePromoteImage(image, false, false);
        if (image->buffer)
            image->context = PlimCFContextCreate(CFGetAllocator(image), image->width, image->height, image->buffer,
                                                 image->bitsPerComponent, image->bytesPerRow, image->colorSpace,
                                                 static_cast<CGImageAlphaInfo>(image->alphaInfo));
    }
    return image->context ? PlimCFContextGetCGContext(image->context) : nullptr;
}

void PlimCFImageReleaseContext(PlimCFImage image) {
    if (!image->context) return;
    CFIndex count = CFGetRetainCount(image->context);
    CFRelease(image->context);
    if (count == 1) {
        // The drawing may have changed the buffer.
        image->context = nullptr;
        PlimCFImageInvalidateImage(image);
    }
}

PlimCFContext PlimCFContextCreateForImage(CFAllocatorRef allocator, PlimCFImage image, void *buffer) {
    if (!image) return nullptr;
    CGImageRef rendered = PlimCFImageGetCGImage(image);
    if (!rendered) return nullptr;
    return PlimCFContextCreate(allocator, static_cast<UInt32>(CGImageGetWidth(rendered)),
                               static_cast<UInt32>(CGImageGetHeight(rendered)), buffer,
                               static_cast<UInt32>(CGImageGetBitsPerComponent(rendered)),
                               static_cast<UInt32>(CGImageGetBytesPerRow(rendered)), CGImageGetColorSpace(rendered),
                               CGImageGetAlphaInfo(rendered));
}

}  // extern "C"
