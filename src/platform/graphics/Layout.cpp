#include "platform/graphics/GraphicsTypes.h"

#include <limits>

namespace plim::graphics {

bool ImageLayout(size_t bpc, size_t bpp, CGColorSpaceRef space, uint32_t bitmapInfo,
                 Layout *layout) {
    if (bitmapInfo & ~static_cast<uint32_t>(kCGBitmapAlphaInfoMask)) return false;
    uint32_t alpha = bitmapInfo;
    size_t n = space ? static_cast<size_t>(space->components) : 0;
    if (alpha == kCGImageAlphaOnly) {
        if (bpc != 8 || bpp != 8) return false;
        *layout = Layout::Alpha8;
        return true;
    }
    if (alpha > kCGImageAlphaNoneSkipFirst) return false;
    if (n == 1 && bpc == 1 && bpp == 1 && alpha == kCGImageAlphaNone) {
        *layout = Layout::Grey1;
        return true;
    }
    if (bpc != 8) return false;
    if (n == 1 && bpp == 8 && alpha == kCGImageAlphaNone) {
        *layout = Layout::Grey8;
    } else if (n == 1 && bpp == 16) {
        *layout = Layout::GreyAlpha;
    } else if (n == 3 && bpp == 24 && alpha == kCGImageAlphaNone) {
        *layout = Layout::RGB24;
    } else if (n == 3 && bpp == 32) {
        *layout = Layout::RGB32;
    } else {
        return false;
    }
    return true;
}

bool RowBytes(size_t width, size_t bpp, size_t *bytes) {
    if (bpp != 0 && width > (std::numeric_limits<size_t>::max() - 7) / bpp) return false;
    *bytes = (width * bpp + 7) / 8;
    return true;
}

bool ImageBytes(size_t width, size_t height, size_t bpp, size_t bytesPerRow, size_t *bytes) {
    constexpr size_t kLimit = std::numeric_limits<uint32_t>::max();
    size_t row;
    if (width == 0 || height == 0 || width > kLimit || height > kLimit) return false;
    if (!RowBytes(width, bpp, &row) || bytesPerRow < row || bytesPerRow > kLimit) return false;
    // Every row is counted in full, so that a whole-buffer copy stays inside the 32-bit size.
    if (bytesPerRow > kLimit / height) return false;
    *bytes = bytesPerRow * height;
    return true;
}

}  // namespace plim::graphics
