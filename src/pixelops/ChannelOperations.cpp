// In-place channel and colour-model operations: questions, grey and colour conversions, alpha
// removal and addition, inversion and clearing.
#include "ChannelArithmetic.h"
#include "PixelArithmetic.h"

#include <PlimBitmapLib/PlimCFImageOperations.h>

#include "core/ImageInternal.h"
#include "platform/runtime/Errors.h"
#include "platform/runtime/Output.h"

#include <cstring>

namespace plim::pixel {

void MakeGreyPixelsReference(UInt8 *pixels, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        UInt8 *p = pixels + i * 4;
        UInt8 grey = GreySampleReference(p[1], p[2], p[3]);
        p[0] = GreyAlphaReference(p[0]);
        p[1] = p[2] = p[3] = grey;
    }
}

void MakeGreyPixels(UInt8 *pixels, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        UInt8 *p = pixels + i * 4;
        UInt8 grey = GreySample(p[1], p[2], p[3]);
        p[1] = p[2] = p[3] = grey;
    }
}

bool UnpremultiplyToOpaque(UInt8 *pixels, size_t count) {
    const uint8_t *table = UnpremultiplyTable();
    bool invalid = false;
    for (size_t i = 0; i < count; ++i) {
        UInt8 *p = pixels + i * 4;
        uint32_t a = p[0];
        uint32_t r = p[1], g = p[2], b = p[3];
        invalid |= (r > a) | (g > a) | (b > a);
        const uint8_t *row = table + (a << 8);
        p[0] = 255;
        p[1] = row[r];
        p[2] = row[g];
        p[3] = row[b];
    }
    return invalid;
}

// Whole 32-bit words so that the compiler can vectorise; the byte order of the mask follows
// the machine's, byte 0 (alpha) being the first in memory.
namespace {
template <uint32_t kMask>
void XorWords(UInt8 *pixels, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        uint32_t w;
        std::memcpy(&w, pixels + i * 4, 4);
        w ^= kMask;
        std::memcpy(pixels + i * 4, &w, 4);
    }
}

template <uint32_t kMask>
void OrWords(UInt8 *pixels, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        uint32_t w;
        std::memcpy(&w, pixels + i * 4, 4);
        w |= kMask;
        std::memcpy(pixels + i * 4, &w, 4);
    }
}

constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
constexpr uint32_t kColourBytes = kLittleEndian ? 0xFFFFFF00u : 0x00FFFFFFu;
constexpr uint32_t kAlphaByte = ~kColourBytes;
}  // namespace

void InvertPixels(UInt8 *pixels, size_t count, bool keepAlpha) {
    if (keepAlpha)
        XorWords<kColourBytes>(pixels, count);
    else
        XorWords<0xFFFFFFFFu>(pixels, count);
}

void SetAlphaOpaque(UInt8 *pixels, size_t count) { OrWords<kAlphaByte>(pixels, count); }

}  // namespace plim::pixel

using namespace plim::pixel;

namespace {

bool IsGreyType(CGColorSpaceRef space) {
    int type = CGColorSpaceGetType(space);
    return type == kCGColorSpaceTypeDeviceGray || type == kCGColorSpaceTypeCalibratedGray;
}

const char kRemoveAlphaMessage[] = "PlimCFImageRemoveAlphaChannel - invalid unpremultiplication\n";

}  // namespace

extern "C" {

Boolean PlimCFImageIsColor(PlimCFImage image) { return !IsGreyType(PlimCFImageGetColorSpace(image)); }

Boolean PlimCFImageIsOpaque(PlimCFImage image) {
    PlimCFImagePromoteImage(image, false, false);
    if (!AlphaInfoHasAlpha(image->alphaInfo) || !image->buffer) return true;
    // A row never holds more four-byte pixels than its length allows, whatever the fields say.
    UInt32 perRow = image->width;
    if (perRow > image->bytesPerRow / 4) perRow = image->bytesPerRow / 4;
    const UInt8 *row = static_cast<const UInt8 *>(image->buffer);
    for (UInt32 y = 0; y < image->height; ++y, row += image->bytesPerRow)
        for (UInt32 x = 0; x < perRow; ++x)
            if (row[static_cast<size_t>(x) * 4] != 255) return false;
    return true;
}

void PlimCFImageMakeGrayscale(PlimCFImage image) {
    if (!PlimCFImageIsColor(image)) return;
    auto *pixels = static_cast<UInt8 *>(PlimCFImageGetImageBuffer(image));
    if (!pixels) return;
    MakeGreyPixels(pixels, image->bufferSize >> 2);
    PlimCFImageInvalidateImage(image);
}

void PlimCFImageConvertToGrayscale(PlimCFImage image) {
    if (!PlimCFImageIsColor(image)) return;
    CGImageRef rendered = PlimCFImageGetCGImage(image);
    if (!rendered) return;
    auto w = static_cast<UInt32>(CGImageGetWidth(rendered));
    auto h = static_cast<UInt32>(CGImageGetHeight(rendered));
    UInt32 size = 0;
    if (!plim::core::Multiply32(w, h, &size)) return plim::errors::Record(kPlimErrorTooLarge);

    CGColorSpaceRef grey = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    if (!grey) return plim::errors::Record(kPlimErrorOutOfMemory);
    CFAllocatorRef allocator = CFGetAllocator(image);
    void *bytes = CFAllocatorAllocate(allocator, size, 0);
    if (!bytes) {
        CGColorSpaceRelease(grey);
        return;
    }
    std::memset(bytes, 0, size);
    PlimCFContext context = PlimCFContextCreate(allocator, w, h, bytes, 8, w, grey, kCGImageAlphaNone);
    CGContextRef cg = context ? PlimCFContextGetCGContext(context) : nullptr;
    if (!cg) {
        if (context) CFRelease(context);
        CFAllocatorDeallocate(allocator, bytes);
        CGColorSpaceRelease(grey);
        return;
    }
    CGContextDrawImage(cg, CGRectMake(0.0f, 0.0f, static_cast<float>(w), static_cast<float>(h)), rendered);

    PlimCFImageInvalidateImage(image);
    PlimCFImageInvalidateBuffer(image);
    image->buffer = bytes;
    image->bufferSize = size;
    image->width = w;
    image->height = h;
    image->bitsPerComponent = 8;
    image->bitsPerPixel = 8;
    image->bytesPerRow = w;
    image->colorSpace = grey;
    image->alphaInfo = kCGImageAlphaNone;
    CFRelease(context);
}

void PlimCFImageConvertToColor(PlimCFImage image) {
    if (PlimCFImageIsColor(image)) return;
    PlimCFImagePromoteImage(image, true, false);
}

void PlimCFImageAddAlphaChannel(PlimCFImage image) {
    if (PlimCFImageHasAlpha(image)) return;
    PlimCFImagePromoteImage(image, false, true);
}

void PlimCFImageRemoveAlphaChannel(PlimCFImage image) {
    if (!PlimCFImageHasAlpha(image)) return;
    PlimCFImagePromoteImage(image, false, true);
    // Unpremultiplying needs the four-byte ARGB layout the promotion makes; without it (no
    // pixels, no memory) the image stays as it is.
    if (!image->buffer || image->bitsPerPixel != 32 || image->alphaInfo != kCGImageAlphaPremultipliedFirst) return;
    if (UnpremultiplyToOpaque(static_cast<UInt8 *>(image->buffer), image->bufferSize >> 2))
        plim::output::Write(kPlimOutputStandardError, kRemoveAlphaMessage);
    PlimCFImageInvalidateImage(image);
}

void PlimCFImageInvert(PlimCFImage image) {
    auto *pixels = static_cast<UInt8 *>(PlimCFImageGetImageBuffer(image));
    if (!pixels) return;
    UInt32 size = image->bufferSize;
    InvertPixels(pixels, size >> 2, AlphaInfoHasAlpha(image->alphaInfo));
    for (UInt32 i = size & ~UInt32{3}; i < size; ++i) pixels[i] = static_cast<UInt8>(255 - pixels[i]);
    PlimCFImageInvalidateImage(image);
}

void PlimCFImageClear(PlimCFImage image) {
    void *pixels = PlimCFImageGetImageBuffer(image);
    if (!pixels) return;
    std::memset(pixels, AlphaInfoHasAlpha(image->alphaInfo) ? 0 : 255, image->bufferSize);
    PlimCFImageInvalidateImage(image);
}

}  // extern "C"
