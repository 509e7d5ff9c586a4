/* Paths of straight lines. */
#ifndef PLIM_CGPATH_H
#define PLIM_CGPATH_H

#include <PlimBitmapLib/platform/CFBase.h>
#include <PlimBitmapLib/platform/CGAffineTransform.h>

PLIM_EXTERN_C_BEGIN

typedef struct CGPath *CGMutablePathRef;
typedef const struct CGPath *CGPathRef;

typedef enum PLIM_ENUM_BASE {
    kCGPathElementMoveToPoint = 0,
    kCGPathElementAddLineToPoint = 1,
    kCGPathElementAddQuadCurveToPoint = 2,
    kCGPathElementAddCurveToPoint = 3,
    kCGPathElementCloseSubpath = 4
} CGPathElementType;

typedef struct CGPathElement {
    CGPathElementType type;
    /* One point for move and line elements; for a close element it points at (0, 0). */
    CGPoint *points;
} CGPathElement;

typedef void (*CGPathApplierFunction)(void *info, const CGPathElement *element);

PLIM_EXPORT CFTypeID CGPathGetTypeID(void);
PLIM_EXPORT CGMutablePathRef CGPathCreateMutable(void);
PLIM_EXPORT CGMutablePathRef CGPathCreateMutableCopy(CGPathRef path);
/* Both accept null. */
PLIM_EXPORT CGPathRef CGPathRetain(CGPathRef path);
PLIM_EXPORT void CGPathRelease(CGPathRef path);

/* `m` (may be null) transforms the point before it is added. */
PLIM_EXPORT void CGPathMoveToPoint(CGMutablePathRef path, const CGAffineTransform *m, float x,
                                   float y);
/* Without a current point the line is ignored; after a close it starts a new subpath at the
   closed subpath's first point. */
PLIM_EXPORT void CGPathAddLineToPoint(CGMutablePathRef path, const CGAffineTransform *m, float x,
                                      float y);
/* Does nothing when there is no open subpath. */
PLIM_EXPORT void CGPathCloseSubpath(CGMutablePathRef path);

/* Calls `function` with each element in order. */
PLIM_EXPORT void CGPathApply(CGPathRef path, void *info, CGPathApplierFunction function);
PLIM_EXPORT bool CGPathIsEmpty(CGPathRef path);
/* The smallest rectangle holding every point; CGRectNull for an empty path. */
PLIM_EXPORT CGRect CGPathGetBoundingBox(CGPathRef path);
PLIM_EXPORT bool CGPathEqualToPath(CGPathRef path1, CGPathRef path2);

PLIM_EXTERN_C_END

#endif
