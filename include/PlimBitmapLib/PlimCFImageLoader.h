/* Image loaders: decode one encoded image (file, URL or bytes) into a rendered image. */
#ifndef PLIM_CFIMAGELOADER_H
#define PLIM_CFIMAGELOADER_H

#include <PlimBitmapLib/platform/CoreFoundation.h>
#include <PlimBitmapLib/platform/CoreGraphics.h>

PLIM_EXTERN_C_BEGIN

typedef struct __PlimCFImageLoader *PlimCFImageLoader;

PLIM_EXPORT extern CFTypeID _kPlimCFImageLoaderID;
PLIM_EXPORT CFTypeID PlimCFImageLoaderGetTypeID(void);

/* Every creator returns a new loader holding the decoded image, or null (also for a null
   source). PICT is the picture without its 512-byte file header; PCT the complete file. */
PLIM_EXPORT PlimCFImageLoader PlimCFCreatePNGImageLoaderFromURL(CFAllocatorRef allocator, CFURLRef url);
PLIM_EXPORT PlimCFImageLoader PlimCFCreatePNGImageLoaderFromPath(CFAllocatorRef allocator, CFStringRef path);
PLIM_EXPORT PlimCFImageLoader PlimCFCreatePNGImageLoaderFromData(CFAllocatorRef allocator, CFDataRef data);
PLIM_EXPORT PlimCFImageLoader PlimCFCreateJPEGImageLoaderFromURL(CFAllocatorRef allocator, CFURLRef url);
PLIM_EXPORT PlimCFImageLoader PlimCFCreateJPEGImageLoaderFromPath(CFAllocatorRef allocator, CFStringRef path);
PLIM_EXPORT PlimCFImageLoader PlimCFCreateJPEGImageLoaderFromData(CFAllocatorRef allocator, CFDataRef data);
PLIM_EXPORT PlimCFImageLoader PlimCFCreatePICTImageLoaderFromURL(CFAllocatorRef allocator, CFURLRef url);
PLIM_EXPORT PlimCFImageLoader PlimCFCreatePICTImageLoaderFromPath(CFAllocatorRef allocator, CFStringRef path);
PLIM_EXPORT PlimCFImageLoader PlimCFCreatePICTImageLoaderFromData(CFAllocatorRef allocator, CFDataRef data);
PLIM_EXPORT PlimCFImageLoader PlimCFCreatePCTImageLoaderFromURL(CFAllocatorRef allocator, CFURLRef url);
PLIM_EXPORT PlimCFImageLoader PlimCFCreatePCTImageLoaderFromPath(CFAllocatorRef allocator, CFStringRef path);
PLIM_EXPORT PlimCFImageLoader PlimCFCreatePCTImageLoaderFromData(CFAllocatorRef allocator, CFDataRef data);
/* `subtype` is a graphics importer subtype such as 'PICT' or 'PNGf'. */
PLIM_EXPORT PlimCFImageLoader PlimCFCreateFormattedImageLoaderFromURL(CFAllocatorRef allocator, CFURLRef url, OSType subtype);
PLIM_EXPORT PlimCFImageLoader PlimCFCreateFormattedImageLoaderFromPath(CFAllocatorRef allocator, CFStringRef path, OSType subtype);
PLIM_EXPORT PlimCFImageLoader PlimCFCreateFormattedImageLoaderFromData(CFAllocatorRef allocator, CFDataRef data, OSType subtype);
/* The format is recognised from the content. */
PLIM_EXPORT PlimCFImageLoader PlimCFCreateUnknownImageLoaderFromURL(CFAllocatorRef allocator, CFURLRef url);
PLIM_EXPORT PlimCFImageLoader PlimCFCreateUnknownImageLoaderFromPath(CFAllocatorRef allocator, CFStringRef path);
PLIM_EXPORT PlimCFImageLoader PlimCFCreateUnknownImageLoaderFromData(CFAllocatorRef allocator, CFDataRef data);

/* The decoding limit. Every decoder (these loaders, the images made from paths, URLs and data,
   and the importers behind them) refuses a picture of more pixels (width x height) than this
   before it allocates anything of the picture's size, as it refuses one whose data ends before
   any pixel data. Sides are limited too: 1,048,576 pixels for PNG and JPEG, 32,767 for the other
   formats. The limit is process-wide; any thread may read or set it at any time. */
#define kPlimDefaultDecodingPixelLimit 178956970u /* 2^30 / 6: about 0.67 GiB at 4 bytes a pixel */
#define kPlimMaximumDecodingPixelLimit 1073741823u /* 4 bytes a pixel still fit 32-bit sizes */
PLIM_EXPORT UInt64 PlimGetDecodingPixelLimit(void);
/* 0, or anything above kPlimMaximumDecodingPixelLimit, sets kPlimMaximumDecodingPixelLimit. */
PLIM_EXPORT void PlimSetDecodingPixelLimit(UInt64 pixels);

/* The decoded image with one more reference; null for a null loader. */
PLIM_EXPORT CGImageRef PlimCFImageLoaderCopyImage(PlimCFImageLoader loader);

PLIM_EXPORT void PlimCFImageLoaderInit(CFTypeRef loader);
PLIM_EXPORT void PlimCFImageLoaderFinalize(CFTypeRef loader);
PLIM_EXPORT CFStringRef PlimCFImageLoaderCopyDebugDesc(CFTypeRef loader);

PLIM_EXTERN_C_END

#endif
