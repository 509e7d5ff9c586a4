// Decoded pixels handed from a codec to whoever wraps them (a rendered image or an importer).
#pragma once

#include <PlimBitmapLib/platform/CGImage.h>

#include "platform/runtime/Errors.h"
#include "platform/runtime/LargeBlocks.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

namespace plim::decoders {

// Largest side any decoder accepts, and the most pixels the process-wide limit can be raised
// to: four bytes a pixel must still fit the 32-bit size fields.
constexpr uint32_t kMaxDimension = 1u << 20;
constexpr uint64_t kMaxPixels = UINT32_MAX / 4;
// The process-wide limit's default (the public header states both values).
constexpr uint64_t kDefaultPixelLimit = 178956970;
static_assert(kMaxPixels == 1073741823);

// The most pixels (width x height) a decoder may allocate for one picture; every decoder checks
// a declared size against it before allocating anything of that size. Any thread may read or
// set it at any time.
uint64_t PixelLimit();
// 0 lifts the limit up to kMaxPixels; larger values are held to kMaxPixels.
void SetPixelLimit(uint64_t pixels);

// While one lives, PixelLimit() on this thread is kMaxPixels: for decoding again a picture that
// was accepted once, whatever the limit has become since.
class PixelLimitLifted {
public:
    PixelLimitLifted();
    ~PixelLimitLifted();
    PixelLimitLifted(const PixelLimitLifted &) = delete;
    PixelLimitLifted &operator=(const PixelLimitLifted &) = delete;

private:
    bool before_;
};

struct Raster {
    uint8_t *pixels = nullptr;  // malloc'd; grey: 1 byte per pixel; else A,R,G,B, not premultiplied
    uint32_t width = 0;
    uint32_t height = 0;
    bool grey = false;   // one byte per pixel, 0 black
    bool alpha = false;  // ARGB pixels with a real alpha channel
    int sourceBits = 8;  // 1 for black-and-white sources
    std::vector<uint8_t> icc;

    Raster() = default;
    Raster(const Raster &) = delete;
    Raster &operator=(const Raster &) = delete;
    ~Raster() { std::free(pixels); }

    size_t BytesPerPixel() const { return grey ? 1 : 4; }
    size_t BytesPerRow() const { return static_cast<size_t>(width) * BytesPerPixel(); }
    uint8_t *Take() { return std::exchange(pixels, nullptr); }
    // Allocates the pixel memory for the given geometry, and `slack` bytes past its end for a
    // decoder's own use; false for absurd sizes (the reason is recorded).
    bool Allocate(uint32_t w, uint32_t h, bool isGrey, size_t slack = 0);
};

// Whether a decoder may allocate a picture of w x h pixels.
inline bool DimensionsAcceptable(uint64_t w, uint64_t h) {
    return w > 0 && h > 0 && w <= kMaxDimension && h <= kMaxDimension && w * h <= PixelLimit();
}

inline bool Raster::Allocate(uint32_t w, uint32_t h, bool isGrey, size_t slack) {
    if (!DimensionsAcceptable(w, h))
        return errors::Fail(w && h ? kPlimErrorTooLarge : kPlimErrorCorrupt, false);
    if (slack > SIZE_MAX / 2) return errors::Fail(kPlimErrorOutOfMemory, false);
    std::free(pixels);
    width = w;
    height = h;
    grey = isGrey;
    pixels = static_cast<uint8_t *>(runtime::AllocateBlock(BytesPerRow() * h + slack));
    if (!pixels) errors::Record(kPlimErrorOutOfMemory);
    return pixels != nullptr;
}

bool IsPNG(const uint8_t *data, size_t size);
bool IsJPEG(const uint8_t *data, size_t size);
bool DecodePNG(const uint8_t *data, size_t size, Raster *out);
bool DecodeJPEG(const uint8_t *data, size_t size, Raster *out);

// Wraps decoded pixels into a rendered image (ICC profile as colour space); takes the pixels
// on success.
CGImageRef CreateImageFromRaster(Raster *raster, bool shouldInterpolate,
                                 CGColorRenderingIntent intent);

}  // namespace plim::decoders
