// AVIF importer: the primary picture, or an image sequence's first frame, through libavif.
#include "platform/media/ComponentInternal.h"

#include <avif/avif.h>

#include <algorithm>
#include <memory>

namespace plim::media {

namespace {

struct DecoderDelete {
    void operator()(avifDecoder *decoder) const { avifDecoderDestroy(decoder); }
};

OSErr FromResult(avifResult result) {
    return result == AVIF_RESULT_OUT_OF_MEMORY ? OSErr{memFullErr} : OSErr{codecBadDataErr};
}

constexpr OSType kBrands[] = {FourCC("avif"), FourCC("avis")};

}  // namespace

bool IsAVIF(const uint8_t *data, size_t size) { return ClaimsBrand(data, size, kBrands); }

OSErr ImportAVIF(const uint8_t *data, size_t size, ImportedImage *out) {
    std::unique_ptr<avifDecoder, DecoderDelete> decoder(avifDecoderCreate());
    if (!decoder) return memFullErr;
    avifDecoder *d = decoder.get();
    d->maxThreads = 1;
    d->ignoreExif = AVIF_TRUE;
    d->ignoreXMP = AVIF_TRUE;
    // The AV1 decoder is held to the same limit, for frames whose own header claims more.
    d->imageSizeLimit = static_cast<uint32_t>(std::min<uint64_t>(decoders::PixelLimit(), UINT32_MAX));
    d->imageDimensionLimit = 32767;
    avifResult result = avifDecoderSetIOMemory(d, data, size);
    if (result == AVIF_RESULT_OK) result = avifDecoderParse(d);
    if (result != AVIF_RESULT_OK) return FromResult(result);

    const avifImage *image = d->image;
    if (image->width > 32767 || image->height > 32767) return codecUnimpErr;
    if (!decoders::DimensionsAcceptable(image->width, image->height)) return memFullErr;
    result = avifDecoderNextImage(d);
    if (result != AVIF_RESULT_OK) return FromResult(result);
    image = d->image;

    decoders::Raster &r = out->raster;
    if (!r.Allocate(image->width, image->height, false)) return memFullErr;
    // R,G,B,A is the order libavif converts fastest and as its own tools do (A,R,G,B takes
    // another route, which rounds differently); the samples are rotated in place afterwards.
    avifRGBImage rgb;
    avifRGBImageSetDefaults(&rgb, image);
    rgb.format = AVIF_RGB_FORMAT_RGBA;
    rgb.depth = 8;
    rgb.pixels = r.pixels;
    rgb.rowBytes = static_cast<uint32_t>(r.BytesPerRow());
    result = avifImageYUVToRGB(image, &rgb);
    if (result != AVIF_RESULT_OK) return FromResult(result);
    for (size_t i = 0, count = static_cast<size_t>(r.width) * r.height; i < count; i++) {
        uint8_t *p = r.pixels + i * 4;
        const uint8_t alpha = p[3];
        p[3] = p[2];
        p[2] = p[1];
        p[1] = p[0];
        p[0] = alpha;
    }

    r.alpha = image->alphaPlane != nullptr;
    const bool grey = image->yuvFormat == AVIF_PIXEL_FORMAT_YUV400;
    out->depth = r.alpha ? 32 : grey ? 8 : 24;
    if (image->icc.size > 0) r.icc.assign(image->icc.data, image->icc.data + image->icc.size);
    return noErr;
}

}  // namespace plim::media
