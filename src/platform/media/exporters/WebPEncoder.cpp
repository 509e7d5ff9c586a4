// WebP encoder: lossless by default, lossy at a chosen quality; the image's colour profile is
// embedded unless it is sRGB, which WebP readers assume.
#include "platform/color/ColorProfiles.h"
#include "platform/graphics/destination/ImagePixels.h"
#include "platform/media/ComponentInternal.h"

#include <webp/encode.h>
#include <webp/mux.h>

namespace plim::media {

namespace {

using graphics::EncodablePixels;

// Owns the picture and the encoded bytes for the length of one encode.
struct Encoding {
    WebPPicture picture;
    WebPMemoryWriter writer;
    Encoding() {
        WebPPictureInit(&picture);
        WebPMemoryWriterInit(&writer);
    }
    ~Encoding() {
        WebPPictureFree(&picture);
        WebPMemoryWriterClear(&writer);
    }
    Encoding(const Encoding &) = delete;
    Encoding &operator=(const Encoding &) = delete;
};

// Wraps the bitstream in an extended file that carries the profile.
OSErr AddProfile(const WebPMemoryWriter &bitstream, const std::vector<uint8_t> &icc, std::vector<uint8_t> *file) {
    WebPMux *mux = WebPMuxNew();
    if (!mux) return memFullErr;
    const WebPData image{bitstream.mem, bitstream.size}, profile{icc.data(), icc.size()};
    WebPData assembled;
    WebPDataInit(&assembled);
    const bool ok = WebPMuxSetImage(mux, &image, 0) == WEBP_MUX_OK &&
                    WebPMuxSetChunk(mux, "ICCP", &profile, 0) == WEBP_MUX_OK &&
                    WebPMuxAssemble(mux, &assembled) == WEBP_MUX_OK;
    WebPMuxDelete(mux);
    if (ok) file->assign(assembled.bytes, assembled.bytes + assembled.size);
    WebPDataClear(&assembled);
    return ok ? OSErr{noErr} : OSErr{memFullErr};
}

// quality: 0 to 100 for lossy coding; negative for lossless.
OSErr EncodeWebP(CGImageRef image, int quality, std::vector<uint8_t> *file) {
    EncodablePixels px;
    if (!graphics::ReadEncodablePixels(image, &px)) return codecUnimpErr;
    if (px.width > WEBP_MAX_DIMENSION || px.height > WEBP_MAX_DIMENSION) return codecUnimpErr;
    WebPConfig config;
    if (!WebPConfigInit(&config)) return codecUnimpErr;
    config.lossless = quality < 0;
    if (config.lossless)
        config.exact = 1;  // keep the colour under transparent pixels too
    else
        config.quality = static_cast<float>(quality);

    // The encoder takes 0xAARRGGBB words; for lossy coding it converts them to YUV itself.
    Encoding e;
    e.picture.width = static_cast<int>(px.width);
    e.picture.height = static_cast<int>(px.height);
    e.picture.use_argb = 1;
    if (!WebPPictureAlloc(&e.picture)) return memFullErr;
    for (uint32_t y = 0; y < px.height; y++) {
        const uint8_t *src = px.pixels.data() + px.BytesPerRow() * y;
        uint32_t *dst = e.picture.argb + static_cast<size_t>(e.picture.argb_stride) * y;
        for (uint32_t x = 0; x < px.width; x++) {
            const uint32_t a = px.grey ? 0xFFu : src[x * 4], r = px.grey ? src[x] : src[x * 4 + 1],
                           g = px.grey ? src[x] : src[x * 4 + 2], b = px.grey ? src[x] : src[x * 4 + 3];
            dst[x] = a << 24 | r << 16 | g << 8 | b;
        }
    }
    e.picture.writer = WebPMemoryWrite;
    e.picture.custom_ptr = &e.writer;
    if (!WebPEncode(&config, &e.picture))
        return e.picture.error_code == VP8_ENC_ERROR_OUT_OF_MEMORY ? OSErr{memFullErr} : OSErr{codecUnimpErr};
    if (!px.icc.empty() && !color::ProfileDescribesSRGB(px.icc)) return AddProfile(e.writer, px.icc, file);
    file->assign(e.writer.mem, e.writer.mem + e.writer.size);
    return noErr;
}

}  // namespace

OSErr ExportWebP(CGImageRef image, std::vector<uint8_t> *file) { return EncodeWebP(image, -1, file); }

OSErr ExportWebPAtQuality(CGImageRef image, CodecQ quality, std::vector<uint8_t> *file) {
    // CodecQ runs from 0 to 0x400; WebP's scale from 0 to 100.
    return EncodeWebP(image, static_cast<int>((static_cast<UInt32>(quality) * 100u + 512u) / 1024u), file);
}

}  // namespace plim::media
