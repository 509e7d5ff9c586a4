// BMP importer: uncompressed 1/4/8-bit indexed, 24-bit and 32-bit (BI_RGB or BI_BITFIELDS with
// byte-aligned masks) Windows bitmaps. Every offset and length is checked against the file.
#include "platform/media/ComponentInternal.h"

#include <cstring>

namespace plim::media {

namespace {

uint32_t U32(const uint8_t *p) {
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
uint16_t U16(const uint8_t *p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

int MaskShift(uint32_t mask) {
    for (int s = 0; s < 32; s += 8)
        if (mask == (0xFFu << s)) return s;
    return -1;
}

}  // namespace

bool IsBMP(const uint8_t *data, size_t size) {
    return size >= 26 && data[0] == 'B' && data[1] == 'M' && U32(data + 14) >= 40;
}

OSErr ImportBMP(const uint8_t *data, size_t size, ImportedImage *out) {
    if (!IsBMP(data, size) || size < 54) return codecBadDataErr;
    uint32_t pixelOffset = U32(data + 10);
    uint32_t headerSize = U32(data + 14);
    int32_t width = static_cast<int32_t>(U32(data + 18));
    int32_t rawHeight = static_cast<int32_t>(U32(data + 22));
    uint16_t bpp = U16(data + 28);
    uint32_t compression = U32(data + 30);
    uint32_t colorsUsed = U32(data + 46);
    if (headerSize > size - 14 || width <= 0 || rawHeight == 0 || rawHeight == INT32_MIN)
        return codecBadDataErr;
    bool topDown = rawHeight < 0;
    uint32_t height = static_cast<uint32_t>(topDown ? -rawHeight : rawHeight);
    if (width > 32767 || height > 32767) return ImportFailure(kPlimErrorTooLarge, codecUnimpErr);
    int shifts[4] = {16, 8, 0, -1};  // R, G, B, A byte positions in a 32-bit little-endian pixel
    if (compression == 3 && (bpp == 32)) {
        size_t maskAt = headerSize >= 52 ? 14 + 40 : 14 + headerSize;
        if (maskAt + 12 > size) return codecBadDataErr;
        for (int c = 0; c < 3; c++) shifts[c] = MaskShift(U32(data + maskAt + 4 * c));
        if (headerSize >= 56) shifts[3] = U32(data + 14 + 52) ? MaskShift(U32(data + 14 + 52)) : -1;
        if (shifts[0] < 0 || shifts[1] < 0 || shifts[2] < 0) return codecUnimpErr;
    } else if (compression != 0) {
        return codecUnimpErr;
    }
    if (bpp != 1 && bpp != 4 && bpp != 8 && bpp != 24 && bpp != 32) return codecUnimpErr;
    uint32_t paletteSize = 0;
    const uint8_t *palette = data + 14 + headerSize;
    if (bpp <= 8) {
        paletteSize = colorsUsed ? colorsUsed : (1u << bpp);
        if (paletteSize > 256 || 14 + static_cast<size_t>(headerSize) + paletteSize * 4 > size)
            return codecBadDataErr;
    }
    size_t rowBytes = ((static_cast<size_t>(width) * bpp + 31) / 32) * 4;
    if (pixelOffset > size || rowBytes * height > size - pixelOffset)
        return ImportFailure(kPlimErrorTruncated, codecBadDataErr);
    decoders::Raster &r = out->raster;
    if (!r.Allocate(static_cast<uint32_t>(width), height, false)) return memFullErr;
    bool anyAlpha = false;
    for (uint32_t y = 0; y < height; y++) {
        const uint8_t *src = data + pixelOffset + rowBytes * (topDown ? y : height - 1 - y);
        uint8_t *dst = r.pixels + r.BytesPerRow() * y;
        for (int32_t x = 0; x < width; x++, dst += 4) {
            if (bpp <= 8) {
                size_t bit = static_cast<size_t>(x) * bpp;
                unsigned index = (src[bit / 8] >> (8 - bpp - bit % 8)) & ((1u << bpp) - 1u);
                if (index >= paletteSize) index = 0;
                const uint8_t *c = palette + index * 4;
                dst[0] = 255;
                dst[1] = c[2];
                dst[2] = c[1];
                dst[3] = c[0];
            } else if (bpp == 24) {
                const uint8_t *p = src + x * 3;
                dst[0] = 255;
                dst[1] = p[2];
                dst[2] = p[1];
                dst[3] = p[0];
            } else {
                uint32_t v = U32(src + x * 4);
                dst[0] = shifts[3] >= 0 ? static_cast<uint8_t>(v >> shifts[3]) : 255;
                for (int c = 0; c < 3; c++) dst[1 + c] = static_cast<uint8_t>(v >> shifts[c]);
                anyAlpha = anyAlpha || dst[0] != 255;
            }
        }
    }
    r.alpha = anyAlpha;
    out->depth = anyAlpha ? 32 : 24;
    return noErr;
}

}  // namespace plim::media
