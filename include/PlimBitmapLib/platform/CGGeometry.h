/* Points, sizes and rectangles of the 2-D graphics layer, in pixels, as 32-bit floats. */
#ifndef PLIM_CGGEOMETRY_H
#define PLIM_CGGEOMETRY_H

#include <stdbool.h>
#include <PlimBitmapLib/platform/PlimExport.h>

PLIM_EXTERN_C_BEGIN

/* The fields are plain floats (not a CGFloat typedef) so that these headers can sit beside
   other frameworks that define CGFloat themselves. */
struct CGPoint {
    float x;
    float y;
};
typedef struct CGPoint CGPoint;

struct CGSize {
    float width;
    float height;
};
typedef struct CGSize CGSize;

struct CGRect {
    CGPoint origin;
    CGSize size;
};
typedef struct CGRect CGRect;

PLIM_EXPORT extern const CGPoint CGPointZero;
PLIM_EXPORT extern const CGSize CGSizeZero;
PLIM_EXPORT extern const CGRect CGRectZero;
/* The empty rectangle with no position: origin at +infinity, size 0. */
PLIM_EXPORT extern const CGRect CGRectNull;

static inline CGPoint CGPointMake(float x, float y) {
    CGPoint p;
    p.x = x;
    p.y = y;
    return p;
}

static inline CGSize CGSizeMake(float width, float height) {
    CGSize s;
    s.width = width;
    s.height = height;
    return s;
}

static inline CGRect CGRectMake(float x, float y, float width, float height) {
    CGRect r;
    r.origin.x = x;
    r.origin.y = y;
    r.size.width = width;
    r.size.height = height;
    return r;
}

/* A negative width or height is made positive, moving the origin to the other edge. */
PLIM_EXPORT CGRect CGRectStandardize(CGRect rect);
/* The smallest rectangle with whole-number origin and size that holds the standardized rect:
   x' = floor(x), width' = ceil(x + width) - x', likewise for y. The null rectangle stays null. */
PLIM_EXPORT CGRect CGRectIntegral(CGRect rect);

/* The getters work on the standardized rectangle. */
PLIM_EXPORT float CGRectGetMinX(CGRect rect);
PLIM_EXPORT float CGRectGetMinY(CGRect rect);
PLIM_EXPORT float CGRectGetMidX(CGRect rect);
PLIM_EXPORT float CGRectGetMidY(CGRect rect);
PLIM_EXPORT float CGRectGetMaxX(CGRect rect);
PLIM_EXPORT float CGRectGetMaxY(CGRect rect);
PLIM_EXPORT float CGRectGetWidth(CGRect rect);
PLIM_EXPORT float CGRectGetHeight(CGRect rect);

PLIM_EXPORT bool CGRectIsNull(CGRect rect);
/* Null, or zero width or height. */
PLIM_EXPORT bool CGRectIsEmpty(CGRect rect);
PLIM_EXPORT bool CGPointEqualToPoint(CGPoint a, CGPoint b);
/* Exact equality of both widths and both heights. */
PLIM_EXPORT bool CGSizeEqualToSize(CGSize a, CGSize b);
/* Equal after standardizing both. */
PLIM_EXPORT bool CGRectEqualToRect(CGRect a, CGRect b);

PLIM_EXTERN_C_END

#endif
