/* PlimCFImage: the reference-counted image. It holds its pixels as a rendered image, as a
   library-owned buffer, or as both; pixel operations work on the buffer. */
#ifndef PLIM_CFIMAGE_H
#define PLIM_CFIMAGE_H

#include <PlimBitmapLib/PlimCFContext.h>
#include <PlimBitmapLib/platform/CoreFoundation.h>
#include <PlimBitmapLib/platform/CoreGraphics.h>

PLIM_EXTERN_C_BEGIN

typedef struct __PlimCFImage *PlimCFImage;

/* The image type's identifier: 0 until the first image has been created. */
PLIM_EXPORT extern CFTypeID _kPlimCFImageID;
PLIM_EXPORT CFTypeID PlimCFImageGetTypeID(void);

/* Creation. Each returns a new image with one reference, or null. A null allocator is the
   default one. */
PLIM_EXPORT PlimCFImage PlimCFImageCreate(CFAllocatorRef allocator);
/* Holds `image` (retained) and no buffer. */
PLIM_EXPORT PlimCFImage PlimCFImageCreateWithImage(CFAllocatorRef allocator, CGImageRef image);
/* Copies bytesPerRow x height bytes of the caller's pixels. bitsPerPixel 0 is computed from the
   colour space (RGB counted as four samples); bytesPerRow 0 is the shortest row. A null colour
   space is the main display's. Null when a row cannot hold width x bitsPerPixel bits, when the
   alpha info is not one of the eight listed values, when the sizes overflow 32 bits, or when
   the buffer would be empty (bytesPerRow x height of 0). */
PLIM_EXPORT PlimCFImage PlimCFImageCreateWithBuffer(CFAllocatorRef allocator, const void *buffer,
                                                    UInt32 width, UInt32 height,
                                                    UInt32 bitsPerComponent, UInt32 bitsPerPixel,
                                                    UInt32 bytesPerRow, CGColorSpaceRef colorSpace,
                                                    CGImageAlphaInfo alphaInfo);
/* A copy that never shares pixels with its source and holds only a buffer. */
PLIM_EXPORT PlimCFImage PlimCFImageCreateCopy(CFAllocatorRef allocator, PlimCFImage image);
/* Size rounded to whole pixels (halves away from zero). Transparent: premultiplied ARGB, all
   zero; otherwise an 8-bit grey image, all white. */
PLIM_EXPORT PlimCFImage PlimCFImageCreateWithSize(CFAllocatorRef allocator, CGSize size,
                                                  Boolean makeTransparent);

/* Layout, from the rendered image while one is held, from the buffer's fields otherwise. */
PLIM_EXPORT UInt32 PlimCFImageGetWidth(PlimCFImage image);
PLIM_EXPORT UInt32 PlimCFImageGetHeight(PlimCFImage image);
PLIM_EXPORT UInt32 PlimCFImageGetBitsPerComponent(PlimCFImage image);
PLIM_EXPORT UInt32 PlimCFImageGetBitsPerPixel(PlimCFImage image);
PLIM_EXPORT UInt32 PlimCFImageGetBytesPerRow(PlimCFImage image);
/* Borrowed. */
PLIM_EXPORT CGColorSpaceRef PlimCFImageGetColorSpace(PlimCFImage image);
PLIM_EXPORT CGImageAlphaInfo PlimCFImageGetAlphaInfo(PlimCFImage image);
/* True unless the alpha info is 0, 5 or 6. */
PLIM_EXPORT Boolean PlimCFImageHasAlpha(PlimCFImage image);
/* Makes sure the buffer exists first. */
PLIM_EXPORT UInt32 PlimCFImageGetImageBufferSize(PlimCFImage image);

/* Representations. */
/* The rendered image, borrowed; made from (a copy of) the buffer when the image has none. */
PLIM_EXPORT CGImageRef PlimCFImageGetCGImage(PlimCFImage image);
/* The buffer, borrowed, made from the rendered image when needed; null when there are no
   pixels. Walk it with the buffer's own row length. */
PLIM_EXPORT void *PlimCFImageGetImageBuffer(PlimCFImage image);
/* Drops the rendered image; call after changing the buffer's pixels. */
PLIM_EXPORT void PlimCFImageInvalidateImage(PlimCFImage image);
/* Frees the buffer and resets its layout fields. */
PLIM_EXPORT void PlimCFImageInvalidateBuffer(PlimCFImage image);
/* Brings the buffer into a supported layout: 8-bit premultiplied ARGB (alpha info 2) or XRGB
   (6) in the main display's colour space. Without flags an existing buffer is kept as it is. */
PLIM_EXPORT void PlimCFImagePromoteImage(PlimCFImage image, Boolean forceColor, Boolean forceAlpha);
/* Gives two images a common layout before they are combined; `a` is dealt with first. */
PLIM_EXPORT void PlimCFImageUnifyImageFormats(PlimCFImage a, PlimCFImage b);
/* A drawing context over the image's own buffer, borrowed; pair each call with
   PlimCFImageReleaseContext. The last release drops the rendered image. */
PLIM_EXPORT CGContextRef PlimCFImageRetainContext(PlimCFImage image);
PLIM_EXPORT void PlimCFImageReleaseContext(PlimCFImage image);
/* A context with the geometry and layout of the image's rendered image, drawing into `buffer`
   or, when it is null, into zeroed memory of its own. The image is not drawn into it. */
PLIM_EXPORT PlimCFContext PlimCFContextCreateForImage(CFAllocatorRef allocator, PlimCFImage image,
                                                      void *buffer);

/* The runtime callbacks of the image type, and its registration. */
PLIM_EXPORT void PlimCFImageClassInitialize(void);
PLIM_EXPORT void PlimCFImageInit(CFTypeRef image);
PLIM_EXPORT CFTypeRef PlimCFImageCopy(CFAllocatorRef allocator, CFTypeRef image);
PLIM_EXPORT void PlimCFImageFinalize(CFTypeRef image);
PLIM_EXPORT Boolean PlimCFImageEqual(CFTypeRef a, CFTypeRef b);
PLIM_EXPORT CFHashCode PlimCFImageHash(CFTypeRef image);
PLIM_EXPORT CFStringRef PlimCFImageCopyFormattingDesc(CFTypeRef image, CFDictionaryRef formatOptions);
PLIM_EXPORT CFStringRef PlimCFImageCopyDebugDesc(CFTypeRef image);
/* Release callback of the data providers behind rendered images made from a buffer: `info` is
   the allocator that allocated `data`. */
PLIM_EXPORT void PlimCFReleaseImageBuffer(void *info, const void *data, size_t size);

PLIM_EXTERN_C_END

#endif
