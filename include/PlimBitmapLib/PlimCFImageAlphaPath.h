/* Tracing the outline of an image's alpha channel into a path of straight lines. */
#ifndef PLIM_CFIMAGEALPHAPATH_H
#define PLIM_CFIMAGEALPHAPATH_H

#include <PlimBitmapLib/PlimCFImage.h>
#include <PlimBitmapLib/platform/CFString.h>
#include <PlimBitmapLib/platform/CGPath.h>

PLIM_EXTERN_C_BEGIN

/* A new path with one closed subpath per traced boundary of the pixels whose alpha, as a
   fraction of 255, is above `threshold`. Vertices sit on the boundary pixels themselves:
   x = column, y = height - 1 - row. An image without alpha gives an empty path. The image is
   promoted to premultiplied ARGB and stays so. Null when memory runs out. Writes a debug log
   of the trace on standard output. Release the result with CGPathRelease. */
PLIM_EXPORT CGMutablePathRef PlimCFImageCopyAlphaPath(PlimCFImage image, float threshold);

/* The path as SVG path data: "M x y", "L x y" and "Z", separated by blanks, with y as stored
   (flip it when drawing top-down). An empty path gives an empty string. Null when memory runs
   out. */
PLIM_EXPORT CFStringRef PlimCGPathCopySVGString(CGPathRef path);

PLIM_EXTERN_C_END

#endif
