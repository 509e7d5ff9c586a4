// WebP importer. A still picture is decoded when it is drawn, straight into the drawing memory;
// an animation gives its first frame as its canvas shows it.
#include "platform/media/ComponentInternal.h"

#include <webp/decode.h>
#include <webp/demux.h>

#include <cstring>

namespace plim::media {

namespace {

// Holds a demuxer for the length of a call.
struct Demuxer {
    WebPDemuxer *demux;
    explicit Demuxer(const WebPData &data) : demux(WebPDemux(&data)) {}
    ~Demuxer() { WebPDemuxDelete(demux); }
    Demuxer(const Demuxer &) = delete;
    Demuxer &operator=(const Demuxer &) = delete;
};

OSErr DecodeStill(const uint8_t *data, size_t size, const ARGBTarget &target) {
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) return codecBadDataErr;
    config.output.colorspace = MODE_ARGB;
    config.output.is_external_memory = 1;
    config.output.u.RGBA.rgba = target.pixels;
    config.output.u.RGBA.stride = static_cast<int>(target.rowBytes);
    config.output.u.RGBA.size = target.rowBytes * target.height;
    VP8StatusCode status = WebPDecode(data, size, &config);
    WebPFreeDecBuffer(&config.output);
    if (status == VP8_STATUS_OUT_OF_MEMORY) return memFullErr;
    // The bitstream's own size must be the one the header promised.
    if (status != VP8_STATUS_OK || static_cast<uint32_t>(config.output.width) != target.width ||
        static_cast<uint32_t>(config.output.height) != target.height)
        return codecBadDataErr;
    return noErr;
}

// The first frame of an animation, drawn on the transparent canvas as a player shows it.
OSErr DecodeFirstFrame(const WebPData &file, ImportedImage *out) {
    WebPAnimDecoderOptions options;
    if (!WebPAnimDecoderOptionsInit(&options)) return codecBadDataErr;
    options.color_mode = MODE_RGBA;
    options.use_threads = 0;
    WebPAnimDecoder *decoder = WebPAnimDecoderNew(&file, &options);
    if (!decoder) return codecBadDataErr;
    OSErr result = codecBadDataErr;
    WebPAnimInfo info;
    uint8_t *canvas = nullptr;
    int timestamp = 0;
    if (WebPAnimDecoderGetInfo(decoder, &info) && WebPAnimDecoderGetNext(decoder, &canvas, &timestamp)) {
        decoders::Raster &r = out->raster;
        if (!RasterFromInterleaved(canvas, static_cast<size_t>(info.canvas_width) * 4, info.canvas_width,
                                   info.canvas_height, 4, &r)) {
            result = memFullErr;
        } else {
            // The canvas always has alpha; the picture has it when some pixel is not opaque.
            const size_t count = static_cast<size_t>(r.width) * r.height;
            r.alpha = false;
            for (size_t i = 0; i < count && !r.alpha; i++) r.alpha = r.pixels[i * 4] != 0xFF;
            out->depth = r.alpha ? 32 : 24;
            result = noErr;
        }
    }
    WebPAnimDecoderDelete(decoder);
    return result;
}

}  // namespace

bool IsWebP(const uint8_t *data, size_t size) {
    return size >= 12 && std::memcmp(data, "RIFF", 4) == 0 && std::memcmp(data + 8, "WEBP", 4) == 0;
}

OSErr ImportWebP(const uint8_t *data, size_t size, ImportedImage *out) {
    if (!IsWebP(data, size)) return codecBadDataErr;
    const WebPData file{data, size};
    // The demuxer walks the whole file's chunks without decoding: a file cut short or with a
    // broken chunk is refused here, before any pixel memory is asked for.
    Demuxer demuxer(file);
    if (!demuxer.demux) return codecBadDataErr;
    WebPBitstreamFeatures features;
    if (WebPGetFeatures(data, size, &features) != VP8_STATUS_OK) return codecBadDataErr;
    const uint32_t width = WebPDemuxGetI(demuxer.demux, WEBP_FF_CANVAS_WIDTH);
    const uint32_t height = WebPDemuxGetI(demuxer.demux, WEBP_FF_CANVAS_HEIGHT);
    if (!decoders::DimensionsAcceptable(width, height)) return memFullErr;

    WebPChunkIterator chunk;
    if (WebPDemuxGetChunk(demuxer.demux, "ICCP", 1, &chunk)) {
        out->raster.icc.assign(chunk.chunk.bytes, chunk.chunk.bytes + chunk.chunk.size);
        WebPDemuxReleaseChunkIterator(&chunk);
    }
    if (features.has_animation) return DecodeFirstFrame(file, out);

    if (static_cast<uint32_t>(features.width) != width || static_cast<uint32_t>(features.height) != height)
        return codecBadDataErr;
    out->raster.width = width;
    out->raster.height = height;
    out->raster.alpha = features.has_alpha != 0;
    out->depth = features.has_alpha ? 32 : 24;
    out->decodeInto = DecodeStill;
    return noErr;
}

}  // namespace plim::media
