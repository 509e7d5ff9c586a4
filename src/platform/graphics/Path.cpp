// Paths of straight lines: a list of move, line and close elements.
#include <PlimBitmapLib/platform/CFRuntime.h>
#include <PlimBitmapLib/platform/CFString.h>
#include <PlimBitmapLib/platform/CGPath.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

namespace {

struct Element {
    CGPathElementType type;
    CGPoint point;
};

struct PathState {
    std::vector<Element> elements;
    bool hasCurrentPoint = false;
    bool subpathOpen = false;  // a move has started a subpath that is not closed yet
    CGPoint subpathStart{0, 0};
};

}  // namespace

struct CGPath {
    CFRuntimeBase base;
    PathState *state;
};

namespace {

void PathFinalize(CFTypeRef cf) {
    auto *path = static_cast<CGPath *>(const_cast<void *>(cf));
    delete path->state;
    path->state = nullptr;
}

bool SameElements(const PathState &a, const PathState &b) {
    return std::equal(a.elements.begin(), a.elements.end(), b.elements.begin(), b.elements.end(),
                      [](const Element &x, const Element &y) {
                          return x.type == y.type && x.point.x == y.point.x &&
                                 x.point.y == y.point.y;
                      });
}

Boolean PathEqual(CFTypeRef a, CFTypeRef b) {
    return SameElements(*static_cast<const CGPath *>(a)->state,
                        *static_cast<const CGPath *>(b)->state);
}

CFHashCode PathHash(CFTypeRef cf) {
    return static_cast<CFHashCode>(static_cast<const CGPath *>(cf)->state->elements.size());
}

CFStringRef PathCopyDescription(CFTypeRef cf, CFDictionaryRef options) {
    return CFStringCreateWithFormat(CFGetAllocator(cf), options,
                                    CFSTR("<CGPath %p> (%zu elements)"), cf,
                                    static_cast<const CGPath *>(cf)->state->elements.size());
}

CFStringRef PathCopyDebugDescription(CFTypeRef cf) { return PathCopyDescription(cf, nullptr); }

const CFRuntimeClass kPathClass = {0,
                                   "CGPath",
                                   nullptr,
                                   nullptr,
                                   PathFinalize,
                                   PathEqual,
                                   PathHash,
                                   PathCopyDescription,
                                   PathCopyDebugDescription};

CGMutablePathRef NewPath(const PathState *from) {
    auto *state = new (std::nothrow) PathState;
    if (!state) return nullptr;
    if (from) {
        try {
            *state = *from;
        } catch (...) {
            delete state;
            return nullptr;
        }
    }
    auto *path = static_cast<CGPath *>(const_cast<void *>(_CFRuntimeCreateInstance(
        nullptr, CGPathGetTypeID(), sizeof(CGPath) - sizeof(CFRuntimeBase), nullptr)));
    if (!path) {
        delete state;
        return nullptr;
    }
    path->state = state;
    return path;
}

CGPoint Transformed(const CGAffineTransform *m, float x, float y) {
    CGPoint p = CGPointMake(x, y);
    return m ? CGPointApplyAffineTransform(p, *m) : p;
}

// Appending can only fail for lack of memory; the path then stays as it was.
bool Append(PathState &state, CGPathElementType type, CGPoint point) {
    try {
        state.elements.push_back(Element{type, point});
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace

extern "C" {

PLIM_EXPORT CFTypeID CGPathGetTypeID(void) {
    static const CFTypeID id = _CFRuntimeRegisterClass(&kPathClass);
    return id;
}

PLIM_EXPORT CGMutablePathRef CGPathCreateMutable(void) { return NewPath(nullptr); }

PLIM_EXPORT CGMutablePathRef CGPathCreateMutableCopy(CGPathRef path) {
    return path ? NewPath(path->state) : nullptr;
}

PLIM_EXPORT CGPathRef CGPathRetain(CGPathRef path) {
    if (path) CFRetain(path);
    return path;
}

PLIM_EXPORT void CGPathRelease(CGPathRef path) {
    if (path) CFRelease(path);
}

PLIM_EXPORT void CGPathMoveToPoint(CGMutablePathRef path, const CGAffineTransform *m, float x,
                                   float y) {
    if (!path) return;
    PathState &s = *path->state;
    CGPoint p = Transformed(m, x, y);
    if (!Append(s, kCGPathElementMoveToPoint, p)) return;
    s.hasCurrentPoint = true;
    s.subpathOpen = true;
    s.subpathStart = p;
}

PLIM_EXPORT void CGPathAddLineToPoint(CGMutablePathRef path, const CGAffineTransform *m, float x,
                                      float y) {
    if (!path) return;
    PathState &s = *path->state;
    if (!s.hasCurrentPoint) return;
    if (!s.subpathOpen) {
        // After a close, the line starts a new subpath where the closed one began.
        if (!Append(s, kCGPathElementMoveToPoint, s.subpathStart)) return;
        s.subpathOpen = true;
    }
    Append(s, kCGPathElementAddLineToPoint, Transformed(m, x, y));
}

PLIM_EXPORT void CGPathCloseSubpath(CGMutablePathRef path) {
    if (!path) return;
    PathState &s = *path->state;
    if (!s.subpathOpen) return;
    if (Append(s, kCGPathElementCloseSubpath, CGPointZero)) s.subpathOpen = false;
}

PLIM_EXPORT void CGPathApply(CGPathRef path, void *info, CGPathApplierFunction function) {
    if (!path || !function) return;
    for (const Element &e : path->state->elements) {
        // Each call gets its own copy of the point, so the applier cannot change the path.
        CGPoint point = e.point;
        CGPathElement element = {e.type, &point};
        function(info, &element);
    }
}

PLIM_EXPORT bool CGPathIsEmpty(CGPathRef path) { return !path || path->state->elements.empty(); }

PLIM_EXPORT CGRect CGPathGetBoundingBox(CGPathRef path) {
    if (CGPathIsEmpty(path)) return CGRectNull;
    float minX = INFINITY, minY = INFINITY, maxX = -INFINITY, maxY = -INFINITY;
    for (const Element &e : path->state->elements) {
        if (e.type == kCGPathElementCloseSubpath) continue;
        minX = std::min(minX, e.point.x);
        minY = std::min(minY, e.point.y);
        maxX = std::max(maxX, e.point.x);
        maxY = std::max(maxY, e.point.y);
    }
    if (minX > maxX) return CGRectNull;
    return CGRectMake(minX, minY, maxX - minX, maxY - minY);
}

PLIM_EXPORT bool CGPathEqualToPath(CGPathRef path1, CGPathRef path2) {
    if (path1 == path2) return true;
    if (!path1 || !path2) return false;
    return SameElements(*path1->state, *path2->state);
}

}  // extern "C"
