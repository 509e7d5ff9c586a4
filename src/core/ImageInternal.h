// The image record, for the library's own pixel code. Walk the buffer with these fields, never
// with the layout accessors (which answer for the rendered image while one is held).
#pragma once

#include <PlimBitmapLib/PlimCFImage.h>
#include <PlimBitmapLib/platform/CFRuntime.h>

struct __PlimCFImage {
    CFRuntimeBase base;
    CGImageRef image;
    void *buffer;
    UInt32 bufferSize;  // always bytesPerRow x height
    UInt32 width;
    UInt32 height;
    UInt32 bitsPerComponent;
    UInt32 bitsPerPixel;
    UInt32 bytesPerRow;
    CGColorSpaceRef colorSpace;
    SInt32 alphaInfo;
    PlimCFContext context;
};

namespace plim::core {

// The main display's colour space, made when the image type registers; every promotion that
// does work converts into it. Null until then, or when it could not be made.
CGColorSpaceRef NativeColorSpace();

// Resets the buffer's layout fields as invalidation does (the buffer must already be gone).
void ResetLayoutFields(PlimCFImage image);

// a x b in 32 bits, false on overflow.
inline bool Multiply32(UInt32 a, UInt32 b, UInt32 *result) {
    uint64_t product = static_cast<uint64_t>(a) * b;
    if (product > UINT32_MAX) return false;
    *result = static_cast<UInt32>(product);
    return true;
}

}  // namespace plim::core
