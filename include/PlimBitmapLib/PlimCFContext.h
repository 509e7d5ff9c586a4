/* PlimCFContext: a bitmap drawing context paired with the pixel memory it draws into. */
#ifndef PLIM_CFCONTEXT_H
#define PLIM_CFCONTEXT_H

#include <PlimBitmapLib/platform/CoreFoundation.h>
#include <PlimBitmapLib/platform/CoreGraphics.h>

PLIM_EXTERN_C_BEGIN

typedef struct __PlimCFContext *PlimCFContext;

/* 0 until the first context has been created. */
PLIM_EXPORT CFTypeID PlimCFContextGetTypeID(void);

/* A context of width x height pixels drawing into `buffer`, which the caller keeps valid for
   the context's life; with a null buffer the context allocates zeroed memory of its own.
   bytesPerRow 0 means (components x width x bitsPerComponent + 7) / 8, with an RGB space
   counted as four samples a pixel. A null colour space means the main display's. The alpha
   info is the whole bitmap info. Null when the drawing context cannot be made; the caller's
   buffer is then neither written nor freed. */
PLIM_EXPORT PlimCFContext PlimCFContextCreate(CFAllocatorRef allocator, UInt32 width, UInt32 height,
                                              void *buffer, UInt32 bitsPerComponent,
                                              UInt32 bytesPerRow, CGColorSpaceRef colorSpace,
                                              CGImageAlphaInfo alphaInfo);

/* Borrowed, not retained. */
PLIM_EXPORT CGContextRef PlimCFContextGetCGContext(PlimCFContext context);
PLIM_EXPORT void *PlimCFContextGetBuffer(PlimCFContext context);

PLIM_EXTERN_C_END

#endif
