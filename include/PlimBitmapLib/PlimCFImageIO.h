/* Images from files, URLs and encoded bytes; PNG and TIFF data of an image. */
#ifndef PLIM_CFIMAGEIO_H
#define PLIM_CFIMAGEIO_H

#include <PlimBitmapLib/platform/CoreFoundation.h>
#include <PlimBitmapLib/PlimCFImage.h>

PLIM_EXTERN_C_BEGIN

typedef UInt32 PlimImageFormat;
enum {
    kPlimImageFormatUnknown = 0,
    kPlimImageFormatPICT = 1, /* picture data without the 512-byte file header */
    kPlimImageFormatPCT = 2,  /* complete picture file */
    kPlimImageFormatPNG = 3,
    kPlimImageFormatJPEG = 4
};

/* "pict", "pct", "png", "jpeg" and "jpg", ignoring case; 0 for anything else or null. */
PLIM_EXPORT PlimImageFormat PlimCFImageFormatForPathExtension(CFStringRef extension);

/* The format's loader first, then the one that recognises the content; null on failure or for
   a code above 4. Code 0 takes the format from a URL's or path's extension. */
PLIM_EXPORT PlimCFImage PlimCFImageCreateWithURLAndFormat(CFAllocatorRef allocator, CFURLRef url,
                                                          PlimImageFormat format);
PLIM_EXPORT PlimCFImage PlimCFImageCreateWithURL(CFAllocatorRef allocator, CFURLRef url);
PLIM_EXPORT PlimCFImage PlimCFImageCreateWithPathAndFormat(CFAllocatorRef allocator, CFStringRef path,
                                                           PlimImageFormat format);
PLIM_EXPORT PlimCFImage PlimCFImageCreateWithPath(CFAllocatorRef allocator, CFStringRef path);
PLIM_EXPORT PlimCFImage PlimCFImageCreateWithFormattedData(CFAllocatorRef allocator, CFDataRef data,
                                                           PlimImageFormat format);
PLIM_EXPORT PlimCFImage PlimCFImageCreateWithData(CFAllocatorRef allocator, CFDataRef data);

PLIM_EXPORT CFDataRef PlimCFImageCopyPNGData(CFAllocatorRef allocator, PlimCFImage image);
PLIM_EXPORT CFDataRef PlimCFImageCopyTIFFData(CFAllocatorRef allocator, PlimCFImage image);

PLIM_EXTERN_C_END

#endif
