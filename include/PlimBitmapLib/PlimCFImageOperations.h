/* Channel and colour-model operations on an image. The in-place ones work on the buffer and drop
   the rendered image when they change pixels; on failure they leave the image as it was. The
   Copy/Create functions return a new image with one reference, or null. */
#ifndef PLIM_CFIMAGE_OPERATIONS_H
#define PLIM_CFIMAGE_OPERATIONS_H

#include <PlimBitmapLib/PlimCFImage.h>

PLIM_EXTERN_C_BEGIN

/* True unless the colour space is a grey one. */
PLIM_EXPORT Boolean PlimCFImageIsColor(PlimCFImage image);
/* True when the layout has no alpha or every pixel's alpha is 255. */
PLIM_EXPORT Boolean PlimCFImageIsOpaque(PlimCFImage image);

/* Replaces the colour samples by their plain mean, keeping the colour layout. */
PLIM_EXPORT void PlimCFImageMakeGrayscale(PlimCFImage image);
/* Turns a colour image into an 8-bit grey one without alpha (drawn over black). */
PLIM_EXPORT void PlimCFImageConvertToGrayscale(PlimCFImage image);
/* Turns a grey image into XRGB, or premultiplied ARGB when it has alpha. */
PLIM_EXPORT void PlimCFImageConvertToColor(PlimCFImage image);
/* Gives an image without alpha a premultiplied ARGB buffer. */
PLIM_EXPORT void PlimCFImageAddAlphaChannel(PlimCFImage image);
/* Unpremultiplies and sets every alpha to 255. The layout keeps its alpha info, so the image
   still has alpha but is opaque. */
PLIM_EXPORT void PlimCFImageRemoveAlphaChannel(PlimCFImage image);
/* Inverts the colour samples (and, without alpha, every byte). */
PLIM_EXPORT void PlimCFImageInvert(PlimCFImage image);
/* Transparent black with alpha, white without. */
PLIM_EXPORT void PlimCFImageClear(PlimCFImage image);

/* A copy with its alpha removed as by PlimCFImageRemoveAlphaChannel. */
PLIM_EXPORT PlimCFImage PlimCFImageCopyOpaqueImage(CFAllocatorRef allocator, PlimCFImage image);
/* A copy whose alpha bytes are set to 255, the premultiplied colours left as they are. */
PLIM_EXPORT PlimCFImage PlimCFImageCopyPremultipliedOpaqueImage(CFAllocatorRef allocator,
                                                                PlimCFImage image);
/* The alpha channel as an 8-bit grey image (255 everywhere for an image without alpha). */
PLIM_EXPORT PlimCFImage PlimCFImageCopyAlphaChannel(CFAllocatorRef allocator, PlimCFImage image);
/* A premultiplied ARGB image with the colours of `image` and the grey values of `mask` as its
   alpha. With isPremultiplied the colours are taken as already multiplied by the mask. Null
   when the sizes differ. */
PLIM_EXPORT PlimCFImage PlimCFImageCreateWithImageAndMask(CFAllocatorRef allocator,
                                                          PlimCFImage image, PlimCFImage mask,
                                                          Boolean isPremultiplied);

PLIM_EXTERN_C_END

#endif
