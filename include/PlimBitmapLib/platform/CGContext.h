/* Drawing contexts: the current transform and drawing rendered images. */
#ifndef PLIM_CGCONTEXT_H
#define PLIM_CGCONTEXT_H

#include <PlimBitmapLib/platform/CGAffineTransform.h>
#include <PlimBitmapLib/platform/CGGeometry.h>
#include <PlimBitmapLib/platform/CGImage.h>

PLIM_EXTERN_C_BEGIN

typedef struct CGContext *CGContextRef;

PLIM_EXPORT CFTypeID CGContextGetTypeID(void);
/* Both accept null. */
PLIM_EXPORT CGContextRef CGContextRetain(CGContextRef context);
PLIM_EXPORT void CGContextRelease(CGContextRef context);

/* The current transform maps user space to device space, whose origin is the bottom-left
   corner of the bitmap with y growing upward. It starts as the identity. */
PLIM_EXPORT void CGContextTranslateCTM(CGContextRef context, float tx, float ty);
PLIM_EXPORT void CGContextScaleCTM(CGContextRef context, float sx, float sy);
PLIM_EXPORT void CGContextConcatCTM(CGContextRef context, CGAffineTransform transform);
PLIM_EXPORT CGAffineTransform CGContextGetCTM(CGContextRef context);
PLIM_EXPORT void CGContextSaveGState(CGContextRef context);
/* Does nothing without a matching save. */
PLIM_EXPORT void CGContextRestoreGState(CGContextRef context);

/* Draws `image` source-over so that it fills `rect` (user space), converting colour space,
   depth and alpha form. Destination pixels whose centres fall inside the mapped rectangle are
   painted. A whole-pixel 1:1 mapping copies or converts each pixel exactly; otherwise the image
   is resampled, bilinearly when enlarged and by area averaging when reduced. Transforms that
   rotate or shear draw nothing. */
PLIM_EXPORT void CGContextDrawImage(CGContextRef context, CGRect rect, CGImageRef image);

PLIM_EXTERN_C_END

#endif
