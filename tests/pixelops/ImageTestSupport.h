// Small helpers for building images from literal pixels and reading their buffers back.
#pragma once

#include <PlimBitmapLib/PlimBitmapLib.h>

#include <array>
#include <cstring>
#include <vector>

#include "core/ImageInternal.h"
#include "platform/runtime/CFRef.h"

namespace plim::test {

using Pixel = std::array<UInt8, 4>;
using ImageRef = plim::CFRef<PlimCFImage>;

// A 32-bit image in the main display's space from rows of pixels (top row first); rows may be
// padded to `bytesPerRow`, the padding filled with `pad`.
inline ImageRef MakeImage32(UInt32 width, UInt32 height, const std::vector<Pixel> &pixels,
                            CGImageAlphaInfo alphaInfo = kCGImageAlphaPremultipliedFirst, UInt32 bytesPerRow = 0,
                            UInt8 pad = 0, CFAllocatorRef allocator = nullptr) {
    if (bytesPerRow == 0) bytesPerRow = width * 4;
    std::vector<UInt8> bytes(static_cast<size_t>(bytesPerRow) * height, pad);
    for (UInt32 y = 0; y < height; ++y)
        for (UInt32 x = 0; x < width; ++x)
            std::memcpy(&bytes[static_cast<size_t>(y) * bytesPerRow + x * 4], pixels[y * width + x].data(), 4);
    return ImageRef(PlimCFImageCreateWithBuffer(allocator, bytes.data(), width, height, 8, 32, bytesPerRow, nullptr,
                                                alphaInfo));
}

inline ImageRef MakeGrey(UInt32 width, UInt32 height, const std::vector<UInt8> &values,
                         CFAllocatorRef allocator = nullptr) {
    CGColorSpaceRef grey = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    ImageRef image(
        PlimCFImageCreateWithBuffer(allocator, values.data(), width, height, 8, 8, width, grey, kCGImageAlphaNone));
    CGColorSpaceRelease(grey);
    return image;
}

// A rendered-only image of 24-bit RGB pixels (three bytes each, rows not padded).
inline ImageRef MakeRendered24(UInt32 width, UInt32 height, const std::vector<UInt8> &rgb) {
    CFDataRef data = CFDataCreate(nullptr, rgb.data(), static_cast<CFIndex>(rgb.size()));
    CGDataProviderRef provider = CGDataProviderCreateWithCFData(data);
    CGColorSpaceRef space = PlimCGColorSpaceCreateMainDisplay();
    CGImageRef cg = CGImageCreate(width, height, 8, 24, width * 3, space, kCGImageAlphaNone, provider, nullptr,
                                  false, kCGRenderingIntentDefault);
    ImageRef image(cg ? PlimCFImageCreateWithImage(nullptr, cg) : nullptr);
    CGImageRelease(cg);
    CGColorSpaceRelease(space);
    CGDataProviderRelease(provider);
    CFRelease(data);
    return image;
}

// The buffer's bytes as they are (made from the rendered image if needed).
inline std::vector<UInt8> Bytes(PlimCFImage image) {
    auto *p = static_cast<const UInt8 *>(PlimCFImageGetImageBuffer(image));
    return p ? std::vector<UInt8>(p, p + image->bufferSize) : std::vector<UInt8>();
}

// The four bytes of pixel (x, y), y counted from the top row of the buffer.
inline Pixel At(PlimCFImage image, UInt32 x, UInt32 y) {
    auto *p = static_cast<const UInt8 *>(PlimCFImageGetImageBuffer(image));
    Pixel px{};
    std::memcpy(px.data(), p + static_cast<size_t>(y) * image->bytesPerRow + x * 4, 4);
    return px;
}

}  // namespace plim::test
