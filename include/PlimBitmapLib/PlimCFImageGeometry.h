/* Geometry of an image, changed in place: crop, scale and vertical flip. The graphics layer
   draws the picture into fresh memory, which becomes the image's buffer. */
#ifndef PLIM_CFIMAGE_GEOMETRY_H
#define PLIM_CFIMAGE_GEOMETRY_H

#include <PlimBitmapLib/PlimCFImage.h>

PLIM_EXTERN_C_BEGIN

/* Crops to `rect` in drawing space (pixels, origin at the bottom-left, y upward), widened to
   whole pixels. A negative origin moves to 0 without shrinking the rectangle; parts past the
   right or top edge are cut off; a rectangle wholly beyond those edges leaves the image as it
   is. Afterwards the image holds only a buffer: 24-bit pictures become 32-bit with alpha info
   kCGImageAlphaNoneSkipLast, and 32-bit rows are padded to a multiple of 32 bytes. */
PLIM_EXPORT void PlimCFImageCropToRect(PlimCFImage image, CGRect rect);
/* Resamples the whole picture to `size` rounded to whole pixels (halves away from zero); a
   negative size or the current size does nothing. Same buffer layout as after a crop. */
PLIM_EXPORT void PlimCFImageScaleToSize(PlimCFImage image, CGSize size);
/* Mirrors the rows top to bottom; the layout is kept. */
PLIM_EXPORT void PlimCFImageFlipVertically(PlimCFImage image);

PLIM_EXTERN_C_END

#endif
