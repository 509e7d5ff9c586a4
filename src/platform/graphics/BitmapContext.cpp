// Bitmap contexts: drawing state over pixel memory that the caller or the context owns.
#include "platform/graphics/ContextInternal.h"

#include <cstdlib>
#include <cstring>
#include <new>

using plim::graphics::Layout;
using plim::graphics::Matrix;

namespace {

void ContextFinalize(CFTypeRef cf) {
    auto *ctx = static_cast<CGContext *>(const_cast<void *>(cf));
    if (ctx->ownsData) std::free(ctx->data);
    ctx->data = nullptr;
    CGColorSpaceRelease(ctx->space);
    delete ctx->saved;
}

CFStringRef ContextCopyDescription(CFTypeRef cf, CFDictionaryRef options) {
    auto *ctx = static_cast<const CGContext *>(cf);
    return CFStringCreateWithFormat(
        CFGetAllocator(cf), options,
        CFSTR("<CGContext %p> (bitmap %zu x %zu, %zu bpc, %zu bpp, %zu bytes per row, alpha %d)"),
        cf, ctx->width, ctx->height, ctx->bitsPerComponent, ctx->bitsPerPixel, ctx->bytesPerRow,
        static_cast<int>(ctx->alphaInfo));
}

CFStringRef ContextCopyDebugDescription(CFTypeRef cf) {
    return ContextCopyDescription(cf, nullptr);
}

const CFRuntimeClass kContextClass = {0,
                                      "CGContext",
                                      nullptr,
                                      nullptr,
                                      ContextFinalize,
                                      nullptr,
                                      nullptr,
                                      ContextCopyDescription,
                                      ContextCopyDebugDescription};

// The destination layouts the drawing engine writes, with their bits per pixel.
bool ContextLayout(size_t bpc, CGColorSpaceRef space, CGBitmapInfo info, Layout *layout,
                   size_t *bpp) {
    if (bpc != 8 || (info & ~static_cast<CGBitmapInfo>(kCGBitmapAlphaInfoMask))) return false;
    size_t n = CGColorSpaceGetNumberOfComponents(space);
    switch (info) {
        case kCGImageAlphaOnly:
            *layout = Layout::Alpha8;
            *bpp = 8;
            return true;
        case kCGImageAlphaNone:
            if (n != 1) return false;
            *layout = Layout::Grey8;
            *bpp = 8;
            return true;
        case kCGImageAlphaPremultipliedLast:
        case kCGImageAlphaPremultipliedFirst:
        case kCGImageAlphaNoneSkipLast:
        case kCGImageAlphaNoneSkipFirst:
            if (n != 3) return false;
            *layout = Layout::RGB32;
            *bpp = 32;
            return true;
        default: return false;
    }
}

void FreeBytes(void *, const void *data, size_t) { std::free(const_cast<void *>(data)); }

}  // namespace

extern "C" {

PLIM_EXPORT CFTypeID CGContextGetTypeID(void) {
    static const CFTypeID id = _CFRuntimeRegisterClass(&kContextClass);
    return id;
}

PLIM_EXPORT CGContextRef CGBitmapContextCreate(void *data, size_t width, size_t height,
                                               size_t bitsPerComponent, size_t bytesPerRow,
                                               CGColorSpaceRef space, CGBitmapInfo bitmapInfo) {
    Layout layout;
    size_t bpp, total;
    if (!ContextLayout(bitsPerComponent, space, bitmapInfo, &layout, &bpp)) return nullptr;
    if (bytesPerRow == 0 && !plim::graphics::RowBytes(width, bpp, &bytesPerRow)) return nullptr;
    if (!plim::graphics::ImageBytes(width, height, bpp, bytesPerRow, &total)) return nullptr;

    auto *ctx = static_cast<CGContext *>(const_cast<void *>(_CFRuntimeCreateInstance(
        nullptr, CGContextGetTypeID(), sizeof(CGContext) - sizeof(CFRuntimeBase), nullptr)));
    if (!ctx) return nullptr;
    if (!data) {
        data = std::calloc(total, 1);
        if (!data) {
            CFRelease(ctx);
            return nullptr;
        }
        ctx->ownsData = true;
    }
    ctx->data = static_cast<uint8_t *>(data);
    ctx->width = width;
    ctx->height = height;
    ctx->bitsPerComponent = bitsPerComponent;
    ctx->bitsPerPixel = bpp;
    ctx->bytesPerRow = bytesPerRow;
    ctx->space = CGColorSpaceRetain(space);
    ctx->alphaInfo = static_cast<CGImageAlphaInfo>(bitmapInfo);
    ctx->layout = layout;
    ctx->ctm = Matrix{};
    return ctx;
}

PLIM_EXPORT CGContextRef CGContextRetain(CGContextRef context) {
    if (context) CFRetain(context);
    return context;
}

PLIM_EXPORT void CGContextRelease(CGContextRef context) {
    if (context) CFRelease(context);
}

PLIM_EXPORT void *CGBitmapContextGetData(CGContextRef c) { return c ? c->data : nullptr; }
PLIM_EXPORT size_t CGBitmapContextGetWidth(CGContextRef c) { return c ? c->width : 0; }
PLIM_EXPORT size_t CGBitmapContextGetHeight(CGContextRef c) { return c ? c->height : 0; }

PLIM_EXPORT size_t CGBitmapContextGetBitsPerComponent(CGContextRef c) {
    return c ? c->bitsPerComponent : 0;
}

PLIM_EXPORT size_t CGBitmapContextGetBitsPerPixel(CGContextRef c) {
    return c ? c->bitsPerPixel : 0;
}

PLIM_EXPORT size_t CGBitmapContextGetBytesPerRow(CGContextRef c) { return c ? c->bytesPerRow : 0; }

PLIM_EXPORT CGColorSpaceRef CGBitmapContextGetColorSpace(CGContextRef c) {
    return c ? c->space : nullptr;
}

PLIM_EXPORT CGImageAlphaInfo CGBitmapContextGetAlphaInfo(CGContextRef c) {
    return c ? c->alphaInfo : kCGImageAlphaNone;
}

PLIM_EXPORT CGBitmapInfo CGBitmapContextGetBitmapInfo(CGContextRef c) {
    return c ? static_cast<CGBitmapInfo>(c->alphaInfo) : 0;
}

PLIM_EXPORT CGImageRef CGBitmapContextCreateImage(CGContextRef c) {
    if (!c) return nullptr;
    size_t total = c->bytesPerRow * c->height;  // checked at creation
    void *copy = std::malloc(total);
    if (!copy) return nullptr;
    std::memcpy(copy, c->data, total);
    CGDataProviderRef provider = CGDataProviderCreateWithData(nullptr, copy, total, FreeBytes);
    if (!provider) {
        std::free(copy);
        return nullptr;
    }
    CGImageRef image =
        CGImageCreate(c->width, c->height, c->bitsPerComponent, c->bitsPerPixel, c->bytesPerRow,
                      c->space, c->alphaInfo, provider, nullptr, true, kCGRenderingIntentDefault);
    CGDataProviderRelease(provider);
    return image;
}

PLIM_EXPORT void CGContextTranslateCTM(CGContextRef c, float tx, float ty) {
    if (!c) return;
    Matrix &m = c->ctm;
    m.tx += m.a * tx + m.c * ty;
    m.ty += m.b * tx + m.d * ty;
}

PLIM_EXPORT void CGContextScaleCTM(CGContextRef c, float sx, float sy) {
    if (!c) return;
    Matrix &m = c->ctm;
    m.a *= sx;
    m.b *= sx;
    m.c *= sy;
    m.d *= sy;
}

PLIM_EXPORT void CGContextConcatCTM(CGContextRef c, CGAffineTransform t) {
    if (!c) return;
    const Matrix m = c->ctm;
    c->ctm = Matrix{t.a * m.a + t.b * m.c,          t.a * m.b + t.b * m.d,
                    t.c * m.a + t.d * m.c,          t.c * m.b + t.d * m.d,
                    t.tx * m.a + t.ty * m.c + m.tx, t.tx * m.b + t.ty * m.d + m.ty};
}

PLIM_EXPORT CGAffineTransform CGContextGetCTM(CGContextRef c) {
    if (!c) return CGAffineTransformIdentity;
    const Matrix &m = c->ctm;
    return CGAffineTransform{static_cast<float>(m.a),  static_cast<float>(m.b),
                             static_cast<float>(m.c),  static_cast<float>(m.d),
                             static_cast<float>(m.tx), static_cast<float>(m.ty)};
}

PLIM_EXPORT void CGContextSaveGState(CGContextRef c) {
    if (!c) return;
    try {
        if (!c->saved) c->saved = new std::vector<Matrix>;
        c->saved->push_back(c->ctm);
    } catch (...) {
        // Out of memory: the save is lost and the matching restore does nothing.
    }
}

PLIM_EXPORT void CGContextRestoreGState(CGContextRef c) {
    if (!c || !c->saved || c->saved->empty()) return;
    c->ctm = c->saved->back();
    c->saved->pop_back();
}

}  // extern "C"
