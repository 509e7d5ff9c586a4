#include "platform/graphics/destination/ImagePixels.h"

#include "platform/graphics/GraphicsTypes.h"
#include "platform/runtime/CFRef.h"

#include <new>

namespace plim::graphics {

namespace {

inline uint8_t Unpremultiply(uint8_t c, uint8_t a) {
    if (a == 0) return 0;
    unsigned v = (static_cast<unsigned>(c) * 255u + a / 2u) / a;
    return static_cast<uint8_t>(v > 255u ? 255u : v);
}

}  // namespace

bool ReadEncodablePixels(CGImageRef image, EncodablePixels *out, bool unpremultiply) {
    if (!image || !image->provider || !image->provider->data) return false;
    size_t w = image->width, h = image->height, bpr = image->bytesPerRow;
    if (w == 0 || h == 0 || w > UINT32_MAX / 4 || h > UINT32_MAX) return false;
    size_t bpc = image->bitsPerComponent, bpp = image->bitsPerPixel;
    if (bpr == 0 || (h - 1) > (image->provider->size - 1) / bpr) return false;
    if (bpr * (h - 1) + (w * bpp + 7) / 8 > image->provider->size) return false;
    const auto *src = static_cast<const uint8_t *>(image->provider->data);
    CGImageAlphaInfo info = image->alphaInfo;
    out->width = static_cast<uint32_t>(w);
    out->height = static_cast<uint32_t>(h);
    try {
        if (image->space) {
            CFRef<CFDataRef> icc(CGColorSpaceCopyICCProfile(image->space));
            if (icc)
                out->icc.assign(CFDataGetBytePtr(icc.get()), CFDataGetBytePtr(icc.get()) + CFDataGetLength(icc.get()));
        }
        if ((bpc == 8 && bpp == 8 && info == kCGImageAlphaNone) || (bpc == 1 && bpp == 1)) {
            out->grey = true;
            out->pixels.resize(w * h);
            for (size_t y = 0; y < h; y++) {
                const uint8_t *row = src + bpr * y;
                uint8_t *dst = out->pixels.data() + w * y;
                for (size_t x = 0; x < w; x++)
                    dst[x] = bpc == 8 ? row[x] : ((row[x >> 3] >> (7 - (x & 7))) & 1u) ? 255 : 0;
            }
            return true;
        }
        if (bpc != 8 || bpp != 32 || info == kCGImageAlphaNone || info == kCGImageAlphaOnly)
            return false;
        bool alphaFirst = info == kCGImageAlphaPremultipliedFirst || info == kCGImageAlphaFirst ||
                          info == kCGImageAlphaNoneSkipFirst;
        bool hasAlpha = info != kCGImageAlphaNoneSkipFirst && info != kCGImageAlphaNoneSkipLast;
        bool premultiplied = unpremultiply && (info == kCGImageAlphaPremultipliedFirst ||
                                               info == kCGImageAlphaPremultipliedLast);
        out->alpha = hasAlpha;
        out->pixels.resize(w * h * 4);
        for (size_t y = 0; y < h; y++) {
            const uint8_t *row = src + bpr * y;
            uint8_t *dst = out->pixels.data() + w * 4 * y;
            for (size_t x = 0; x < w; x++, row += 4, dst += 4) {
                const uint8_t *rgb = alphaFirst ? row + 1 : row;
                uint8_t a = hasAlpha ? (alphaFirst ? row[0] : row[3]) : 255;
                dst[0] = a;
                for (int c = 0; c < 3; c++)
                    dst[1 + c] = premultiplied ? Unpremultiply(rgb[c], a) : rgb[c];
            }
        }
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

}  // namespace plim::graphics
