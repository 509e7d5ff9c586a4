// What one composite or tiling call fixes before it draws rectangle pairs: the kernel row for the
// images' common layout and the operation, both buffers, and the sources of pairs whose
// rectangles differ in size. Shared by the composite driver and tiling.
#pragma once

#include <PlimBitmapLib/PlimCFImage.h>

#include "composite/Kernels.h"
#include "platform/runtime/CFRef.h"

#include <vector>

namespace plim::composite {

// A stretch of whole pixels along one axis, inside its image.
struct Extent {
    UInt32 pos = 0, len = 0;
    bool operator==(const Extent &o) const { return pos == o.pos && len == o.len; }
};

// Rounds one axis of a rectangle as the driver does (standardized, then widened to whole pixels),
// moves a negative start to 0 keeping the length, and trims at the far edge `limit` (the image's
// size as a float, as the driver compares it) and at the true size `size`. False when nothing of
// the axis is left.
bool PlaceAxis(float origin, float length, float limit, UInt32 size, Extent *out);

class PairDrawer {
public:
    // Makes sure both images hold buffers and checks that they can be drawn: a layout and an
    // operation the kernels know, and buffers that hold their rows. The working source must
    // already be unified with the destination.
    PairDrawer(PlimCFImage source, PlimCFImage dest, UInt32 operation);

    bool Ready() const { return ready_; }
    // Whether a pair can draw at all (the destination has a buffer).
    bool DestinationHasPixels() const { return destBase_ != nullptr; }
    UInt32 SourceWidth() const { return srcW_; }
    UInt32 SourceHeight() const { return srcH_; }
    UInt32 DestWidth() const { return dstW_; }
    UInt32 DestHeight() const { return dstH_; }

    // Both rectangles of a pair, placed on their images; false when the pair is skipped.
    bool Place(CGRect s, CGRect d, Extent *sx, Extent *sy, Extent *dx, Extent *dy) const;
    bool PlaceSource(CGRect s, Extent *sx, Extent *sy) const;

    // Draws a placed pair. The source is scaled to the destination's size when they differ; a
    // pair whose scaled source cannot be made is skipped. False when nothing was drawn.
    bool Draw(Extent sx, Extent sy, Extent dx, Extent dy);
    // Draws `count` pairs whose destinations abut left to right from dx (each dx.len wide, not
    // overlapping), all from the same source placement.
    bool DrawSideBySide(Extent sx, Extent sy, Extent dx, Extent dy, UInt32 count);

    // True once any pair has drawn; the caller then drops the destination's rendered image.
    bool Drew() const { return drew_; }

    // The destination's bytes of a rectangle, for comparing states of a region.
    UInt8 *DestPixel(UInt32 x, UInt32 y) const;
    UInt32 BytesPerPixel() const { return bpp_; }
    size_t DestRowBytes() const { return destRowBytes_; }

private:
    struct Source {
        const UInt8 *base;
        size_t rowBytes;
    };
    // The first source pixel a pair of this placement reads, and the source's row length.
    bool SourceFor(Extent sx, Extent sy, UInt32 width, UInt32 height, Source *out);

    PlimCFImage copy_;
    CompositeRow row_ = nullptr;
    bool noOp_ = false, ready_ = false, drew_ = false;
    UInt8 *destBase_ = nullptr;
    UInt32 bpp_ = 0, srcW_ = 0, srcH_ = 0, dstW_ = 0, dstH_ = 0;
    size_t destRowBytes_ = 0;

    // The last scaled source: tiles cut at the same edge ask for the same one again.
    struct Scaled {
        Extent sx, sy;
        UInt32 width = 0, height = 0;
        CFRef<PlimCFImage> image;
    } scaled_;
    // Rows of a source placement repeated side by side, for drawing many narrow tiles at once.
    struct Pattern {
        Extent sx, sy;
        UInt32 width = 0, height = 0, count = 0;
        std::vector<UInt8> bytes;
    } pattern_;
};

}  // namespace plim::composite
