// JPEG, PICT and TIFF encoders with each library's default settings (PNG: PNGEncoder.cpp).
#include "platform/media/ComponentInternal.h"
#include "platform/graphics/destination/ImagePixels.h"
#include "platform/graphics/destination/TIFFFile.h"
#include "platform/media/pict/PictCodec.h"
#include "platform/runtime/NoThrow.h"

#include <cstdio>
#include <jpeglib.h>

#include <csetjmp>
#include <cstdlib>
#include <cstring>

namespace plim::media {

namespace {

using graphics::EncodablePixels;
using graphics::EncodableRows;

struct JPEGError {
    jpeg_error_mgr base;
    jmp_buf jump;
};
void JPEGErrorExit(j_common_ptr cinfo) { longjmp(reinterpret_cast<JPEGError *>(cinfo->err)->jump, 1); }
void JPEGSilent(j_common_ptr) {}

// quality: libjpeg's 1 to 100, or 0 for its default. Rows go to libjpeg-turbo as the image holds
// them wherever it can take them (grey bytes, X,R,G,B or R,G,B,X: it skips the fourth byte, and
// converts exactly as from R,G,B); rows that need unpremultiplying are read into `scratch`.
// JPEG has no alpha: colour is composited on nothing, i.e. taken as it is.
bool WriteJPEG(jpeg_compress_struct *cinfo, JPEGError *err, const EncodableRows &rows, int quality,
               unsigned char **buffer, unsigned long *size, uint8_t *scratch) {
    if (setjmp(err->jump)) return false;
    jpeg_create_compress(cinfo);
    jpeg_mem_dest(cinfo, buffer, size);
    cinfo->image_width = rows.width;
    cinfo->image_height = rows.height;
    bool alphaLast = false;
    const bool own = rows.OwnRow(0, &alphaLast) != nullptr;
    cinfo->input_components = rows.grey ? 1 : 4;
    cinfo->in_color_space = rows.grey ? JCS_GRAYSCALE : alphaLast ? JCS_EXT_RGBX : JCS_EXT_XRGB;
    jpeg_set_defaults(cinfo);
    if (quality > 0) jpeg_set_quality(cinfo, quality, TRUE);
    jpeg_start_compress(cinfo, TRUE);
    if (!rows.icc.empty())
        jpeg_write_icc_profile(cinfo, rows.icc.data(), static_cast<unsigned>(rows.icc.size()));
    while (cinfo->next_scanline < cinfo->image_height) {
        const size_t y = cinfo->next_scanline;
        JSAMPROW row[1] = {scratch};
        if (own)
            row[0] = const_cast<uint8_t *>(rows.OwnRow(y, &alphaLast));
        else
            rows.Read(y, graphics::SampleOrder::ARGB, scratch);
        jpeg_write_scanlines(cinfo, row, 1);
    }
    jpeg_finish_compress(cinfo);
    return true;
}

OSErr EncodeJPEG(CGImageRef image, int quality, std::vector<uint8_t> *file) {
    EncodableRows rows;
    if (!rows.Open(image)) return codecUnimpErr;
    if (rows.width > JPEG_MAX_DIMENSION || rows.height > JPEG_MAX_DIMENSION) return codecUnimpErr;
    std::vector<uint8_t> scratch(static_cast<size_t>(rows.width) * 4);
    jpeg_compress_struct cinfo;
    std::memset(&cinfo, 0, sizeof cinfo);
    JPEGError err;
    cinfo.err = jpeg_std_error(&err.base);
    err.base.error_exit = JPEGErrorExit;
    err.base.output_message = JPEGSilent;
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    bool ok = WriteJPEG(&cinfo, &err, rows, quality, &buffer, &size, scratch.data());
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
    // The 2-D graphics platform's TIFF writer, straight into the file's bytes.
    return graphics::WriteTIFF(image, file) ? OSErr{noErr} : OSErr{codecUnimpErr};
}

}  // namespace plim::media
