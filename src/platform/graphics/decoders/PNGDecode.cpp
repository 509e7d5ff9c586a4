// PNG through libpng: 16-bit samples scaled to 8 with rounding, palette, low-bit grey and tRNS
// expanded; colour to A,R,G,B, grey without alpha kept as one byte per pixel. Plain 8-bit files
// take a faster road for their image data (PNGImageData.h) once libpng has read the header.
#include "platform/graphics/decoders/PNGImageData.h"
#include "platform/graphics/decoders/Raster.h"
#include "platform/runtime/NoThrow.h"

#include <png.h>

#include <csetjmp>
#include <cstring>

namespace plim::decoders {

namespace {

struct MemoryReader {
    const uint8_t *data;
    size_t size;
    size_t offset;
};

void ReadFromMemory(png_structp png, png_bytep out, png_size_t count) {
    auto *reader = static_cast<MemoryReader *>(png_get_io_ptr(png));
    if (count > reader->size - reader->offset) {
        errors::Record(kPlimErrorTruncated);
        png_error(png, "truncated");
    }
    std::memcpy(out, reader->data + reader->offset, count);
    reader->offset += count;
}

void SilentWarning(png_structp, png_const_charp) {}
void ErrorToJump(png_structp png, png_const_charp) { png_longjmp(png, 1); }

// Everything between setjmp and the end lives in plain locals or in *out, so a longjmp skips
// no destructor.
bool DecodeInto(png_structp png, png_infop info, Raster *out) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_read_info(png, info);
    png_uint_32 width = png_get_image_width(png, info);
    png_uint_32 height = png_get_image_height(png, info);
    int colorType = png_get_color_type(png, info);
    int bitDepth = png_get_bit_depth(png, info);
    bool hasTRNS = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
    if (!DimensionsAcceptable(width, height)) return errors::Fail(kPlimErrorTooLarge, false);
    // The header has been read up to the first image data chunk's length and type: a file
    // that ends there holds no pixels, whatever its header promises.
    const auto *reader = static_cast<const MemoryReader *>(png_get_io_ptr(png));
    if (reader->offset >= reader->size) return errors::Fail(kPlimErrorTruncated, false);

    png_charp name = nullptr;
    int compression = 0;
    png_bytep profile = nullptr;
    png_uint_32 profileLength = 0;
    if (png_get_iCCP(png, info, &name, &compression, &profile, &profileLength) &&
        profile && profileLength > 0)
        out->icc.assign(profile, profile + profileLength);

    bool grey = (colorType & PNG_COLOR_MASK_COLOR) == 0 && colorType != PNG_COLOR_TYPE_PALETTE;
    bool alpha = (colorType & PNG_COLOR_MASK_ALPHA) != 0 || hasTRNS;
    out->sourceBits = (grey && !alpha && bitDepth == 1) ? 1 : 8;
    if (DecodePlainImageData(png, info, reader->data, reader->size, reader->offset, out)) return true;

    png_set_expand(png);
    png_set_scale_16(png);
    if (grey && !alpha) {
        // stays one byte per pixel
    } else {
        if (grey) png_set_gray_to_rgb(png);
        if (alpha)
            png_set_swap_alpha(png);
        else
            png_set_filler(png, 0xFF, PNG_FILLER_BEFORE);
    }
    int passes = png_set_interlace_handling(png);
    png_read_update_info(png, info);
    size_t expected = grey && !alpha ? 1 : 4;
    if (png_get_channels(png, info) != expected && !(expected == 4 && !alpha)) return false;
    if (png_get_rowbytes(png, info) != static_cast<size_t>(width) * expected) return false;
    if (!out->Allocate(width, height, grey && !alpha)) return false;
    out->alpha = alpha;
    size_t rowBytes = out->BytesPerRow();
    if (passes > 1) std::memset(out->pixels, 0, rowBytes * height);
    for (int pass = 0; pass < passes; pass++)
        for (png_uint_32 y = 0; y < height; y++)
            png_read_row(png, out->pixels + rowBytes * y, nullptr);
    png_read_end(png, nullptr);
    return true;
}

}  // namespace

bool IsPNG(const uint8_t *data, size_t size) {
    return size >= 8 && png_sig_cmp(data, 0, 8) == 0;
}

bool DecodePNG(const uint8_t *data, size_t size, Raster *out) {
    if (!data || !IsPNG(data, size)) return errors::Fail(size ? kPlimErrorUnsupportedFormat : kPlimErrorEmpty, false);
    const errors::Mark mark;
    png_structp png =
        png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, ErrorToJump, SilentWarning);
    if (!png) return errors::Fail(kPlimErrorOutOfMemory, false);
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        return false;
    }
    MemoryReader reader{data, size, 0};
    png_set_read_fn(png, &reader, ReadFromMemory);
    png_set_user_limits(png, kMaxDimension, kMaxDimension);
    // libpng allocates a text or similar chunk's declared length before reading it, however
    // short the file; none of them change the pixels, so they are skipped unread.
    static const png_byte kSkipped[] = "tEXt\0zTXt\0iTXt\0eXIf\0sPLT";
    png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_NEVER, kSkipped, 5);
    bool ok = plim::NoThrow(false, [&] { return DecodeInto(png, info, out); });
    png_destroy_read_struct(&png, &info, nullptr);
    if (!ok) {
        std::free(out->Take());
        out->icc.clear();
        mark.Fallback(kPlimErrorCorrupt);
    }
    return ok;
}

}  // namespace plim::decoders
