/* Image destinations: rendered images encoded into a data object. Only TIFF is written. */
#ifndef PLIM_CGIMAGEDESTINATION_H
#define PLIM_CGIMAGEDESTINATION_H

#include <PlimBitmapLib/platform/CGImage.h>

PLIM_EXTERN_C_BEGIN

typedef struct CGImageDestination *CGImageDestinationRef;

#define kUTTypeTIFF CFSTR("public.tiff")

PLIM_EXPORT CFTypeID CGImageDestinationGetTypeID(void);
/* Null for any type but kUTTypeTIFF or a count other than 1. `data` is retained and receives
   the file when the destination is finalised. */
PLIM_EXPORT CGImageDestinationRef CGImageDestinationCreateWithData(CFMutableDataRef data,
                                                                   CFStringRef type,
                                                                   size_t count,
                                                                   CFDictionaryRef options);
PLIM_EXPORT void CGImageDestinationAddImage(CGImageDestinationRef idst, CGImageRef image,
                                            CFDictionaryRef properties);
/* Encodes the image added last and replaces the data's content with the file; false when no
   image was added, its layout cannot be written or memory runs out. */
PLIM_EXPORT bool CGImageDestinationFinalize(CGImageDestinationRef idst);

PLIM_EXTERN_C_END

#endif
