// PlimCFContext: owns (or borrows) the pixel memory behind a bitmap drawing context.
#include "core/PlimCFContextInternal.h"
#include "platform/runtime/Errors.h"

#include <PlimBitmapLib/PlimMainDisplay.h>

#include <cstring>
#include <mutex>

CFRuntimeClass _kPlimCFContextClass;
CFTypeID _kPlimCFContextID = 0;
bool gPlimCFContextInited = false;  // set under the once flag, when registration has finished

namespace {

__PlimCFContext *Fields(CFTypeRef cf) {
    return static_cast<__PlimCFContext *>(const_cast<void *>(cf));
}

void FreeOwnedBuffer(__PlimCFContext *ctx) {
    if (ctx->ownsBuffer && ctx->buffer) {
        CFAllocatorRef from =
            ctx->bufferFromObjectAllocator ? CFGetAllocator(ctx) : kCFAllocatorDefault;
        CFAllocatorDeallocate(from, ctx->buffer);
    }
    ctx->ownsBuffer = false;
    ctx->buffer = nullptr;
}

}  // namespace

void PlimCFContextInit(CFTypeRef cf) {
    __PlimCFContext *ctx = Fields(cf);
    ctx->cgContext = nullptr;
    ctx->buffer = nullptr;
    ctx->ownsBuffer = false;
    ctx->bufferFromObjectAllocator = false;
}

PlimCFContext PlimCFContextCreatePrivate(CFAllocatorRef allocator) {
    // Contexts may be created from several threads from the first one on.
    static std::once_flag once;
    std::call_once(once, [] {
        _kPlimCFContextClass = CFRuntimeClass{0,
                                              "PlimCFContext",
                                              PlimCFContextInit,
                                              PlimCFContextCopy,
                                              PlimCFContextFinalize,
                                              PlimCFContextEqual,
                                              PlimCFContextHash,
                                              PlimCFContextCopyFormattingDesc,
                                              PlimCFContextCopyDebugDesc};
        _kPlimCFContextID = _CFRuntimeRegisterClass(&_kPlimCFContextClass);
        gPlimCFContextInited = true;
    });
    return static_cast<PlimCFContext>(const_cast<void *>(_CFRuntimeCreateInstance(
        allocator, _kPlimCFContextID, sizeof(__PlimCFContext) - sizeof(CFRuntimeBase), nullptr)));
}

CFTypeRef PlimCFContextCopy(CFAllocatorRef allocator, CFTypeRef cf) {
    if (!cf) return nullptr;
    const __PlimCFContext *source = Fields(cf);
    PlimCFContext copy = PlimCFContextCreatePrivate(allocator);
    if (!copy) return nullptr;
    // The copy shares the drawing context; its own buffer is allocated but not filled.
    copy->cgContext = CGContextRetain(source->cgContext);
    if (source->buffer && source->cgContext) {
        size_t size = CGBitmapContextGetBytesPerRow(source->cgContext) *
                      CGBitmapContextGetHeight(source->cgContext);
        copy->buffer = CFAllocatorAllocate(allocator, static_cast<CFIndex>(size), 0);
        if (!copy->buffer) {
            CFRelease(copy);
            return nullptr;
        }
        copy->ownsBuffer = true;
        copy->bufferFromObjectAllocator = true;
    }
    return copy;
}

void PlimCFContextFinalize(CFTypeRef cf) {
    __PlimCFContext *ctx = Fields(cf);
    if (ctx->cgContext) CGContextRelease(ctx->cgContext);
    ctx->cgContext = nullptr;
    FreeOwnedBuffer(ctx);
}

Boolean PlimCFContextEqual(CFTypeRef a, CFTypeRef b) {
    if (a == b) return true;
    const __PlimCFContext *x = Fields(a);
    const __PlimCFContext *y = Fields(b);
    return x->cgContext && y->cgContext && CFEqual(x->cgContext, y->cgContext);
}

CFHashCode PlimCFContextHash(CFTypeRef cf) {
    const __PlimCFContext *ctx = Fields(cf);
    return ctx->cgContext ? CFHash(ctx->cgContext) : 0;
}

CFStringRef PlimCFContextCopyFormattingDesc(CFTypeRef cf, CFDictionaryRef formatOptions) {
    const __PlimCFContext *ctx = Fields(cf);
    CFStringRef inner = ctx->cgContext ? CFCopyDescription(ctx->cgContext) : nullptr;
    // The inner text goes in as an argument, so a '%' in it is never read as a conversion.
    CFStringRef text = CFStringCreateWithFormat(CFGetAllocator(cf), formatOptions, CFSTR("%@"),
                                                inner ? inner : CFSTR("(NULL)"));
    if (inner) CFRelease(inner);
    return text;
}

CFStringRef PlimCFContextCopyDebugDesc(CFTypeRef cf) {
    return PlimCFContextCopyFormattingDesc(cf, nullptr);
}

UInt32 PlimCFContextDefaultBytesPerRow(CGColorSpaceRef colorSpace, UInt32 width,
                                       UInt32 bitsPerComponent) {
    uint64_t n = CGColorSpaceGetNumberOfComponents(colorSpace);
    if (n == 3) n = 4;
    const uint64_t samples = n * width;  // below 2^35
    constexpr uint64_t kMaxRowBits = uint64_t{UINT32_MAX} * 8;
    if (bitsPerComponent != 0 && samples > kMaxRowBits / bitsPerComponent) return 0;
    return static_cast<UInt32>((samples * bitsPerComponent + 7) / 8);
}

extern "C" {

PLIM_EXPORT CFTypeID PlimCFContextGetTypeID(void) { return _kPlimCFContextID; }

PLIM_EXPORT PlimCFContext PlimCFContextCreate(CFAllocatorRef allocator, UInt32 width, UInt32 height,
                                              void *buffer, UInt32 bitsPerComponent,
                                              UInt32 bytesPerRow, CGColorSpaceRef colorSpace,
                                              CGImageAlphaInfo alphaInfo) {
    PlimCFContext ctx = PlimCFContextCreatePrivate(allocator);
    if (!ctx) return nullptr;
    const plim::errors::Mark mark;
    CGColorSpaceRef temporary = nullptr;
    if (!colorSpace) colorSpace = temporary = PlimCGColorSpaceCreateMainDisplay();
    if (bytesPerRow == 0)
        bytesPerRow = PlimCFContextDefaultBytesPerRow(colorSpace, width, bitsPerComponent);

    bool ok = bytesPerRow != 0;
    if (!ok) {
        // A row too long for the 32-bit sizes: no context.
        plim::errors::Record(kPlimErrorTooLarge);
    } else if (buffer) {
        ctx->buffer = buffer;
    } else {
        // height x bytesPerRow must fit the 32-bit size the rest of the library uses.
        uint64_t size = static_cast<uint64_t>(height) * bytesPerRow;
        void *own = size <= UINT32_MAX
                        ? CFAllocatorAllocate(kCFAllocatorDefault, static_cast<CFIndex>(size), 0)
                        : nullptr;
        if (own) {
            std::memset(own, 0, static_cast<size_t>(size));
            ctx->buffer = own;
            ctx->ownsBuffer = true;
        } else {
            mark.Fallback(size ? kPlimErrorTooLarge : kPlimErrorInvalidArgument);
            ok = false;
        }
    }
    if (ok) {
        ctx->cgContext =
            CGBitmapContextCreate(ctx->buffer, width, height, bitsPerComponent, bytesPerRow,
                                  colorSpace, static_cast<CGBitmapInfo>(alphaInfo));
        ok = ctx->cgContext != nullptr;
    }
    CGColorSpaceRelease(temporary);
    if (ok) return ctx;
    // The graphics layer refuses the geometry, the colour space or the alpha layout.
    mark.Fallback(kPlimErrorUnsupportedLayout);
    FreeOwnedBuffer(ctx);
    CFRelease(ctx);
    return nullptr;
}

PLIM_EXPORT CGContextRef PlimCFContextGetCGContext(PlimCFContext context) {
    return context->cgContext;
}

PLIM_EXPORT void *PlimCFContextGetBuffer(PlimCFContext context) { return context->buffer; }

}  // extern "C"
