/* Rendered images: immutable pixels in a described layout over a data provider. */
#ifndef PLIM_CGIMAGE_H
#define PLIM_CGIMAGE_H

#include <stdbool.h>
#include <PlimBitmapLib/platform/CGColorSpace.h>
#include <PlimBitmapLib/platform/CGDataProvider.h>

PLIM_EXTERN_C_BEGIN

typedef struct CGImage *CGImageRef;

typedef enum PLIM_ENUM_BASE {
    kCGImageAlphaNone = 0,
    kCGImageAlphaPremultipliedLast = 1,
    kCGImageAlphaPremultipliedFirst = 2,
    kCGImageAlphaLast = 3,
    kCGImageAlphaFirst = 4,
    kCGImageAlphaNoneSkipLast = 5,
    kCGImageAlphaNoneSkipFirst = 6,
    kCGImageAlphaOnly = 7
} CGImageAlphaInfo;

/* Only the alpha information is supported as bitmap information: samples are bytes in memory
   order, never swapped. */
typedef uint32_t CGBitmapInfo;
enum {
    kCGBitmapAlphaInfoMask = 0x1F
};

PLIM_EXPORT CFTypeID CGImageGetTypeID(void);

/* Supported layouts, 8 bits per component unless said:
     grey, 8 bits per pixel, alpha 0;  grey, 1 bit per component and pixel, alpha 0;
     grey + alpha, 16 bits per pixel, alpha 1 to 6;  RGB, 24 bits per pixel, alpha 0;
     RGB, 32 bits per pixel, alpha 1 to 6;  alpha only, 8 bits per pixel, alpha 7 (any or no
     colour space). Grey at 16 and RGB at 32 bits per pixel with alpha 0 have a padding byte
     after the samples.
   Anything else, a row length too short for the width, a provider holding fewer bytes than
   the rows need, sizes that overflow, or an unknown rendering intent give null. The decode
   array is not supported and must be null. */
PLIM_EXPORT CGImageRef CGImageCreate(size_t width, size_t height, size_t bitsPerComponent,
                                     size_t bitsPerPixel, size_t bytesPerRow,
                                     CGColorSpaceRef space, CGBitmapInfo bitmapInfo,
                                     CGDataProviderRef provider, const float *decode,
                                     bool shouldInterpolate, CGColorRenderingIntent intent);

/* Both accept null. */
PLIM_EXPORT CGImageRef CGImageRetain(CGImageRef image);
PLIM_EXPORT void CGImageRelease(CGImageRef image);

PLIM_EXPORT size_t CGImageGetWidth(CGImageRef image);
PLIM_EXPORT size_t CGImageGetHeight(CGImageRef image);
PLIM_EXPORT size_t CGImageGetBitsPerComponent(CGImageRef image);
PLIM_EXPORT size_t CGImageGetBitsPerPixel(CGImageRef image);
PLIM_EXPORT size_t CGImageGetBytesPerRow(CGImageRef image);
/* Borrowed; null for alpha-only images made without one. */
PLIM_EXPORT CGColorSpaceRef CGImageGetColorSpace(CGImageRef image);
PLIM_EXPORT CGImageAlphaInfo CGImageGetAlphaInfo(CGImageRef image);
PLIM_EXPORT CGBitmapInfo CGImageGetBitmapInfo(CGImageRef image);
/* Borrowed. */
PLIM_EXPORT CGDataProviderRef CGImageGetDataProvider(CGImageRef image);
PLIM_EXPORT bool CGImageGetShouldInterpolate(CGImageRef image);
PLIM_EXPORT CGColorRenderingIntent CGImageGetRenderingIntent(CGImageRef image);
PLIM_EXPORT bool CGImageIsMask(CGImageRef image);

PLIM_EXTERN_C_END

#endif
