// PNG, JPEG and PICT encoders with each library's default settings.
#include "platform/media/ComponentInternal.h"
#include "platform/color/ColorProfiles.h"
#include "platform/graphics/destination/ImagePixels.h"
#include "platform/media/pict/PictCodec.h"
#include "platform/runtime/CFRef.h"
#include "platform/runtime/NoThrow.h"

#include <PlimBitmapLib/platform/CGImageDestination.h>

#include <cstdio>
#include <png.h>
#include <jpeglib.h>

#include <csetjmp>
#include <cstdlib>
#include <cstring>

namespace plim::media {

namespace {

using graphics::EncodablePixels;

struct PNGWriter {
    std::vector<uint8_t> *file;
    bool failed;
};

void WriteToVector(png_structp png, png_bytep data, png_size_t length) {
    auto *w = static_cast<PNGWriter *>(png_get_io_ptr(png));
    try {
        w->file->insert(w->file->end(), data, data + length);
    } catch (const std::bad_alloc &) {
        w->failed = true;
        png_error(png, "out of memory");
    }
}
void FlushNothing(png_structp) {}
void PNGErrorToJump(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void PNGSilent(png_structp, png_const_charp) {}

// The rendering intent an ICC profile's header names, as PNG's sRGB chunk counts them.
int RenderingIntent(const std::vector<uint8_t> &icc) {
    if (icc.size() < 68) return PNG_sRGB_INTENT_PERCEPTUAL;
    uint32_t intent = (static_cast<uint32_t>(icc[64]) << 24) | (static_cast<uint32_t>(icc[65]) << 16) |
                      (static_cast<uint32_t>(icc[66]) << 8) | icc[67];
    return intent <= 3 ? static_cast<int>(intent) : PNG_sRGB_INTENT_PERCEPTUAL;
}

// Colour rows are A,R,G,B; libpng takes them as-is with its alpha-first / filler transforms.
bool WritePNG(png_structp png, png_infop info, const EncodablePixels &px, uint8_t *scratch) {
    if (setjmp(png_jmpbuf(png))) return false;
    int colorType = px.grey ? PNG_COLOR_TYPE_GRAY : px.alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
    png_set_IHDR(png, info, px.width, px.height, 8, colorType, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!px.icc.empty()) {
        if (color::ProfileDescribesSRGB(px.icc)) {
            // PNG names sRGB with a chunk of its own, which every reader understands; libpng
            // also refuses some widespread sRGB profiles as known to be faulty.
            png_set_sRGB_gAMA_and_cHRM(png, info, RenderingIntent(px.icc));
        } else {
            // A profile libpng finds faulty is left out rather than failing the export.
            png_set_benign_errors(png, 1);
            png_set_iCCP(png, info, "ICC", PNG_COMPRESSION_TYPE_BASE, px.icc.data(),
                         static_cast<png_uint_32>(px.icc.size()));
            png_set_benign_errors(png, 0);
        }
    }
    png_write_info(png, info);
    size_t rowBytes = px.BytesPerRow();
    for (uint32_t y = 0; y < px.height; y++) {
        const uint8_t *src = px.pixels.data() + rowBytes * y;
        if (px.grey) {
            png_write_row(png, src);
            continue;
        }
        uint8_t *dst = scratch;
        for (uint32_t x = 0; x < px.width; x++, src += 4) {
            *dst++ = src[1];
            *dst++ = src[2];
            *dst++ = src[3];
            if (px.alpha) *dst++ = src[0];
        }
        png_write_row(png, scratch);
    }
    png_write_end(png, nullptr);
    return true;
}

struct JPEGError {
    jpeg_error_mgr base;
    jmp_buf jump;
};
void JPEGErrorExit(j_common_ptr cinfo) { longjmp(reinterpret_cast<JPEGError *>(cinfo->err)->jump, 1); }
void JPEGSilent(j_common_ptr) {}

// quality: libjpeg's 1 to 100, or 0 for its default.
bool WriteJPEG(jpeg_compress_struct *cinfo, JPEGError *err, const EncodablePixels &px, int quality,
               unsigned char **buffer, unsigned long *size, uint8_t *scratch) {
    if (setjmp(err->jump)) return false;
    jpeg_create_compress(cinfo);
    jpeg_mem_dest(cinfo, buffer, size);
    cinfo->image_width = px.width;
    cinfo->image_height = px.height;
    cinfo->input_components = px.grey ? 1 : 3;
    cinfo->in_color_space = px.grey ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(cinfo);
    if (quality > 0) jpeg_set_quality(cinfo, quality, TRUE);
    jpeg_start_compress(cinfo, TRUE);
    if (!px.icc.empty())
        jpeg_write_icc_profile(cinfo, px.icc.data(), static_cast<unsigned>(px.icc.size()));
    size_t rowBytes = px.BytesPerRow();
    while (cinfo->next_scanline < cinfo->image_height) {
        const uint8_t *src = px.pixels.data() + rowBytes * cinfo->next_scanline;
        JSAMPROW row[1];
        if (px.grey) {
            row[0] = const_cast<uint8_t *>(src);
        } else {
            // JPEG has no alpha: colour is composited on nothing, i.e. taken as it is.
            for (uint32_t x = 0; x < px.width; x++) {
                scratch[x * 3] = src[x * 4 + 1];
                scratch[x * 3 + 1] = src[x * 4 + 2];
                scratch[x * 3 + 2] = src[x * 4 + 3];
            }
            row[0] = scratch;
        }
        jpeg_write_scanlines(cinfo, row, 1);
    }
    jpeg_finish_compress(cinfo);
    return true;
}

}  // namespace

OSErr ExportPNG(CGImageRef image, std::vector<uint8_t> *file) {
    EncodablePixels px;
    if (!graphics::ReadEncodablePixels(image, &px)) return codecUnimpErr;
    std::vector<uint8_t> scratch(static_cast<size_t>(px.width) * 4);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, PNGErrorToJump, PNGSilent);
    if (!png) return memFullErr;
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        return memFullErr;
    }
    PNGWriter writer{file, false};
    png_set_write_fn(png, &writer, WriteToVector, FlushNothing);
    bool ok = WritePNG(png, info, px, scratch.data());
    png_destroy_write_struct(&png, &info);
    if (!ok) file->clear();
    if (ok) return noErr;
    return static_cast<OSErr>(writer.failed ? static_cast<int>(memFullErr) : static_cast<int>(codecBadDataErr));
}

namespace {

OSErr EncodeJPEG(CGImageRef image, int quality, std::vector<uint8_t> *file) {
    EncodablePixels px;
    if (!graphics::ReadEncodablePixels(image, &px)) return codecUnimpErr;
    if (px.width > JPEG_MAX_DIMENSION || px.height > JPEG_MAX_DIMENSION) return codecUnimpErr;
    std::vector<uint8_t> scratch(static_cast<size_t>(px.width) * 3);
    jpeg_compress_struct cinfo;
    std::memset(&cinfo, 0, sizeof cinfo);
    JPEGError err;
    cinfo.err = jpeg_std_error(&err.base);
    err.base.error_exit = JPEGErrorExit;
    err.base.output_message = JPEGSilent;
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    bool ok = WriteJPEG(&cinfo, &err, px, quality, &buffer, &size, scratch.data());
    jpeg_destroy_compress(&cinfo);
    // libjpeg's buffer is freed here, whether or not the copy finds memory.
    bool copied = ok && buffer && NoThrow(false, [&] {
        file->assign(buffer, buffer + size);
        return true;
    });
    std::free(buffer);
    if (!ok) return codecBadDataErr;
    return copied ? OSErr{noErr} : OSErr{memFullErr};
}

}  // namespace

OSErr ExportJPEG(CGImageRef image, std::vector<uint8_t> *file) { return EncodeJPEG(image, 0, file); }

OSErr ExportJPEGAtQuality(CGImageRef image, CodecQ quality, std::vector<uint8_t> *file) {
    // CodecQ runs from 0 to 0x400 (lossless); libjpeg's scale from 1 to 100.
    int jpegQuality = static_cast<int>((static_cast<UInt32>(quality) * 100u + 512u) / 1024u);
    return EncodeJPEG(image, jpegQuality < 1 ? 1 : jpegQuality, file);
}

OSErr ExportPICT(CGImageRef image, std::vector<uint8_t> *file) {
    // PICT stores samples as given: the PCT route hands over unpremultiplied colour under a
    // premultiplied label on purpose.
    EncodablePixels px;
    if (!graphics::ReadEncodablePixels(image, &px, false)) return codecUnimpErr;
    if (px.grey) {
        decoders::Raster r;
        r.pixels = static_cast<uint8_t *>(std::malloc(px.pixels.size()));
        if (!r.pixels) return memFullErr;
        std::memcpy(r.pixels, px.pixels.data(), px.pixels.size());
        r.width = px.width;
        r.height = px.height;
        r.grey = true;
        if (!ExpandGreyToARGB(&r)) return memFullErr;
        px.pixels.assign(r.pixels, r.pixels + static_cast<size_t>(px.width) * px.height * 4);
        px.grey = false;
    }
    if (!pict::EncodePictFile(px.pixels.data(), static_cast<int>(px.width),
                              static_cast<int>(px.height), px.BytesPerRow(), px.alpha, file))
        return codecUnimpErr;
    return noErr;
}

OSErr ExportTIFF(CGImageRef image, std::vector<uint8_t> *file) {
    CFRef<CFMutableDataRef> data(CFDataCreateMutable(nullptr, 0));
    if (!data) return memFullErr;
    CFRef<CGImageDestinationRef> dest(CGImageDestinationCreateWithData(data.get(), kUTTypeTIFF, 1, nullptr));
    if (!dest) return codecUnimpErr;
    CGImageDestinationAddImage(dest.get(), image, nullptr);
    if (!CGImageDestinationFinalize(dest.get())) return codecUnimpErr;
    const UInt8 *bytes = CFDataGetBytePtr(data.get());
    file->assign(bytes, bytes + CFDataGetLength(data.get()));
    return noErr;
}

}  // namespace plim::media
