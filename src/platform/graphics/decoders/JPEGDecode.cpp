// JPEG through libjpeg-turbo: grey stays grey, YCbCr/RGB become X,R,G,B, CMYK and YCCK are
// converted to RGB (Adobe files store the inks inverted).
#include "platform/graphics/decoders/Raster.h"
#include "platform/runtime/NoThrow.h"

#include <cstdio>
#include <jpeglib.h>
#include <jerror.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>

namespace plim::decoders {

namespace {

struct ErrorManager {
    jpeg_error_mgr base;
    jmp_buf jump;
};

void ErrorExit(j_common_ptr cinfo) {
    if (cinfo->err->msg_code == JERR_OUT_OF_MEMORY) errors::Record(kPlimErrorOutOfMemory);
    longjmp(reinterpret_cast<ErrorManager *>(cinfo->err)->jump, 1);
}
void SilentMessage(j_common_ptr) {}

void CMYKToXRGB(const uint8_t *src, uint8_t *dst, uint32_t width, bool inverted) {
    for (uint32_t x = 0; x < width; x++, src += 4, dst += 4) {
        unsigned k = inverted ? src[3] : 255u - src[3];
        dst[0] = 0xFF;
        for (int c = 0; c < 3; c++) {
            unsigned ink = inverted ? src[c] : 255u - src[c];
            dst[1 + c] = static_cast<uint8_t>((ink * k + 127u) / 255u);
        }
    }
}

// Whether any entropy-coded data follows the scan header just read (not only an end marker).
bool HasScanData(const jpeg_source_mgr *src) {
    const size_t left = src->bytes_in_buffer;
    const JOCTET *p = src->next_input_byte;
    return left > 0 && !(left >= 2 && p[0] == 0xFF && p[1] == JPEG_EOI);
}

// A row buffer of the decoder's own pool keeps every allocation inside libjpeg, so a longjmp
// leaks nothing.
bool DecodeInto(jpeg_decompress_struct *cinfo, ErrorManager *err, const uint8_t *data,
                size_t size, Raster *out) {
    if (setjmp(err->jump)) return false;
    jpeg_create_decompress(cinfo);
    jpeg_mem_src(cinfo, data, static_cast<unsigned long>(size));
    jpeg_save_markers(cinfo, JPEG_APP0 + 2, 0xFFFF);
    if (jpeg_read_header(cinfo, TRUE) != JPEG_HEADER_OK) return false;
    // Refused before the decoder sizes its buffers (a progressive file's hold the whole
    // picture): pictures over the limit, and files that end with the scan header, where the
    // decoder would make up every pixel.
    if (!DimensionsAcceptable(cinfo->image_width, cinfo->image_height))
        return errors::Fail(kPlimErrorTooLarge, false);
    if (!HasScanData(cinfo->src)) return errors::Fail(kPlimErrorTruncated, false);
    JOCTET *profile = nullptr;
    unsigned int profileLength = 0;
    if (jpeg_read_icc_profile(cinfo, &profile, &profileLength) && profile) {
        bool kept = plim::NoThrow(false, [&] {
            out->icc.assign(profile, profile + profileLength);
            return true;
        });
        std::free(profile);
        if (!kept) return false;
    }
    bool grey = cinfo->num_components == 1;
    bool cmyk = cinfo->jpeg_color_space == JCS_CMYK || cinfo->jpeg_color_space == JCS_YCCK;
    // libjpeg-turbo writes X,R,G,B straight into our rows, the X byte as 0xFF.
    cinfo->out_color_space = grey ? JCS_GRAYSCALE : (cmyk ? JCS_CMYK : JCS_EXT_XRGB);
    jpeg_start_decompress(cinfo);
    if (!DimensionsAcceptable(cinfo->output_width, cinfo->output_height))
        return errors::Fail(kPlimErrorTooLarge, false);
    if (!out->Allocate(cinfo->output_width, cinfo->output_height, grey)) return false;
    size_t rowBytes = out->BytesPerRow();
    JSAMPARRAY row = nullptr;
    if (cmyk)
        row = (*cinfo->mem->alloc_sarray)(reinterpret_cast<j_common_ptr>(cinfo), JPOOL_IMAGE,
                                          cinfo->output_width * cinfo->output_components, 1);
    while (cinfo->output_scanline < cinfo->output_height) {
        uint8_t *dst = out->pixels + rowBytes * cinfo->output_scanline;
        if (!cmyk) {
            // Several rows a call: the upsampler then writes pairs of rows in place instead of
            // through a spare row.
            JSAMPROW rows[16];
            const JDIMENSION count = std::min<JDIMENSION>(16, cinfo->output_height - cinfo->output_scanline);
            for (JDIMENSION i = 0; i < count; i++) rows[i] = dst + rowBytes * i;
            jpeg_read_scanlines(cinfo, rows, count);
        } else {
            jpeg_read_scanlines(cinfo, row, 1);
            CMYKToXRGB(row[0], dst, out->width, cinfo->saw_Adobe_marker);
        }
    }
    jpeg_finish_decompress(cinfo);
    return true;
}

}  // namespace

bool IsJPEG(const uint8_t *data, size_t size) {
    return size >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF;
}

bool DecodeJPEG(const uint8_t *data, size_t size, Raster *out) {
    if (!data || !IsJPEG(data, size)) return errors::Fail(size ? kPlimErrorUnsupportedFormat : kPlimErrorEmpty, false);
    const errors::Mark mark;
    jpeg_decompress_struct cinfo;
    ErrorManager err;
    std::memset(&cinfo, 0, sizeof cinfo);
    cinfo.err = jpeg_std_error(&err.base);
    err.base.error_exit = ErrorExit;
    err.base.output_message = SilentMessage;
    bool ok = DecodeInto(&cinfo, &err, data, size, out);
    jpeg_destroy_decompress(&cinfo);
    if (!ok) {
        std::free(out->Take());
        out->icc.clear();
        mark.Fallback(kPlimErrorCorrupt);
    }
    return ok;
}

}  // namespace plim::decoders
