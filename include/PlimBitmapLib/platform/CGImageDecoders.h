/* Rendered images decoded from PNG and JPEG bytes. */
#ifndef PLIM_CGIMAGEDECODERS_H
#define PLIM_CGIMAGEDECODERS_H

#include <PlimBitmapLib/platform/CGImage.h>

PLIM_EXTERN_C_BEGIN

/* Null when the provider's bytes are not a readable file of that format, when the picture is
   over the decoding pixel limit (PlimGetDecodingPixelLimit) or its data ends before any pixel
   data, and for an unknown rendering intent. Grey images come out as 8-bit grey; everything
   else as 32-bit A,R,G,B (alpha first, not premultiplied, or skipped when the file has none).
   An embedded ICC profile becomes the image's colour space. */
PLIM_EXPORT CGImageRef CGImageCreateWithPNGDataProvider(CGDataProviderRef source,
                                                        const float *decode,
                                                        bool shouldInterpolate,
                                                        CGColorRenderingIntent intent);
PLIM_EXPORT CGImageRef CGImageCreateWithJPEGDataProvider(CGDataProviderRef source,
                                                         const float *decode,
                                                         bool shouldInterpolate,
                                                         CGColorRenderingIntent intent);

PLIM_EXTERN_C_END

#endif
