/* Affine transforms: x' = a x + c y + tx, y' = b x + d y + ty. */
#ifndef PLIM_CGAFFINETRANSFORM_H
#define PLIM_CGAFFINETRANSFORM_H

#include <PlimBitmapLib/platform/CGGeometry.h>

PLIM_EXTERN_C_BEGIN

struct CGAffineTransform {
    float a, b, c, d;
    float tx, ty;
};
typedef struct CGAffineTransform CGAffineTransform;

PLIM_EXPORT extern const CGAffineTransform CGAffineTransformIdentity;

PLIM_EXPORT CGAffineTransform CGAffineTransformMake(float a, float b, float c, float d, float tx,
                                                    float ty);
PLIM_EXPORT CGAffineTransform CGAffineTransformMakeTranslation(float tx, float ty);
PLIM_EXPORT CGAffineTransform CGAffineTransformMakeScale(float sx, float sy);
/* t1 followed by t2. */
PLIM_EXPORT CGAffineTransform CGAffineTransformConcat(CGAffineTransform t1, CGAffineTransform t2);
PLIM_EXPORT bool CGAffineTransformIsIdentity(CGAffineTransform t);
PLIM_EXPORT bool CGAffineTransformEqualToTransform(CGAffineTransform t1, CGAffineTransform t2);
PLIM_EXPORT CGPoint CGPointApplyAffineTransform(CGPoint point, CGAffineTransform t);

PLIM_EXTERN_C_END

#endif
