// The composite driver. The source is read through a private, unified copy unless unification
// cannot change it, so the source image never changes and compositing an image onto itself
// reads a snapshot of it.
#include <PlimBitmapLib/PlimCFImageComposite.h>
#include <PlimBitmapLib/platform/CGColorSpace.h>

#include "composite/CompositeInternal.h"
#include "composite/PairDrawer.h"
#include "core/ImageInternal.h"

namespace plim::composite {
namespace {

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

}  // namespace

CFRef<PlimCFImage> WorkingSource(PlimCFImage src, PlimCFImage dest) {
    if (UnifyLeavesSourceAlone(src, dest)) {
        PlimCFImageUnifyImageFormats(src, dest);
        return CFRef<PlimCFImage>::Retain(src);
    }
    CFRef<PlimCFImage> copy(static_cast<PlimCFImage>(
        const_cast<void *>(PlimCFImageCopy(CFGetAllocator(src), src))));
    if (copy) PlimCFImageUnifyImageFormats(copy.get(), dest);
    return copy;
}

}  // namespace plim::composite

using namespace plim::composite;

void PlimCFImageComposite(PlimCFImage src, PlimCFImage dest, const CGRect *srcRects,
                          const CGRect *destRects, UInt32 numRects,
                          PlimCompositeOperation operation) {
    plim::CFRef<PlimCFImage> working = WorkingSource(src, dest);
    if (!working) return;
    PairDrawer drawer(working.get(), dest, static_cast<UInt32>(operation));
    if (!drawer.Ready()) return;
    if (numRects == 0) numRects = 1;
    const CGRect wholeSrc = CGRectMake(0, 0, static_cast<float>(drawer.SourceWidth()),
                                       static_cast<float>(drawer.SourceHeight()));
    const CGRect wholeDest = CGRectMake(0, 0, static_cast<float>(drawer.DestWidth()),
                                        static_cast<float>(drawer.DestHeight()));
    for (UInt32 i = 0; i < numRects && drawer.DestinationHasPixels(); ++i) {
        Extent sx, sy, dx, dy;
        if (drawer.Place(srcRects ? srcRects[i] : wholeSrc, destRects ? destRects[i] : wholeDest,
                         &sx, &sy, &dx, &dy))
            drawer.Draw(sx, sy, dx, dy);
    }
    if (drawer.Drew()) PlimCFImageInvalidateImage(dest);
}
