// The image object: registration, creation, accessors, runtime callbacks and descriptions.
#include "ImageInternal.h"
#include "platform/runtime/Errors.h"

#include <PlimBitmapLib/PlimMainDisplay.h>

#include <cmath>
#include <cstring>
#include <mutex>

extern "C" {
PLIM_EXPORT CFTypeID _kPlimCFImageID = 0;
}

namespace {

CFRuntimeClass _kPlimCFImageClass;
std::once_flag gPlimCFImageOnce;
bool gPlimCFImageInited = false;  // set once registration has finished, under the once flag
CGColorSpaceRef gPlimCFNativeColorSpace = nullptr;

// Registration happens once, on the first creation of an image; images may then be created
// from several threads at once.
void EnsureRegistered() {
    std::call_once(gPlimCFImageOnce, [] {
        PlimCFImageClassInitialize();
        gPlimCFImageInited = true;
    });
}

const char *AlphaInfoName(CGImageAlphaInfo info) {
    switch (info) {
        case kCGImageAlphaNone: return "kCGImageAlphaNone";
        case kCGImageAlphaPremultipliedLast: return "kCGImageAlphaPremultipliedLast";
        case kCGImageAlphaPremultipliedFirst: return "kCGImageAlphaPremultipliedFirst";
        case kCGImageAlphaLast: return "kCGImageAlphaLast";
        case kCGImageAlphaFirst: return "kCGImageAlphaFirst";
        case kCGImageAlphaNoneSkipLast: return "kCGImageAlphaNoneSkipLast";
        case kCGImageAlphaNoneSkipFirst: return "kCGImageAlphaNoneSkipFirst";
        case kCGImageAlphaOnly: return "kCGImageAlphaOnly";
    }
    return "";
}

PlimCFImage AsImage(CFTypeRef cf) { return static_cast<PlimCFImage>(const_cast<void *>(cf)); }

// Bits per pixel from the colour space: one sample per component, RGB counted as four.
UInt32 SamplesPerPixel(CGColorSpaceRef space) {
    auto n = static_cast<UInt32>(CGColorSpaceGetNumberOfComponents(space));
    return n == 3 ? 4 : n;
}

}  // namespace

namespace plim::core {

CGColorSpaceRef NativeColorSpace() { return gPlimCFNativeColorSpace; }

void ResetLayoutFields(PlimCFImage image) {
    if (image->colorSpace) CGColorSpaceRelease(image->colorSpace);
    image->buffer = nullptr;
    image->bufferSize = 0;
    image->width = image->height = 0;
    image->bitsPerComponent = image->bitsPerPixel = image->bytesPerRow = 0;
    image->colorSpace = nullptr;
    image->alphaInfo = kCGImageAlphaPremultipliedFirst;
}

}  // namespace plim::core

using plim::core::Multiply32;

extern "C" {

void PlimCFImageClassInitialize(void) {
    _kPlimCFImageClass = CFRuntimeClass{0,
                                        "PlimCFImage",
                                        PlimCFImageInit,
                                        PlimCFImageCopy,
                                        PlimCFImageFinalize,
                                        PlimCFImageEqual,
                                        PlimCFImageHash,
                                        PlimCFImageCopyFormattingDesc,
                                        PlimCFImageCopyDebugDesc};
    _kPlimCFImageID = _CFRuntimeRegisterClass(&_kPlimCFImageClass);
    gPlimCFNativeColorSpace = PlimCGColorSpaceCreateMainDisplay();
}

CFTypeID PlimCFImageGetTypeID(void) { return _kPlimCFImageID; }

void PlimCFImageInit(CFTypeRef cf) {
    PlimCFImage image = AsImage(cf);
    image->image = nullptr;
    image->context = nullptr;
    plim::core::ResetLayoutFields(image);
}

PlimCFImage PlimCFImageCreate(CFAllocatorRef allocator) {
    EnsureRegistered();
    if (_kPlimCFImageID == _kCFRuntimeNotATypeID) return nullptr;
    return static_cast<PlimCFImage>(const_cast<void *>(_CFRuntimeCreateInstance(
        allocator, _kPlimCFImageID, sizeof(__PlimCFImage) - sizeof(CFRuntimeBase), nullptr)));
}

PlimCFImage PlimCFImageCreateWithImage(CFAllocatorRef allocator, CGImageRef cgImage) {
    PlimCFImage image = PlimCFImageCreate(allocator);
    if (image) image->image = CGImageRetain(cgImage);
    return image;
}

PlimCFImage PlimCFImageCreateWithBuffer(CFAllocatorRef allocator, const void *pixels, UInt32 width,
                                        UInt32 height, UInt32 bitsPerComponent, UInt32 bitsPerPixel,
                                        UInt32 bytesPerRow, CGColorSpaceRef colorSpace,
                                        CGImageAlphaInfo alphaInfo) {
    // The alpha info comes from the caller as a plain number: only the eight listed values.
    if (static_cast<UInt32>(alphaInfo) > static_cast<UInt32>(kCGImageAlphaOnly))
        return plim::errors::Fail(kPlimErrorInvalidArgument, nullptr);
    PlimCFImage image = PlimCFImageCreate(allocator);
    if (!image) return nullptr;
    image->width = width;
    image->height = height;
    image->bitsPerComponent = bitsPerComponent;
    image->alphaInfo = alphaInfo;
    image->colorSpace = colorSpace ? CGColorSpaceRetain(colorSpace) : PlimCGColorSpaceCreateMainDisplay();
    UInt32 bufferSize = 0;
    bool fits = true;
    if (bitsPerPixel == 0)
        fits = Multiply32(SamplesPerPixel(image->colorSpace), bitsPerComponent, &bitsPerPixel);
    image->bitsPerPixel = bitsPerPixel;
    // Every row must hold its pixels: the shortest row is the default, and a shorter one given
    // by the caller is refused, so that no row operation reads past the buffer.
    const uint64_t shortestRow = (uint64_t{width} * bitsPerPixel + 7) >> 3;
    if (bytesPerRow == 0) {
        fits = fits && shortestRow <= UINT32_MAX;
        bytesPerRow = static_cast<UInt32>(shortestRow);
    }
    const bool rowHolds = bytesPerRow >= shortestRow;
    image->bytesPerRow = bytesPerRow;
    fits = fits && Multiply32(bytesPerRow, height, &bufferSize);
    void *buffer = fits && rowHolds && pixels ? CFAllocatorAllocate(CFGetAllocator(image), bufferSize, 0) : nullptr;
    if (!buffer) {
        if (!fits)
            plim::errors::Record(kPlimErrorTooLarge);
        else if (!rowHolds || !pixels || bufferSize == 0)
            plim::errors::Record(kPlimErrorInvalidArgument);
        CFRelease(image);
        return nullptr;
    }
    std::memcpy(buffer, pixels, bufferSize);
    image->buffer = buffer;
    image->bufferSize = bufferSize;
    return image;
}

PlimCFImage PlimCFImageCreateCopy(CFAllocatorRef allocator, PlimCFImage image) {
    return AsImage(PlimCFImageCopy(allocator, image));
}

PlimCFImage PlimCFImageCreateWithSize(CFAllocatorRef allocator, CGSize size, Boolean makeTransparent) {
    // Sizes that are not finite or do not fit 32 bits are refused before they are rounded.
    if (!(size.width >= 0.0f && size.width < 4294967040.0f && size.height >= 0.0f &&
          size.height < 4294967040.0f))
        return plim::errors::Fail(size.width >= 0.0f && size.height >= 0.0f ? kPlimErrorTooLarge
                                                                            : kPlimErrorInvalidArgument,
                                  nullptr);
    PlimCFImage image = PlimCFImageCreate(allocator);
    if (!image) return nullptr;
    image->width = static_cast<UInt32>(lroundf(size.width));
    image->height = static_cast<UInt32>(lroundf(size.height));
    image->bitsPerComponent = 8;
    if (makeTransparent) {
        image->bitsPerPixel = 32;
        image->alphaInfo = kCGImageAlphaPremultipliedFirst;
        image->colorSpace = PlimCGColorSpaceCreateMainDisplay();
    } else {
        image->bitsPerPixel = 8;
        image->alphaInfo = kCGImageAlphaNone;
        image->colorSpace = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    }
    UInt32 rowBits = 0, bufferSize = 0;
    bool fits = Multiply32(image->width, image->bitsPerPixel, &rowBits) && rowBits <= UINT32_MAX - 7;
    image->bytesPerRow = (rowBits + 7) >> 3;
    fits = fits && Multiply32(image->bytesPerRow, image->height, &bufferSize);
    void *buffer = fits ? CFAllocatorAllocate(CFGetAllocator(image), bufferSize, 0) : nullptr;
    if (!buffer) {
        if (!fits || bufferSize == 0) plim::errors::Record(fits ? kPlimErrorInvalidArgument : kPlimErrorTooLarge);
        CFRelease(image);
        return nullptr;
    }
    // Cleared as the clear operation does: transparent black with alpha, white without.
    std::memset(buffer, makeTransparent ? 0 : 255, bufferSize);
    image->buffer = buffer;
    image->bufferSize = bufferSize;
    return image;
}

CFTypeRef PlimCFImageCopy(CFAllocatorRef allocator, CFTypeRef cf) {
    PlimCFImage source = AsImage(cf);
    PlimCFImage copy = PlimCFImageCreate(allocator);
    if (!copy) return nullptr;
    copy->image = CGImageRetain(source->image);
    copy->bufferSize = source->bufferSize;
    copy->width = source->width;
    copy->height = source->height;
    copy->bitsPerComponent = source->bitsPerComponent;
    copy->bitsPerPixel = source->bitsPerPixel;
    copy->bytesPerRow = source->bytesPerRow;
    copy->colorSpace = CGColorSpaceRetain(source->colorSpace);
    copy->alphaInfo = source->alphaInfo;
    if (source->buffer) {
        copy->buffer = CFAllocatorAllocate(CFGetAllocator(copy), source->bufferSize, 0);
        if (!copy->buffer) {
            CFRelease(copy);
            return nullptr;
        }
        std::memcpy(copy->buffer, source->buffer, source->bufferSize);
    }
    if (copy->image) {
        // The copy keeps pixels of its own only: convert the rendered image if there was no
        // buffer to copy, then let it go.
        PlimCFImagePromoteImage(copy, false, false);
        PlimCFImageInvalidateImage(copy);
    }
    return copy;
}

void PlimCFImageFinalize(CFTypeRef cf) {
    PlimCFImage image = AsImage(cf);
    PlimCFImageInvalidateImage(image);
    PlimCFImageInvalidateBuffer(image);
    if (image->context) {
        // The lent drawing context lives no longer than its image.
        PlimCFContext context = image->context;
        image->context = nullptr;
        for (CFIndex n = CFGetRetainCount(context); n > 0; --n) CFRelease(context);
    }
}

Boolean PlimCFImageEqual(CFTypeRef a, CFTypeRef b) {
    if (a == b) return true;
    CGImageRef ia = AsImage(a)->image, ib = AsImage(b)->image;
    return ia && ib && CFEqual(ia, ib);
}

CFHashCode PlimCFImageHash(CFTypeRef cf) {
    return static_cast<CFHashCode>(reinterpret_cast<uintptr_t>(cf));
}

CFStringRef PlimCFImageCopyFormattingDesc(CFTypeRef cf, CFDictionaryRef formatOptions) {
    PlimCFImage image = AsImage(cf);
    return CFStringCreateWithFormat(CFGetAllocator(cf), formatOptions,
                                    CFSTR("<PlimCFImage: %dx%d bpc=%d bpp=%d rowBytes=%d %s>"),
                                    PlimCFImageGetWidth(image), PlimCFImageGetHeight(image),
                                    PlimCFImageGetBitsPerComponent(image), PlimCFImageGetBitsPerPixel(image),
                                    PlimCFImageGetBytesPerRow(image), AlphaInfoName(PlimCFImageGetAlphaInfo(image)));
}

CFStringRef PlimCFImageCopyDebugDesc(CFTypeRef cf) { return PlimCFImageCopyFormattingDesc(cf, nullptr); }

void PlimCFReleaseImageBuffer(void *info, const void *data, size_t) {
    if (data) CFAllocatorDeallocate(static_cast<CFAllocatorRef>(info), const_cast<void *>(data));
}

UInt32 PlimCFImageGetWidth(PlimCFImage image) {
    return image->image ? static_cast<UInt32>(CGImageGetWidth(image->image)) : image->width;
}
UInt32 PlimCFImageGetHeight(PlimCFImage image) {
    return image->image ? static_cast<UInt32>(CGImageGetHeight(image->image)) : image->height;
}
UInt32 PlimCFImageGetBitsPerComponent(PlimCFImage image) {
    return image->image ? static_cast<UInt32>(CGImageGetBitsPerComponent(image->image)) : image->bitsPerComponent;
}
UInt32 PlimCFImageGetBitsPerPixel(PlimCFImage image) {
    return image->image ? static_cast<UInt32>(CGImageGetBitsPerPixel(image->image)) : image->bitsPerPixel;
}
UInt32 PlimCFImageGetBytesPerRow(PlimCFImage image) {
    return image->image ? static_cast<UInt32>(CGImageGetBytesPerRow(image->image)) : image->bytesPerRow;
}
CGColorSpaceRef PlimCFImageGetColorSpace(PlimCFImage image) {
    return image->image ? CGImageGetColorSpace(image->image) : image->colorSpace;
}
CGImageAlphaInfo PlimCFImageGetAlphaInfo(PlimCFImage image) {
    return image->image ? CGImageGetAlphaInfo(image->image) : static_cast<CGImageAlphaInfo>(image->alphaInfo);
}
Boolean PlimCFImageHasAlpha(PlimCFImage image) {
    CGImageAlphaInfo info = PlimCFImageGetAlphaInfo(image);
    return !(info == kCGImageAlphaNone || info == kCGImageAlphaNoneSkipLast || info == kCGImageAlphaNoneSkipFirst);
}
UInt32 PlimCFImageGetImageBufferSize(PlimCFImage image) {
    PlimCFImagePromoteImage(image, false, false);
    return image->bufferSize;
}

}  // extern "C"
