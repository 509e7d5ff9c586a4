/* Bitmap drawing contexts over pixel memory. */
#ifndef PLIM_CGBITMAPCONTEXT_H
#define PLIM_CGBITMAPCONTEXT_H

#include <PlimBitmapLib/platform/CGContext.h>

PLIM_EXTERN_C_BEGIN

/* Supported, all with 8 bits per component and `bitmapInfo` holding the alpha info alone:
     RGB space, 32 bits per pixel, alpha info 1, 2, 5 or 6;
     grey space, 8 bits per pixel, alpha info 0;
     alpha only, 8 bits per pixel, alpha info 7 (the colour space may be null).
   Anything else (non-premultiplied alpha 3 and 4, 24-bit RGB, 1-bit grey, CMYK), a zero
   size, a row length too short for the width, or sizes that overflow give null and leave
   `data` untouched. With null `data` the context allocates zeroed memory of its own and frees
   it when it goes; bytesPerRow 0 means the shortest row. */
PLIM_EXPORT CGContextRef CGBitmapContextCreate(void *data, size_t width, size_t height,
                                               size_t bitsPerComponent, size_t bytesPerRow,
                                               CGColorSpaceRef space, CGBitmapInfo bitmapInfo);

/* Null or 0 for a context that is not a bitmap context. */
PLIM_EXPORT void *CGBitmapContextGetData(CGContextRef context);
PLIM_EXPORT size_t CGBitmapContextGetWidth(CGContextRef context);
PLIM_EXPORT size_t CGBitmapContextGetHeight(CGContextRef context);
PLIM_EXPORT size_t CGBitmapContextGetBitsPerComponent(CGContextRef context);
PLIM_EXPORT size_t CGBitmapContextGetBitsPerPixel(CGContextRef context);
PLIM_EXPORT size_t CGBitmapContextGetBytesPerRow(CGContextRef context);
/* Borrowed. */
PLIM_EXPORT CGColorSpaceRef CGBitmapContextGetColorSpace(CGContextRef context);
PLIM_EXPORT CGImageAlphaInfo CGBitmapContextGetAlphaInfo(CGContextRef context);
PLIM_EXPORT CGBitmapInfo CGBitmapContextGetBitmapInfo(CGContextRef context);

/* A rendered image of a copy of the context's pixels, in its layout; null on failure. */
PLIM_EXPORT CGImageRef CGBitmapContextCreateImage(CGContextRef context);

PLIM_EXTERN_C_END

#endif
