// The composite driver and tiling. The source is read through a private, unified copy unless
// unification cannot change it, so the source image never changes and compositing an image
// onto itself reads a snapshot of it.
#include <PlimBitmapLib/PlimCFImageComposite.h>
#include <PlimBitmapLib/PlimCFImageGeometry.h>
#include <PlimBitmapLib/platform/CGColorSpace.h>
#include <PlimBitmapLib/platform/CGGeometry.h>

#include "composite/CompositeInternal.h"
#include "composite/Kernels.h"
#include "core/ImageInternal.h"
#include "platform/runtime/CFRef.h"

#include <cmath>
#include <cstring>
#include <vector>

namespace {

using plim::CFRef;
using namespace plim::composite;

PlimCFImage CopyImage(PlimCFImage image) {
    return static_cast<PlimCFImage>(
        const_cast<void *>(PlimCFImageCopy(CFGetAllocator(image), image)));
}

bool LayoutOf(PlimCFImage image, Layout *layout) {
    CGColorSpaceRef space = PlimCFImageGetColorSpace(image);
    if (!space) return false;
    size_t components = CGColorSpaceGetNumberOfComponents(space);
    CGImageAlphaInfo alpha = PlimCFImageGetAlphaInfo(image);
    if (components == 1 && alpha == kCGImageAlphaNone) *layout = kLayoutS_8;
    else if (components == 3 && alpha == kCGImageAlphaNoneSkipFirst) *layout = kLayoutRGB_888;
    else if (components == 3 && alpha == kCGImageAlphaPremultipliedFirst) *layout = kLayoutARGB_8888;
    else return false;
    return true;
}

// Origin to 0 keeping the size, then trim at the far edge only.
void Clip(CGRect *r, float width, float height) {
    if (r->origin.x < 0) r->origin.x = 0;
    if (r->origin.x + r->size.width > width) r->size.width = width - r->origin.x;
    if (r->origin.y < 0) r->origin.y = 0;
    if (r->origin.y + r->size.height > height) r->size.height = height - r->origin.y;
}

UInt32 ToUnsigned(float v) { return v > 0 ? static_cast<UInt32>(v) : 0u; }

}  // namespace

namespace plim::composite {

PlimCFImage CreatePairSource(PlimCFImage copy, CGRect s, CGSize size, bool regionOnly) {
    // The crop of a premultiplied ARGB or grey buffer is a plain copy of the rectangle's rows
    // (counted from the bottom), so copying just those rows gives the same picture without
    // duplicating the whole source first.
    Layout layout;
    const bool exactCrop = regionOnly && copy->buffer && LayoutOf(copy, &layout) &&
                           layout != kLayoutRGB_888 && copy->bitsPerComponent == 8;
    if (exactCrop) {
        const UInt32 x = ToUnsigned(s.origin.x), y = ToUnsigned(s.origin.y);
        const UInt32 w = ToUnsigned(s.size.width), h = ToUnsigned(s.size.height);
        const UInt32 bpp = copy->bitsPerPixel >> 3;
        if (x + w <= copy->width && y + h <= copy->height && w > 0 && h > 0) {
            const UInt32 top = copy->height - y - h;
            std::vector<UInt8> rows(static_cast<size_t>(w) * h * bpp);
            const auto *base = static_cast<const UInt8 *>(copy->buffer);
            for (UInt32 r = 0; r < h; ++r)
                std::memcpy(&rows[static_cast<size_t>(r) * w * bpp],
                            base + static_cast<size_t>(top + r) * copy->bytesPerRow +
                                static_cast<size_t>(x) * bpp,
                            static_cast<size_t>(w) * bpp);
            PlimCFImage region = PlimCFImageCreateWithBuffer(
                CFGetAllocator(copy), rows.data(), w, h, 8, copy->bitsPerPixel, w * bpp,
                copy->colorSpace, static_cast<CGImageAlphaInfo>(copy->alphaInfo));
            if (!region) return nullptr;
            PlimCFImageScaleToSize(region, size);
            PlimCFImagePromoteImage(region, false, false);
            return region;
        }
    }
    PlimCFImage scratch = CopyImage(copy);
    if (!scratch) return nullptr;
    PlimCFImageCropToRect(scratch, s);
    PlimCFImageScaleToSize(scratch, size);
    PlimCFImagePromoteImage(scratch, false, false);
    return scratch;
}

}  // namespace plim::composite

namespace {

// The last scaled source, kept across the tiles of one tiling call: the tiles cut at the
// same edge ask for the same rectangle at the same size from an unchanging working source.
struct ScaledSourceCache {
    CGRect rect;
    CGSize size;
    CFRef<PlimCFImage> image;
};

// Everything after the working copy has been made and unified with the destination.
void DrawPairs(PlimCFImage copy, PlimCFImage dest, const CGRect *srcRects,
               const CGRect *destRects, UInt32 numRects, UInt32 operation,
               ScaledSourceCache *cache = nullptr) {
    Layout layout;
    if (!LayoutOf(copy, &layout) || operation >= kOperationCount) return;
    CompositeRow row = RowFor(layout, operation);

    PlimCFImagePromoteImage(copy, false, false);
    PlimCFImagePromoteImage(dest, false, false);
    UInt8 *destBase = static_cast<UInt8 *>(dest->buffer);
    const UInt32 bpp = copy->bitsPerPixel >> 3;
    const UInt32 srcW = copy->width, srcH = copy->height;
    const UInt32 dstW = dest->width, dstH = dest->height;
    if (copy->bufferSize < srcW * srcH * bpp || dest->bufferSize < dstW * dstH * bpp) return;
    // The destination's pixels must have the copy's size too, or the rows would be misread.
    if (destBase && dest->bitsPerPixel != copy->bitsPerPixel) return;

    if (numRects == 0) numRects = 1;
    const float srcWf = static_cast<float>(srcW), srcHf = static_cast<float>(srcH);
    const float dstWf = static_cast<float>(dstW), dstHf = static_cast<float>(dstH);
    const CGRect wholeSrc = CGRectMake(0, 0, srcWf, srcHf);
    const CGRect wholeDest = CGRectMake(0, 0, dstWf, dstHf);
    bool drew = false;

    for (UInt32 i = 0; i < numRects; ++i) {
        CGRect s = srcRects ? srcRects[i] : wholeSrc;
        CGRect d = destRects ? destRects[i] : wholeDest;
        if (!destBase) continue;
        s = CGRectIntegral(CGRectStandardize(s));
        d = CGRectIntegral(CGRectStandardize(d));
        Clip(&s, srcWf, srcHf);
        Clip(&d, dstWf, dstHf);
        if (!(s.size.width > 0) || !(s.size.height > 0) || !(d.size.width > 0) ||
            !(d.size.height > 0))
            continue;

        const UInt8 *srcBase;
        UInt32 srcRowBytes;
        float srcX, srcY;
        CFRef<PlimCFImage> scratch;
        const UInt32 cols = ToUnsigned(d.size.width), rows = ToUnsigned(d.size.height);
        if (CGSizeEqualToSize(s.size, d.size)) {
            srcBase = static_cast<const UInt8 *>(copy->buffer);
            srcRowBytes = copy->bytesPerRow;
            srcX = s.origin.x;
            srcY = s.origin.y;
        } else {
            if (cache && cache->image && CGRectEqualToRect(cache->rect, s) &&
                CGSizeEqualToSize(cache->size, d.size)) {
                scratch = cache->image;
            } else {
                scratch.reset(CreatePairSource(copy, s, d.size, true));
                if (!scratch) continue;
                if (cache) *cache = ScaledSourceCache{s, d.size, scratch};
            }
            PlimCFImage sc = scratch.get();
            // Read only what the scaled picture really holds, in the copy's pixel size.
            if (sc->bitsPerPixel != copy->bitsPerPixel || sc->width < cols || sc->height < rows)
                continue;
            srcBase = static_cast<const UInt8 *>(sc->buffer);
            srcRowBytes = sc->bytesPerRow;
            srcX = 0;
            srcY = 0;
        }
        if (!srcBase) continue;

        const UInt32 sx = ToUnsigned(srcX), sy = ToUnsigned(srcY);
        const UInt32 dx = ToUnsigned(d.origin.x), dy = ToUnsigned(d.origin.y);
        const UInt32 destRowBytes = dest->bytesPerRow;
        for (UInt32 r = 0; r < rows; ++r) {
            const UInt8 *sp = srcBase + static_cast<size_t>(r + sy) * srcRowBytes +
                              static_cast<size_t>(sx) * bpp;
            UInt8 *dp = destBase + static_cast<size_t>(r + dy) * destRowBytes +
                        static_cast<size_t>(dx) * bpp;
            row(sp, dp, cols);
        }
        drew = drew || (rows > 0 && cols > 0);
    }
    if (drew) PlimCFImageInvalidateImage(dest);
}

// True when unifying with `dest` would leave `src` exactly as it is (a buffer already in a
// layout the destination does not outrank), so that a copy of it would hold the same pixels.
bool UnifyLeavesSourceAlone(PlimCFImage src, PlimCFImage dest) {
    if (src == dest || !src->buffer || src->image || !src->colorSpace || !dest->buffer) return false;
    CGColorSpaceRef destSpace = PlimCFImageGetColorSpace(dest);
    if (!destSpace) return false;
    const size_t na = CGColorSpaceGetNumberOfComponents(src->colorSpace);
    const size_t nb = CGColorSpaceGetNumberOfComponents(destSpace);
    const bool aHasAlpha = PlimCFImageHasAlpha(src), bHasAlpha = PlimCFImageHasAlpha(dest);
    const bool forceColor = na < nb;
    const bool forceAlpha = (bHasAlpha && !aHasAlpha) ||
                            (aHasAlpha && src->alphaInfo != kCGImageAlphaPremultipliedFirst);
    return !forceColor && !forceAlpha;
}

// The source as the kernels read it, unified with the destination: the source itself when
// unification cannot change it and it is not the destination, otherwise a private copy.
CFRef<PlimCFImage> WorkingSource(PlimCFImage src, PlimCFImage dest) {
    if (UnifyLeavesSourceAlone(src, dest)) {
        PlimCFImageUnifyImageFormats(src, dest);
        return CFRef<PlimCFImage>::Retain(src);
    }
    CFRef<PlimCFImage> copy(CopyImage(src));
    if (copy) PlimCFImageUnifyImageFormats(copy.get(), dest);
    return copy;
}

}  // namespace

void PlimCFImageComposite(PlimCFImage src, PlimCFImage dest, const CGRect *srcRects,
                          const CGRect *destRects, UInt32 numRects,
                          PlimCompositeOperation operation) {
    CFRef<PlimCFImage> working = WorkingSource(src, dest);
    if (!working) return;
    DrawPairs(working.get(), dest, srcRects, destRects, numRects, static_cast<UInt32>(operation));
}

void PlimCFImageTile(PlimCFImage src, PlimCFImage dest, CGRect srcRect, CGRect destRect,
                     PlimCompositeOperation operation, PlimTileOrigin tileOrigin) {
    auto whole = [](float v) { return v > 0 ? static_cast<UInt32>(v) : 0u; };
    const UInt32 tw = whole(CGRectGetWidth(srcRect)), th = whole(CGRectGetHeight(srcRect));
    const UInt32 dw = whole(CGRectGetWidth(destRect)), dh = whole(CGRectGetHeight(destRect));
    if (tw == 0 || th == 0 || dw == 0 || dh == 0) return;
    const UInt32 columns = static_cast<UInt32>(
        ceilf(static_cast<float>(dw) / static_cast<float>(tw)));
    const UInt32 rows = static_cast<UInt32>(
        ceilf(static_cast<float>(dh) / static_cast<float>(th)));

    const float W = srcRect.size.width, H = srcRect.size.height;
    const float twf = static_cast<float>(tw), thf = static_cast<float>(th);
    float originX, originY, stepX, stepY;
    switch (static_cast<UInt32>(tileOrigin)) {
        case kPlimTileOriginMinXMaxY:
            originX = destRect.origin.x, originY = CGRectGetMaxY(destRect) - thf;
            stepX = W, stepY = -H;
            break;
        case kPlimTileOriginMaxXMaxY:
            originX = CGRectGetMaxX(destRect) - twf, originY = CGRectGetMaxY(destRect) - thf;
            stepX = -W, stepY = -H;
            break;
        case kPlimTileOriginMinXMinY:
            originX = destRect.origin.x, originY = destRect.origin.y;
            stepX = W, stepY = H;
            break;
        case kPlimTileOriginMaxXMinY:
            originX = CGRectGetMaxX(destRect) - twf, originY = destRect.origin.y;
            stepX = -W, stepY = H;
            break;
        default:
            return;
    }

    // Every tile would copy the source and unify it with a destination that already has the
    // common layout after the first tile, giving the same working source each time; make it once.
    // An image tiled onto itself must see its earlier tiles, so it takes the full path.
    CFRef<PlimCFImage> copy;
    if (src != dest) {
        copy = WorkingSource(src, dest);
        if (!copy) return;
    }
    ScaledSourceCache cache{};
    for (UInt32 r = 0; r < rows; ++r) {
        for (UInt32 c = 0; c < columns; ++c) {
            CGRect tile = CGRectMake(static_cast<float>(c) * stepX + originX,
                                     static_cast<float>(r) * stepY + originY, W, H);
            if (copy)
                DrawPairs(copy.get(), dest, &srcRect, &tile, 1, static_cast<UInt32>(operation),
                          &cache);
            else
                PlimCFImageComposite(src, dest, &srcRect, &tile, 1, operation);
        }
    }
}
