/* Compositing one image onto another through rectangle pairs, and tiling. */
#ifndef PLIM_CFIMAGE_COMPOSITE_H
#define PLIM_CFIMAGE_COMPOSITE_H

#include <PlimBitmapLib/PlimCFImage.h>

PLIM_EXTERN_C_BEGIN

/* Operation codes: twelve Porter-Duff operators, then twelve blend modes. */
typedef int PlimCompositeOperation;
enum {
    kPlimCompositeClear = 0,
    kPlimCompositeCopySrc = 1,
    kPlimCompositeCopyDest = 2,
    kPlimCompositeSrcOver = 3,
    kPlimCompositeDestOver = 4,
    kPlimCompositeSrcIn = 5,
    kPlimCompositeDestIn = 6,
    kPlimCompositeSrcOut = 7,
    kPlimCompositeDestOut = 8,
    kPlimCompositeSrcAtop = 9,
    kPlimCompositeDestAtop = 10,
    kPlimCompositeXOR = 11,
    kPlimCompositePlus = 12,
    kPlimCompositeMultiply = 13,
    kPlimCompositeScreen = 14,
    kPlimCompositeOverlay = 15,
    kPlimCompositeDarken = 16,
    kPlimCompositeLighten = 17,
    kPlimCompositeColorDodge = 18,
    kPlimCompositeColorBurn = 19,
    kPlimCompositeHardLight = 20,
    kPlimCompositeSoftLight = 21,
    kPlimCompositeDifference = 22,
    kPlimCompositeExclusion = 23
};

/* The corner of the destination rectangle where tiling starts; the grid grows away from it. */
typedef int PlimTileOrigin;
enum {
    kPlimTileOriginMinXMaxY = 0,
    kPlimTileOriginMaxXMaxY = 1,
    kPlimTileOriginMinXMinY = 2,
    kPlimTileOriginMaxXMinY = 3
};

/* Combines the source into the destination through numRects rectangle pairs (0 counts as 1;
   a null list stands for the whole image in every pair). Rectangles are in buffer pixels, y
   counting rows from the first row. A pair of different sizes scales its source rectangle to
   the destination rectangle, taking the source rows counted from the bottom. The source is
   never changed; the destination may be converted to a common layout first. */
PLIM_EXPORT void PlimCFImageComposite(PlimCFImage src, PlimCFImage dest, const CGRect *srcRects,
                                      const CGRect *destRects, UInt32 numRects,
                                      PlimCompositeOperation operation);

/* Repeats srcRect of the source across destRect of the destination, starting at the corner
   given by tileOrigin. Tiles are whole: ones past destRect's far edges are drawn in full.
   The result is that of one PlimCFImageComposite call per tile, row by row; the cost is that of
   the tiles that land on the destination image. Tiles wholly past its right or far edge cost
   nothing. Tiles at a negative x or y are moved to 0, so a grid starting left of or above the
   image piles them up at its edge: a run of piled tiles that land on the same pixels is drawn
   until those pixels repeat a state (a few hundred passes at most), then only the rest of the
   run's count modulo that period. Piled tiles of fractional size, which land on pixels that
   differ from tile to tile, cost one pass each, for those within 2^25 tile lengths of the edge
   (farther ones round to nothing and are skipped). Sizes are taken as whole numbers from 0 to
   2^32 - 1 (larger ones as 2^32 - 1, NaN as 0). */
PLIM_EXPORT void PlimCFImageTile(PlimCFImage src, PlimCFImage dest, CGRect srcRect,
                                 CGRect destRect, PlimCompositeOperation operation,
                                 PlimTileOrigin tileOrigin);

PLIM_EXTERN_C_END

#endif
