// Placing and drawing rectangle pairs: the driver's rounding and clipping, the source of a pair
// (the working source itself, or a scaled crop of it), and the kernel rows over the pair.
#include "composite/PairDrawer.h"

#include <PlimBitmapLib/PlimCFImageComposite.h>
#include <PlimBitmapLib/PlimCFImageGeometry.h>
#include <PlimBitmapLib/platform/CGColorSpace.h>
#include <PlimBitmapLib/platform/CGGeometry.h>

#include "composite/CompositeInternal.h"
#include "core/ImageInternal.h"
#include "platform/runtime/Errors.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>

namespace plim::composite {
namespace {

bool LayoutOf(PlimCFImage image, Layout *layout) {
    CGColorSpaceRef space = PlimCFImageGetColorSpace(image);
    if (!space) return false;
    const size_t components = CGColorSpaceGetNumberOfComponents(space);
    const CGImageAlphaInfo alpha = PlimCFImageGetAlphaInfo(image);
    if (components == 1 && alpha == kCGImageAlphaNone) *layout = kLayoutS_8;
    else if (components == 3 && alpha == kCGImageAlphaNoneSkipFirst) *layout = kLayoutRGB_888;
    else if (components == 3 && alpha == kCGImageAlphaPremultipliedFirst) *layout = kLayoutARGB_8888;
    else return false;
    return true;
}

// Whether the buffer holds width x height pixels of bpp bytes, with rows bytesPerRow apart,
// everything counted in 64 bits.
bool HoldsItsRows(PlimCFImage image, UInt32 bpp) {
    const uint64_t rowBytes = static_cast<uint64_t>(image->width) * bpp;
    if (image->bufferSize < rowBytes * image->height) return false;
    if (!image->buffer || image->height == 0 || image->width == 0) return true;
    return image->bytesPerRow >= rowBytes &&
           image->bufferSize >= static_cast<uint64_t>(image->height - 1) * image->bytesPerRow + rowBytes;
}

// floorf and ceilf without a library call (SSE2 has no rounding instruction): below 2^23 a float
// truncates exactly to an int; from there on every float is a whole number already (or NaN or
// infinite, which pass through as the library's functions pass them). The sign of a zero result
// may differ, which nothing below looks at.
float Floor(float x) {
    if (!(std::fabs(x) < 8388608.0f)) return x;
    const float t = static_cast<float>(static_cast<int32_t>(x));
    return t > x ? t - 1.0f : t;
}
float Ceil(float x) {
    if (!(std::fabs(x) < 8388608.0f)) return x;
    const float t = static_cast<float>(static_cast<int32_t>(x));
    return t < x ? t + 1.0f : t;
}

CGRect RectOf(Extent x, Extent y) {
    return CGRectMake(static_cast<float>(x.pos), static_cast<float>(y.pos), static_cast<float>(x.len),
                      static_cast<float>(y.len));
}

}  // namespace

bool PlaceAxis(float origin, float length, float limit, UInt32 size, Extent *out) {
    if (length < 0.0f) {
        origin += length;
        length = -length;
    }
    float start = Floor(origin);
    float extent = Ceil(origin + length) - start;
    if (start < 0) start = 0;
    if (start + extent > limit) extent = limit - start;
    if (!(extent > 0)) return false;
    // limit is the size rounded to a float; the true size has the last word.
    if (!(start < static_cast<float>(size))) return false;
    const UInt32 pos = static_cast<UInt32>(start);
    if (pos >= size) return false;
    const float room = static_cast<float>(size - pos);
    const UInt32 len = extent < room ? static_cast<UInt32>(extent) : size - pos;
    *out = Extent{pos, len};
    return true;
}

PlimCFImage CreatePairSource(PlimCFImage copy, CGRect s, CGSize size, bool regionOnly) {
    // The crop of a premultiplied ARGB or grey buffer is a plain copy of the rectangle's rows
    // (counted from the bottom), so copying just those rows gives the same picture without
    // duplicating the whole source first.
    Layout layout;
    const bool exactCrop = regionOnly && copy->buffer && LayoutOf(copy, &layout) &&
                           layout != kLayoutRGB_888 && copy->bitsPerComponent == 8;
    if (exactCrop) {
        const UInt32 x = static_cast<UInt32>(s.origin.x), y = static_cast<UInt32>(s.origin.y);
        const UInt32 w = static_cast<UInt32>(s.size.width), h = static_cast<UInt32>(s.size.height);
        const UInt32 bpp = copy->bitsPerPixel >> 3;
        if (w > 0 && h > 0 && uint64_t{x} + w <= copy->width && uint64_t{y} + h <= copy->height) {
            const UInt32 top = copy->height - y - h;
            const size_t rowBytes = static_cast<size_t>(w) * bpp;
            UInt8 *rows = new (std::nothrow) UInt8[rowBytes * h];
            if (!rows) return nullptr;
            const auto *base = static_cast<const UInt8 *>(copy->buffer);
            for (UInt32 r = 0; r < h; ++r)
                std::memcpy(rows + r * rowBytes,
                            base + static_cast<size_t>(top + r) * copy->bytesPerRow +
                                static_cast<size_t>(x) * bpp,
                            rowBytes);
            PlimCFImage region = PlimCFImageCreateWithBuffer(
                CFGetAllocator(copy), rows, w, h, 8, copy->bitsPerPixel,
                static_cast<UInt32>(rowBytes), copy->colorSpace,
                static_cast<CGImageAlphaInfo>(copy->alphaInfo));
            delete[] rows;
            if (!region) return nullptr;
            PlimCFImageScaleToSize(region, size);
            PlimCFImagePromoteImage(region, false, false);
            return region;
        }
    }
    PlimCFImage scratch = static_cast<PlimCFImage>(
        const_cast<void *>(PlimCFImageCopy(CFGetAllocator(copy), copy)));
    if (!scratch) return nullptr;
    PlimCFImageCropToRect(scratch, s);
    PlimCFImageScaleToSize(scratch, size);
    PlimCFImagePromoteImage(scratch, false, false);
    return scratch;
}

PairDrawer::PairDrawer(PlimCFImage source, PlimCFImage dest, UInt32 operation)
    : copy_(source) {
    Layout layout;
    if (operation >= kOperationCount) {
        errors::Record(kPlimErrorInvalidArgument);
        return;
    }
    if (!LayoutOf(source, &layout)) {
        errors::Record(PlimCFImageGetColorSpace(source) ? kPlimErrorUnsupportedLayout : kPlimErrorNoPixels);
        return;
    }
    row_ = RowFor(layout, operation);
    // CopyDest leaves every destination pixel as it is in every layout.
    noOp_ = operation == kPlimCompositeCopyDest;

    PlimCFImagePromoteImage(source, false, false);
    PlimCFImagePromoteImage(dest, false, false);
    bpp_ = source->bitsPerPixel >> 3;
    srcW_ = source->width, srcH_ = source->height;
    dstW_ = dest->width, dstH_ = dest->height;
    if (!HoldsItsRows(source, bpp_) || !HoldsItsRows(dest, bpp_)) {
        errors::Record(kPlimErrorUnsupportedLayout);
        return;
    }
    destBase_ = static_cast<UInt8 *>(dest->buffer);
    destRowBytes_ = dest->bytesPerRow;
    // The destination's pixels must have the source's size too, or the rows would be misread.
    if (destBase_ && dest->bitsPerPixel != source->bitsPerPixel) {
        errors::Record(kPlimErrorUnsupportedLayout);
        return;
    }
    ready_ = true;
}

bool PairDrawer::PlaceSource(CGRect s, Extent *sx, Extent *sy) const {
    return !CGRectIsNull(s) &&
           PlaceAxis(s.origin.x, s.size.width, static_cast<float>(srcW_), srcW_, sx) &&
           PlaceAxis(s.origin.y, s.size.height, static_cast<float>(srcH_), srcH_, sy);
}

bool PairDrawer::Place(CGRect s, CGRect d, Extent *sx, Extent *sy, Extent *dx, Extent *dy) const {
    return PlaceSource(s, sx, sy) && !CGRectIsNull(d) &&
           PlaceAxis(d.origin.x, d.size.width, static_cast<float>(dstW_), dstW_, dx) &&
           PlaceAxis(d.origin.y, d.size.height, static_cast<float>(dstH_), dstH_, dy);
}

UInt8 *PairDrawer::DestPixel(UInt32 x, UInt32 y) const {
    return destBase_ + static_cast<size_t>(y) * destRowBytes_ + static_cast<size_t>(x) * bpp_;
}

bool PairDrawer::SourceFor(Extent sx, Extent sy, UInt32 width, UInt32 height, Source *out) {
    if (sx.len == width && sy.len == height) {
        if (!copy_->buffer) return false;
        out->base = static_cast<const UInt8 *>(copy_->buffer) +
                    static_cast<size_t>(sy.pos) * copy_->bytesPerRow + static_cast<size_t>(sx.pos) * bpp_;
        out->rowBytes = copy_->bytesPerRow;
        return true;
    }
    if (!(scaled_.image && scaled_.sx == sx && scaled_.sy == sy && scaled_.width == width &&
          scaled_.height == height)) {
        scaled_.image.reset(CreatePairSource(
            copy_, RectOf(sx, sy),
            CGSizeMake(static_cast<float>(width), static_cast<float>(height)), true));
        scaled_.sx = sx, scaled_.sy = sy, scaled_.width = width, scaled_.height = height;
    }
    PlimCFImage scaled = scaled_.image.get();
    // Read only what the scaled picture really holds, in the working source's pixel size.
    if (!scaled || !scaled->buffer || scaled->bitsPerPixel != copy_->bitsPerPixel ||
        scaled->width < width || scaled->height < height || !HoldsItsRows(scaled, bpp_))
        return false;
    out->base = static_cast<const UInt8 *>(scaled->buffer);
    out->rowBytes = scaled->bytesPerRow;
    return true;
}

bool PairDrawer::Draw(Extent sx, Extent sy, Extent dx, Extent dy) {
    if (!destBase_) return false;
    Source source;
    if (!SourceFor(sx, sy, dx.len, dy.len, &source)) return false;
    drew_ = true;
    if (noOp_) return true;
    // Rows that follow one another without a gap on both sides are one run of pixels.
    const size_t rowBytes = static_cast<size_t>(dx.len) * bpp_;
    const uint64_t pixels = uint64_t{dx.len} * dy.len;
    if (source.rowBytes == rowBytes && destRowBytes_ == rowBytes && pixels <= UINT32_MAX) {
        row_(source.base, DestPixel(dx.pos, dy.pos), static_cast<UInt32>(pixels));
        return true;
    }
    for (UInt32 r = 0; r < dy.len; ++r)
        row_(source.base + r * source.rowBytes, DestPixel(dx.pos, dy.pos + r), dx.len);
    return true;
}

bool PairDrawer::DrawSideBySide(Extent sx, Extent sy, Extent dx, Extent dy, UInt32 count) {
    if (!destBase_ || count == 0) return false;
    Source source;
    if (!SourceFor(sx, sy, dx.len, dy.len, &source)) return false;
    drew_ = true;
    if (noOp_) return true;
    const size_t tileBytes = static_cast<size_t>(dx.len) * bpp_;
    // One row call across all the tiles, from rows of the source repeated side by side (made
    // once and kept for the following rows of tiles); a call per tile when that would be big.
    constexpr size_t kPatternLimit = size_t{16} << 20;
    const size_t patternRow = tileBytes * count;
    if (count > 1 && patternRow * dy.len <= kPatternLimit) {
        if (!(pattern_.sx == sx && pattern_.sy == sy && pattern_.width == dx.len &&
              pattern_.height == dy.len && pattern_.count == count)) {
            pattern_.count = 0;
            try {
                pattern_.bytes.resize(patternRow * dy.len);
            } catch (const std::bad_alloc &) {
                pattern_ = Pattern{};
            }
            if (pattern_.bytes.size() == patternRow * dy.len) {
                for (UInt32 r = 0; r < dy.len; ++r)
                    for (UInt32 k = 0; k < count; ++k)
                        std::memcpy(&pattern_.bytes[r * patternRow + k * tileBytes],
                                    source.base + r * source.rowBytes, tileBytes);
                pattern_.sx = sx, pattern_.sy = sy;
                pattern_.width = dx.len, pattern_.height = dy.len, pattern_.count = count;
            }
        }
        if (pattern_.count == count) {
            for (UInt32 r = 0; r < dy.len; ++r)
                row_(&pattern_.bytes[r * patternRow], DestPixel(dx.pos, dy.pos + r),
                     dx.len * count);
            return true;
        }
    }
    for (UInt32 r = 0; r < dy.len; ++r)
        for (UInt32 k = 0; k < count; ++k)
            row_(source.base + r * source.rowBytes, DestPixel(dx.pos + k * dx.len, dy.pos + r),
                 dx.len);
    return true;
}

}  // namespace plim::composite
