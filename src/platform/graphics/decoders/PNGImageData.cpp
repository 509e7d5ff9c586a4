// Plain PNG image data: libdeflate inflates the whole stream at once, into the end of the pixel
// memory itself, and each row is unfiltered and laid out as A,R,G,B (or grey) bytes just after.
// Only files every step of which is certain are taken: anything else goes back to libpng, so
// that a file either decodes to the same pixels on both paths or is left to libpng's verdict.
#include "platform/graphics/decoders/PNGImageData.h"

#include "platform/graphics/decoders/PNGFilters.h"

#include <libdeflate.h>

#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace plim::decoders {

namespace {

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};
using Block = std::unique_ptr<uint8_t, FreeDeleter>;

struct DecompressorDeleter {
    void operator()(libdeflate_decompressor *d) const { libdeflate_free_decompressor(d); }
};

uint32_t BigEndian32(const uint8_t *p) {
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | p[3];
}

// The IDAT chunks from `offset` (the first one's data) on, with their checksums right and the
// IEND chunk right after them: the total of their data, or 0 when anything is amiss.
size_t CheckImageDataChunks(const uint8_t *data, size_t size, size_t offset, size_t *chunks) {
    if (offset < 8 || offset > size || std::memcmp(data + offset - 4, "IDAT", 4) != 0) return 0;
    size_t pos = offset - 8, total = 0;
    *chunks = 0;
    for (;;) {
        if (size - pos < 12) return 0;
        const uint32_t length = BigEndian32(data + pos);
        if (length > 0x7FFFFFFFu || length > size - pos - 12) return 0;
        const uint8_t *type = data + pos + 4;
        if (libdeflate_crc32(0, type, length + 4) != BigEndian32(type + 4 + length)) return 0;
        if (std::memcmp(type, "IDAT", 4) != 0) return std::memcmp(type, "IEND", 4) == 0 && length == 0 ? total : 0;
        total += length;
        ++*chunks;
        pos += 12 + length;
    }
}

// The zlib stream, in one piece: the chunk's own bytes when there is one chunk, else a copy.
const uint8_t *JoinImageData(const uint8_t *data, size_t offset, size_t total, size_t chunks, Block *joined) {
    if (chunks == 1) return data + offset;
    joined->reset(static_cast<uint8_t *>(std::malloc(total)));
    if (!*joined) return nullptr;
    for (size_t pos = offset - 8, done = 0; done < total;) {
        const uint32_t length = BigEndian32(data + pos);
        std::memcpy(joined->get() + done, data + pos + 8, length);
        done += length;
        pos += 12 + length;
    }
    return joined->get();
}

// How one row of samples becomes a row of the raster.
struct RowLayout {
    int colorType = 0;
    bool keyed = false;  // grey or RGB with a tRNS colour: that colour is transparent
    uint8_t key[3] = {};
    uint8_t palette[256][4] = {};  // A,R,G,B; entries past the palette are opaque black

    void Convert(const uint8_t *src, uint8_t *dst, size_t width) const {
        switch (colorType) {
            case PNG_COLOR_TYPE_GRAY:
                if (!keyed) {
                    std::memcpy(dst, src, width);
                    return;
                }
                for (size_t x = 0; x < width; x++, dst += 4) {
                    const uint8_t g = src[x];
                    dst[0] = g == key[0] ? 0 : 255;
                    dst[1] = dst[2] = dst[3] = g;
                }
                return;
            case PNG_COLOR_TYPE_GRAY_ALPHA:
                for (size_t x = 0; x < width; x++, src += 2, dst += 4) {
                    dst[0] = src[1];
                    dst[1] = dst[2] = dst[3] = src[0];
                }
                return;
            case PNG_COLOR_TYPE_RGB:
                for (size_t x = 0; x < width; x++, src += 3, dst += 4) {
                    const bool clear = keyed && src[0] == key[0] && src[1] == key[1] && src[2] == key[2];
                    dst[0] = clear ? 0 : 255;
                    dst[1] = src[0];
                    dst[2] = src[1];
                    dst[3] = src[2];
                }
                return;
            case PNG_COLOR_TYPE_RGB_ALPHA:
                // R,G,B,A to A,R,G,B is a rotation of each 32-bit pixel, which vectorises.
                for (size_t x = 0; x < width; x++) {
                    uint32_t v;
                    std::memcpy(&v, src + 4 * x, 4);
                    v = std::endian::native == std::endian::little ? std::rotl(v, 8) : std::rotr(v, 8);
                    std::memcpy(dst + 4 * x, &v, 4);
                }
                return;
            default:  // palette
                for (size_t x = 0; x < width; x++, dst += 4) std::memcpy(dst, palette[src[x]], 4);
                return;
        }
    }
};

// The layout for the file's colour type and transparency as libpng's expansion gives it; false
// for what this path leaves to libpng.
bool LayoutFor(png_structp png, png_infop info, RowLayout *layout, size_t *channels, bool *grey, bool *alpha) {
    const int colorType = png_get_color_type(png, info);
    layout->colorType = colorType;
    const bool hasTRNS = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
    png_bytep transAlpha = nullptr;
    int transCount = 0;
    png_color_16p transColor = nullptr;
    if (hasTRNS) png_get_tRNS(png, info, &transAlpha, &transCount, &transColor);
    *grey = colorType == PNG_COLOR_TYPE_GRAY && !hasTRNS;
    *alpha = (colorType & PNG_COLOR_MASK_ALPHA) != 0 || hasTRNS;
    switch (colorType) {
        case PNG_COLOR_TYPE_GRAY:
        case PNG_COLOR_TYPE_RGB:
            *channels = colorType == PNG_COLOR_TYPE_GRAY ? 1 : 3;
            if (hasTRNS) {
                if (!transColor) return false;
                const png_uint_16 values[3] = {colorType == PNG_COLOR_TYPE_GRAY ? transColor->gray : transColor->red,
                                               transColor->green, transColor->blue};
                for (size_t c = 0; c < *channels; c++) {
                    if (values[c] > 255) return false;  // a colour no 8-bit sample has
                    layout->key[c] = static_cast<uint8_t>(values[c]);
                }
                layout->keyed = true;
            }
            return true;
        case PNG_COLOR_TYPE_GRAY_ALPHA:
        case PNG_COLOR_TYPE_RGB_ALPHA:
            *channels = colorType == PNG_COLOR_TYPE_GRAY_ALPHA ? 2 : 4;
            return !hasTRNS;
        case PNG_COLOR_TYPE_PALETTE: {
            *channels = 1;
            png_colorp colors = nullptr;
            int count = 0;
            if (!png_get_PLTE(png, info, &colors, &count) || !colors || count < 1 || count > 256) return false;
            if (hasTRNS && (!transAlpha || transCount < 1 || transCount > count)) return false;
            for (int i = 0; i < 256; i++) layout->palette[i][0] = 255;
            for (int i = 0; i < count; i++) {
                layout->palette[i][1] = colors[i].red;
                layout->palette[i][2] = colors[i].green;
                layout->palette[i][3] = colors[i].blue;
            }
            for (int i = 0; i < transCount; i++) layout->palette[i][0] = transAlpha[i];
            return true;
        }
        default: return false;
    }
}

}  // namespace

bool DecodePlainImageData(png_structp png, png_infop info, const uint8_t *data, size_t size, size_t offset,
                          Raster *out) {
    if (png_get_bit_depth(png, info) != 8 || png_get_interlace_type(png, info) != PNG_INTERLACE_NONE) return false;
    RowLayout layout;
    size_t channels = 0;
    bool grey = false, alpha = false;
    if (!LayoutFor(png, info, &layout, &channels, &grey, &alpha)) return false;
    const png_uint_32 width = png_get_image_width(png, info), height = png_get_image_height(png, info);
    if (!DimensionsAcceptable(width, height)) return false;

    size_t chunks = 0;
    const size_t total = CheckImageDataChunks(data, size, offset, &chunks);
    if (total < 2) return false;
    Block joined;
    const uint8_t *stream = JoinImageData(data, offset, total, chunks, &joined);
    if (!stream) return false;
    const size_t sampleRow = static_cast<size_t>(width) * channels, rawRow = sampleRow + 1;
    const size_t rawSize = rawRow * height;
    // zlib's inflate holds distances to the window the stream declares, libdeflate does not: a
    // stream whose window is smaller than its data is left to libpng.
    const unsigned cmf = stream[0];
    if ((cmf & 0x0F) != 8 || (cmf >> 4) > 7) return false;
    if ((cmf >> 4) < 7 && rawSize > (size_t{1} << ((cmf >> 4) + 8))) return false;

    // The stream is inflated into the end of the pixel memory, with `slack` more bytes where a
    // raw row is longer than a raster row. Raster row y then ends where raw row y + 1 starts at
    // the latest (the raw rows fall behind by at most the slack), so writing it never reaches a
    // raw row not yet read.
    const size_t pixelRow = static_cast<size_t>(width) * (grey ? 1 : 4);
    const size_t slack = rawRow > pixelRow ? (rawRow - pixelRow) * height : 0;
    if (!out->Allocate(width, height, grey, slack)) return false;
    uint8_t *raw = out->pixels + pixelRow * height + slack - rawSize;
    std::unique_ptr<libdeflate_decompressor, DecompressorDeleter> inflater(libdeflate_alloc_decompressor());
    size_t read = 0, written = 0;
    Block rows(static_cast<uint8_t *>(std::calloc(2, sampleRow)));
    bool ok = inflater && rows &&
              libdeflate_zlib_decompress_ex(inflater.get(), stream, total, raw, rawSize, &read, &written) ==
                  LIBDEFLATE_SUCCESS &&
              read == total && written == rawSize;
    uint8_t *prev = rows.get(), *cur = rows.get() + sampleRow;
    for (size_t y = 0; ok && y < height; y++, raw += rawRow) {
        if (!(ok = Unfilter(raw[0], raw + 1, prev, cur, sampleRow, channels))) break;
        layout.Convert(cur, out->pixels + pixelRow * y, width);
        std::swap(prev, cur);
    }
    if (!ok) {
        std::free(out->Take());
        return false;
    }
    out->alpha = alpha;
    return true;
}

}  // namespace plim::decoders
