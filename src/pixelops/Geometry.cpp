// Crop, scale and vertical flip. The graphics layer draws the rendered picture into fresh
// memory, which then becomes the image's buffer (crop, scale) or is copied over it (flip).
#include "GeometryInternal.h"

#include <PlimBitmapLib/PlimCFImageGeometry.h>

#include "core/ImageInternal.h"
#include "platform/runtime/CFRef.h"
#include "platform/runtime/Errors.h"

#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

// The layout a re-rendered buffer takes: 24-bit pictures gain a skipped fourth byte, and 32-bit
// rows are padded to a multiple of 32 bytes.
struct RenderLayout {
    UInt32 bitsPerComponent;
    UInt32 bitsPerPixel;
    SInt32 alphaInfo;
    UInt32 bytesPerRow;
};

bool LayoutFor(UInt32 bitsPerComponent, UInt32 bitsPerPixel, SInt32 alphaInfo, UInt32 width,
               RenderLayout *layout) {
    uint64_t rowBytes;
    layout->bitsPerComponent = bitsPerComponent;
    if (bitsPerComponent == 1 && bitsPerPixel == 1) {
        // Nothing draws into one bit per pixel: a black-and-white picture is cropped and scaled
        // into 8-bit grey, which also keeps the grey levels that scaling makes.
        layout->bitsPerComponent = 8;
        bitsPerPixel = 8;
    }
    if (bitsPerPixel == 24 || bitsPerPixel == 32) {
        layout->bitsPerPixel = 32;
        layout->alphaInfo = bitsPerPixel == 24 ? kCGImageAlphaNoneSkipLast : alphaInfo;
        // Drawing always premultiplies: unpremultiplied alpha comes back premultiplied.
        if (layout->alphaInfo == kCGImageAlphaFirst) layout->alphaInfo = kCGImageAlphaPremultipliedFirst;
        if (layout->alphaInfo == kCGImageAlphaLast) layout->alphaInfo = kCGImageAlphaPremultipliedLast;
        rowBytes = (uint64_t{4} * width + 31) & ~uint64_t{31};
    } else {
        layout->bitsPerPixel = bitsPerPixel;
        layout->alphaInfo = alphaInfo;
        rowBytes = (uint64_t{bitsPerPixel} * width + 7) >> 3;
    }
    if (rowBytes > UINT32_MAX) return false;
    layout->bytesPerRow = static_cast<UInt32>(rowBytes);
    return true;
}

// Replaces both representations by `bytes` (allocated from the image's allocator) in `layout`.
void Install(PlimCFImage image, void *bytes, UInt32 width, UInt32 height, const RenderLayout &layout,
             CGColorSpaceRef space) {
    // The colour space may belong to the representations about to go: hold it first.
    CGColorSpaceRetain(space);
    PlimCFImageInvalidateImage(image);
    PlimCFImageInvalidateBuffer(image);
    image->buffer = bytes;
    image->bufferSize = layout.bytesPerRow * height;
    image->width = width;
    image->height = height;
    image->bitsPerComponent = layout.bitsPerComponent;
    image->bitsPerPixel = layout.bitsPerPixel;
    image->bytesPerRow = layout.bytesPerRow;
    image->colorSpace = space;
    image->alphaInfo = layout.alphaInfo;
}

// Draws `rendered` (the image's rendered form) into `drawRect` of a new width x height buffer
// and installs that buffer. Any failure leaves the image as it was.
void Rerender(PlimCFImage image, CGImageRef rendered, UInt32 width, UInt32 height, CGRect drawRect) {
    CGColorSpaceRef space = CGImageGetColorSpace(rendered);
    if (!space) return plim::errors::Record(kPlimErrorUnsupportedLayout);
    RenderLayout layout;
    UInt32 size = 0;
    if (!LayoutFor(static_cast<UInt32>(CGImageGetBitsPerComponent(rendered)),
                   static_cast<UInt32>(CGImageGetBitsPerPixel(rendered)),
                   static_cast<SInt32>(CGImageGetAlphaInfo(rendered)), width, &layout) ||
        !plim::core::Multiply32(layout.bytesPerRow, height, &size))
        return plim::errors::Record(kPlimErrorTooLarge);
    // No pixels wide or high: nothing to draw into.
    if (size == 0) return plim::errors::Record(kPlimErrorInvalidArgument);

    CFAllocatorRef allocator = CFGetAllocator(image);
    void *bytes = CFAllocatorAllocate(allocator, size, 0);
    if (!bytes) return;
    std::memset(bytes, 0, size);
    PlimCFContext context = PlimCFContextCreate(allocator, width, height, bytes, layout.bitsPerComponent,
                                                layout.bytesPerRow, space,
                                                static_cast<CGImageAlphaInfo>(layout.alphaInfo));
    CGContextRef cg = context ? PlimCFContextGetCGContext(context) : nullptr;
    if (!cg) {
        if (context) CFRelease(context);
        CFAllocatorDeallocate(allocator, bytes);
        return;
    }
    CGContextDrawImage(cg, drawRect, rendered);

    Install(image, bytes, width, height, layout, space);
    CFRelease(context);
}

// The rendered image PlimCFImageGetCGImage would make of a buffer held alone, but over the
// buffer itself instead of a copy, for a draw whose result replaces the buffer: the copy would
// be dropped straight afterwards. Null when the image holds a rendered image (whose layout the
// new buffer then takes) or no buffer.
plim::CFRef<CGImageRef> BorrowBufferAsImage(PlimCFImage image) {
    if (image->image || !image->buffer) return {};
    plim::CFRef<CGDataProviderRef> provider(
        CGDataProviderCreateWithData(nullptr, image->buffer, image->bufferSize, nullptr));
    if (!provider) return {};
    return plim::CFRef<CGImageRef>(CGImageCreate(image->width, image->height, image->bitsPerComponent,
                                                 image->bitsPerPixel, image->bytesPerRow, image->colorSpace,
                                                 static_cast<CGBitmapInfo>(image->alphaInfo), provider.get(),
                                                 nullptr, true, kCGRenderingIntentDefault));
}

// Sizes are rounded with lroundf; anything that would not fit 32 bits is refused first.
bool RoundSize(float value, UInt32 *result) {
    if (!(value >= 0.0f && value < 4294967040.0f)) return false;
    *result = static_cast<UInt32>(lroundf(value));
    return true;
}

// Whether the graphics layer would draw the buffer's rendered form back into its own layout byte
// for byte, so that rows can be moved instead: premultiplied ARGB and 8-bit grey (an XRGB draw
// rewrites the ignored byte). A rendered image held beside the buffer must match it.
bool RowsCopyExactly(PlimCFImage image) {
    if (!image->buffer || !image->colorSpace || image->bitsPerComponent != 8) return false;
    bool argb = image->bitsPerPixel == 32 && image->alphaInfo == kCGImageAlphaPremultipliedFirst &&
                CGColorSpaceGetNumberOfComponents(image->colorSpace) == 3;
    bool grey = image->bitsPerPixel == 8 && image->alphaInfo == kCGImageAlphaNone &&
                CGColorSpaceGetNumberOfComponents(image->colorSpace) == 1;
    if (!argb && !grey) return false;
    CGImageRef rendered = image->image;
    return !rendered ||
           (CGImageGetBitsPerComponent(rendered) == 8 && CGImageGetBitsPerPixel(rendered) == image->bitsPerPixel &&
            static_cast<SInt32>(CGImageGetAlphaInfo(rendered)) == image->alphaInfo &&
            CGImageGetWidth(rendered) == image->width && CGImageGetHeight(rendered) == image->height &&
            CFEqual(CGImageGetColorSpace(rendered), image->colorSpace));
}

// The crop as row copies: columns [x, x + width) of rows [top, top + height) of the buffer.
void CropByCopying(PlimCFImage image, UInt32 x, UInt32 top, UInt32 width, UInt32 height) {
    RenderLayout layout;
    UInt32 size = 0;
    if (!LayoutFor(8, image->bitsPerPixel, image->alphaInfo, width, &layout) ||
        !plim::core::Multiply32(layout.bytesPerRow, height, &size))
        return plim::errors::Record(kPlimErrorTooLarge);
    auto *bytes = static_cast<UInt8 *>(CFAllocatorAllocate(CFGetAllocator(image), size, 0));
    if (!bytes) return;
    const size_t pixelBytes = image->bitsPerPixel / 8;
    const size_t used = pixelBytes * width;
    const auto *src = static_cast<const UInt8 *>(image->buffer) + static_cast<size_t>(top) * image->bytesPerRow +
                      pixelBytes * x;
    for (UInt32 row = 0; row < height; ++row, src += image->bytesPerRow) {
        UInt8 *dst = bytes + static_cast<size_t>(row) * layout.bytesPerRow;
        std::memcpy(dst, src, used);
        std::memset(dst + used, 0, layout.bytesPerRow - used);
    }
    Install(image, bytes, width, height, layout, image->colorSpace);
}

// Swaps rows in place through a small bounce buffer; needs no memory.
void FlipByCopying(PlimCFImage image) {
    auto *pixels = static_cast<UInt8 *>(image->buffer);
    const size_t rowBytes = image->bytesPerRow;
    UInt8 bounce[4096];
    for (UInt32 top = 0, bottom = image->height - 1; top < bottom; ++top, --bottom) {
        UInt8 *a = pixels + top * rowBytes, *b = pixels + bottom * rowBytes;
        for (size_t done = 0; done < rowBytes; done += sizeof bounce) {
            size_t n = rowBytes - done < sizeof bounce ? rowBytes - done : sizeof bounce;
            std::memcpy(bounce, a + done, n);
            std::memcpy(a + done, b + done, n);
            std::memcpy(b + done, bounce, n);
        }
    }
    PlimCFImageInvalidateImage(image);
}

}  // namespace

namespace plim::pixel {

void CropToRect(PlimCFImage image, CGRect rect, bool copyRows) {
    CGRect r = CGRectIntegral(CGRectStandardize(rect));
    UInt32 w = PlimCFImageGetWidth(image), h = PlimCFImageGetHeight(image);
    auto fw = static_cast<float>(w), fh = static_cast<float>(h);
    if (r.origin.x == 0.0f && r.origin.y == 0.0f && r.size.width == fw && r.size.height == fh) return;
    if (w == 0 || h == 0) return plim::errors::Record(kPlimErrorNoPixels);

    // A negative origin moves to the edge without shortening the rectangle; the far edges are
    // cut at the picture's.
    float x = r.origin.x >= 0.0f ? r.origin.x : 0.0f;
    float width = CGRectGetMaxX(CGRectMake(x, r.origin.y, r.size.width, r.size.height)) > fw ? fw - x : r.size.width;
    float y = r.origin.y >= 0.0f ? r.origin.y : 0.0f;
    float height = CGRectGetMaxY(CGRectMake(x, y, width, r.size.height)) > fh ? fh - y : r.size.height;
    // Nothing of the picture left (a rectangle wholly beyond the right or top edge, an empty
    // or null one): keep the image rather than make an empty or zero-filled one.
    if (!(width > 0.0f) || !(height > 0.0f)) return plim::errors::Record(kPlimErrorInvalidArgument);
    CGRect crop = CGRectIntegral(CGRectStandardize(CGRectMake(x, y, width, height)));
    UInt32 nw = 0, nh = 0;
    if (!RoundSize(crop.size.width, &nw) || !RoundSize(crop.size.height, &nh))
        return plim::errors::Record(kPlimErrorInvalidArgument);

    // The rectangle now lies inside the picture on whole pixels, so the draw would be a copy.
    if (copyRows && RowsCopyExactly(image)) {
        auto left = static_cast<UInt32>(crop.origin.x), bottom = static_cast<UInt32>(crop.origin.y);
        if (left + nw <= w && bottom + nh <= h) {
            CropByCopying(image, left, h - bottom - nh, nw, nh);
            return;
        }
    }
    if (!PlimCFImageGetCGImage(image)) return;
    Rerender(image, image->image, nw, nh, CGRectMake(-crop.origin.x, -crop.origin.y, fw, fh));
}

void FlipVertically(PlimCFImage image, bool copyRows) {
    PlimCFImagePromoteImage(image, false, false);
    if (copyRows && RowsCopyExactly(image) && image->height > 0 && image->bytesPerRow > 0) {
        FlipByCopying(image);
        return;
    }
    CGImageRef rendered = PlimCFImageGetCGImage(image);
    if (!rendered || !image->buffer) return;
    auto w = static_cast<float>(CGImageGetWidth(rendered));
    auto h = static_cast<float>(CGImageGetHeight(rendered));

    PlimCFContext scratch = PlimCFContextCreate(CFGetAllocator(image), image->width, image->height, nullptr,
                                                image->bitsPerComponent, image->bytesPerRow, image->colorSpace,
                                                static_cast<CGImageAlphaInfo>(image->alphaInfo));
    CGContextRef cg = scratch ? PlimCFContextGetCGContext(scratch) : nullptr;
    void *pixels = scratch ? PlimCFContextGetBuffer(scratch) : nullptr;
    if (!cg || !pixels) {
        if (scratch) CFRelease(scratch);
        return;
    }
    CGContextTranslateCTM(cg, 0.0f, h);
    CGContextScaleCTM(cg, 1.0f, -1.0f);
    CGContextDrawImage(cg, CGRectMake(0.0f, 0.0f, w, h), rendered);
    std::memmove(image->buffer, pixels, image->bufferSize);
    PlimCFImageInvalidateImage(image);
    CFRelease(scratch);
}

}  // namespace plim::pixel

extern "C" {

void PlimCFImageCropToRect(PlimCFImage image, CGRect rect) { plim::pixel::CropToRect(image, rect, true); }

void PlimCFImageScaleToSize(PlimCFImage image, CGSize size) {
    UInt32 nw = 0, nh = 0;
    // A negative, not finite or too large size does nothing.
    if (!RoundSize(size.width, &nw) || !RoundSize(size.height, &nh))
        return plim::errors::Record(kPlimErrorInvalidArgument);
    if (nw == PlimCFImageGetWidth(image) && nh == PlimCFImageGetHeight(image)) return;
    const CGRect all = CGRectMake(0.0f, 0.0f, static_cast<float>(nw), static_cast<float>(nh));
    if (plim::CFRef<CGImageRef> borrowed = BorrowBufferAsImage(image)) {
        Rerender(image, borrowed.get(), nw, nh, all);
        return;
    }
    if (!PlimCFImageGetCGImage(image)) return;
    Rerender(image, image->image, nw, nh, all);
}

void PlimCFImageFlipVertically(PlimCFImage image) { plim::pixel::FlipVertically(image, true); }

}  // extern "C"
