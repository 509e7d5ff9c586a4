// PNG and JPEG importers over the shared decoders, and the raster helpers every importer uses.
#include "platform/media/ComponentInternal.h"

#include <cstdlib>

namespace plim::media {

bool ExpandGreyToARGB(decoders::Raster *raster) {
    if (!raster->grey) return true;
    size_t count = static_cast<size_t>(raster->width) * raster->height;
    auto *argb = static_cast<uint8_t *>(std::malloc(count * 4));
    if (!argb) return false;
    const uint8_t *src = raster->pixels;
    for (size_t i = 0; i < count; i++) {
        argb[i * 4] = 0xFF;
        argb[i * 4 + 1] = argb[i * 4 + 2] = argb[i * 4 + 3] = src[i];
    }
    std::free(raster->pixels);
    raster->pixels = argb;
    raster->grey = false;
    return true;
}

bool RasterFromInterleaved(const uint8_t *rows, size_t stride, uint32_t width, uint32_t height,
                           int channels, decoders::Raster *raster) {
    if (channels < 1 || channels > 4 || !raster->Allocate(width, height, false)) return false;
    const bool colour = channels >= 3, alpha = channels % 2 == 0;
    for (uint32_t y = 0; y < height; y++) {
        const uint8_t *src = rows + stride * y;
        uint8_t *dst = raster->pixels + raster->BytesPerRow() * y;
        for (uint32_t x = 0; x < width; x++, src += channels, dst += 4) {
            dst[0] = alpha ? src[channels - 1] : 0xFF;
            dst[1] = src[0];
            dst[2] = colour ? src[1] : src[0];
            dst[3] = colour ? src[2] : src[0];
        }
    }
    raster->alpha = alpha;
    return true;
}

namespace {

OSErr Finish(ImportedImage *out, bool grey) {
    decoders::Raster &r = out->raster;
    if (r.width > 32767 || r.height > 32767) return ImportFailure(kPlimErrorTooLarge, codecUnimpErr);
    out->depth = r.alpha ? 32 : grey ? (r.sourceBits == 1 ? 1 : 8) : 24;
    return ExpandGreyToARGB(&r) ? OSErr{noErr} : OSErr{memFullErr};
}

}  // namespace

OSErr ImportPNG(const uint8_t *data, size_t size, ImportedImage *out) {
    if (!decoders::DecodePNG(data, size, &out->raster)) return codecBadDataErr;
    return Finish(out, out->raster.grey);
}

OSErr ImportJPEG(const uint8_t *data, size_t size, ImportedImage *out) {
    if (!decoders::DecodeJPEG(data, size, &out->raster)) return codecBadDataErr;
    return Finish(out, out->raster.grey);
}

}  // namespace plim::media
