// Rectangle helpers and affine transforms.
#include <PlimBitmapLib/platform/CGAffineTransform.h>
#include <PlimBitmapLib/platform/CGGeometry.h>

#include <cmath>

extern "C" {

const CGPoint CGPointZero = {0.0f, 0.0f};
const CGSize CGSizeZero = {0.0f, 0.0f};
const CGRect CGRectZero = {{0.0f, 0.0f}, {0.0f, 0.0f}};
const CGRect CGRectNull = {{INFINITY, INFINITY}, {0.0f, 0.0f}};
const CGAffineTransform CGAffineTransformIdentity = {1.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f};

PLIM_EXPORT bool CGRectIsNull(CGRect rect) {
    return std::isinf(rect.origin.x) && std::isinf(rect.origin.y);
}

PLIM_EXPORT CGRect CGRectStandardize(CGRect rect) {
    if (CGRectIsNull(rect)) return CGRectNull;
    if (rect.size.width < 0.0f) {
        rect.origin.x += rect.size.width;
        rect.size.width = -rect.size.width;
    }
    if (rect.size.height < 0.0f) {
        rect.origin.y += rect.size.height;
        rect.size.height = -rect.size.height;
    }
    return rect;
}

PLIM_EXPORT CGRect CGRectIntegral(CGRect rect) {
    if (CGRectIsNull(rect)) return CGRectNull;
    CGRect r = CGRectStandardize(rect);
    float x = std::floor(r.origin.x);
    float y = std::floor(r.origin.y);
    float maxX = std::ceil(r.origin.x + r.size.width);
    float maxY = std::ceil(r.origin.y + r.size.height);
    return CGRectMake(x, y, maxX - x, maxY - y);
}

PLIM_EXPORT float CGRectGetMinX(CGRect rect) { return CGRectStandardize(rect).origin.x; }
PLIM_EXPORT float CGRectGetMinY(CGRect rect) { return CGRectStandardize(rect).origin.y; }

PLIM_EXPORT float CGRectGetMidX(CGRect rect) {
    CGRect r = CGRectStandardize(rect);
    return r.origin.x + r.size.width / 2.0f;
}

PLIM_EXPORT float CGRectGetMidY(CGRect rect) {
    CGRect r = CGRectStandardize(rect);
    return r.origin.y + r.size.height / 2.0f;
}

PLIM_EXPORT float CGRectGetMaxX(CGRect rect) {
    CGRect r = CGRectStandardize(rect);
    return r.origin.x + r.size.width;
}

PLIM_EXPORT float CGRectGetMaxY(CGRect rect) {
    CGRect r = CGRectStandardize(rect);
    return r.origin.y + r.size.height;
}

PLIM_EXPORT float CGRectGetWidth(CGRect rect) { return CGRectStandardize(rect).size.width; }
PLIM_EXPORT float CGRectGetHeight(CGRect rect) { return CGRectStandardize(rect).size.height; }

PLIM_EXPORT bool CGRectIsEmpty(CGRect rect) {
    return CGRectIsNull(rect) || rect.size.width == 0.0f || rect.size.height == 0.0f;
}

PLIM_EXPORT bool CGPointEqualToPoint(CGPoint a, CGPoint b) { return a.x == b.x && a.y == b.y; }

PLIM_EXPORT bool CGSizeEqualToSize(CGSize a, CGSize b) {
    return a.width == b.width && a.height == b.height;
}

PLIM_EXPORT bool CGRectEqualToRect(CGRect a, CGRect b) {
    if (CGRectIsNull(a) || CGRectIsNull(b)) return CGRectIsNull(a) && CGRectIsNull(b);
    CGRect sa = CGRectStandardize(a);
    CGRect sb = CGRectStandardize(b);
    return CGPointEqualToPoint(sa.origin, sb.origin) && CGSizeEqualToSize(sa.size, sb.size);
}

PLIM_EXPORT CGAffineTransform CGAffineTransformMake(float a, float b, float c, float d, float tx,
                                                    float ty) {
    return CGAffineTransform{a, b, c, d, tx, ty};
}

PLIM_EXPORT CGAffineTransform CGAffineTransformMakeTranslation(float tx, float ty) {
    return CGAffineTransform{1.0f, 0.0f, 0.0f, 1.0f, tx, ty};
}

PLIM_EXPORT CGAffineTransform CGAffineTransformMakeScale(float sx, float sy) {
    return CGAffineTransform{sx, 0.0f, 0.0f, sy, 0.0f, 0.0f};
}

PLIM_EXPORT CGAffineTransform CGAffineTransformConcat(CGAffineTransform t1, CGAffineTransform t2) {
    return CGAffineTransform{
        t1.a * t2.a + t1.b * t2.c,           t1.a * t2.b + t1.b * t2.d,
        t1.c * t2.a + t1.d * t2.c,           t1.c * t2.b + t1.d * t2.d,
        t1.tx * t2.a + t1.ty * t2.c + t2.tx, t1.tx * t2.b + t1.ty * t2.d + t2.ty};
}

PLIM_EXPORT bool CGAffineTransformEqualToTransform(CGAffineTransform t1, CGAffineTransform t2) {
    return t1.a == t2.a && t1.b == t2.b && t1.c == t2.c && t1.d == t2.d && t1.tx == t2.tx &&
           t1.ty == t2.ty;
}

PLIM_EXPORT bool CGAffineTransformIsIdentity(CGAffineTransform t) {
    return CGAffineTransformEqualToTransform(t, CGAffineTransformIdentity);
}

PLIM_EXPORT CGPoint CGPointApplyAffineTransform(CGPoint p, CGAffineTransform t) {
    return CGPoint{t.a * p.x + t.c * p.y + t.tx, t.b * p.x + t.d * p.y + t.ty};
}

}  // extern "C"
