// Loading a 4096 x 4096 WebP through the library against bare libwebp decoding the same bytes
// into fresh memory: an opaque lossy photo-like picture, and a lossless one with graded alpha
// (which the library also premultiplies; libwebp's own premultiplied output is shown beside).
#include "bench_ratio.h"

#include <PlimBitmapLib/PlimBitmapLib.h>

#include <webp/decode.h>
#include <webp/encode.h>

#include <cstdlib>
#include <vector>

namespace {

constexpr int kSize = 4096;

// Smooth shading with fine texture, the kind of content WebP is made for. The fastest encoder
// settings keep the set-up short; decoding costs much the same either way.
std::vector<uint8_t> Encode(bool alpha) {
    std::vector<uint8_t> rgba(static_cast<size_t>(kSize) * kSize * 4);
    for (int y = 0; y < kSize; y++)
        for (int x = 0; x < kSize; x++) {
            uint8_t *p = &rgba[(static_cast<size_t>(y) * kSize + x) * 4];
            const int texture = ((x * 7) ^ (y * 13)) & 15;
            p[0] = static_cast<uint8_t>((x >> 4) + texture);
            p[1] = static_cast<uint8_t>((y >> 4) + texture);
            p[2] = static_cast<uint8_t>(((x + y) >> 5) + texture);
            p[3] = alpha ? static_cast<uint8_t>((x + y) >> 5) : 255;
        }
    WebPConfig config;
    WebPConfigInit(&config);
    config.lossless = alpha;
    config.method = 0;
    config.quality = alpha ? 0 : 80;
    WebPPicture picture;
    WebPPictureInit(&picture);
    picture.width = kSize;
    picture.height = kSize;
    picture.use_argb = alpha;
    WebPMemoryWriter writer;
    WebPMemoryWriterInit(&writer);
    picture.writer = WebPMemoryWrite;
    picture.custom_ptr = &writer;
    std::vector<uint8_t> file;
    if (WebPPictureImportRGBA(&picture, rgba.data(), kSize * 4) && WebPEncode(&config, &picture))
        file.assign(writer.mem, writer.mem + writer.size);
    WebPPictureFree(&picture);
    WebPMemoryWriterClear(&writer);
    return file;
}

CFDataRef File(bool alpha) {
    static CFDataRef files[2] = {};
    CFDataRef &file = files[alpha];
    if (!file) {
        std::vector<uint8_t> bytes = Encode(alpha);
        file = CFDataCreate(nullptr, bytes.data(), static_cast<CFIndex>(bytes.size()));
    }
    return file;
}

// With `buffer`, the load goes on to make the pixel buffer; without, it stops at the decoded
// image, which is what the peer makes.
void Library(benchmark::State &state, bool alpha, bool buffer) {
    CFDataRef file = File(alpha);
    for (auto _ : state) {
        PlimCFImage image = PlimCFImageCreateWithData(nullptr, file);
        if (!image) {
            state.SkipWithError("load failed");
            break;
        }
        if (buffer)
            benchmark::DoNotOptimize(PlimCFImageGetImageBuffer(image));
        else
            benchmark::DoNotOptimize(PlimCFImageGetCGImage(image));
        CFRelease(image);
    }
}

void Bare(benchmark::State &state, bool alpha, WEBP_CSP_MODE mode) {
    CFDataRef file = File(alpha);
    const size_t size = static_cast<size_t>(kSize) * kSize * 4;
    for (auto _ : state) {
        // Fresh memory each time, as a caller keeping the pixels needs (the library must too).
        auto *pixels = static_cast<uint8_t *>(std::malloc(size));
        WebPDecoderConfig config;
        WebPInitDecoderConfig(&config);
        config.output.colorspace = mode;
        config.output.is_external_memory = 1;
        config.output.u.RGBA = {pixels, kSize * 4, size};
        if (WebPDecode(CFDataGetBytePtr(file), static_cast<size_t>(CFDataGetLength(file)), &config) !=
            VP8_STATUS_OK)
            state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(pixels);
        std::free(pixels);
    }
}

void BM_Library_WebP_Lossy(benchmark::State &state) { Library(state, false, false); }
void BM_Bare_libwebp_Lossy(benchmark::State &state) { Bare(state, false, MODE_ARGB); }
void BM_Library_WebP_Alpha(benchmark::State &state) { Library(state, true, false); }
void BM_Bare_libwebp_Alpha(benchmark::State &state) { Bare(state, true, MODE_ARGB); }
void BM_Bare_libwebp_Alpha_Premultiplied(benchmark::State &state) { Bare(state, true, MODE_Argb); }
void BM_LibraryBuffer_WebP_Lossy(benchmark::State &state) { Library(state, false, true); }

BENCHMARK(BM_Library_WebP_Lossy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Bare_libwebp_Lossy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Library_WebP_Alpha)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Bare_libwebp_Alpha)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Bare_libwebp_Alpha_Premultiplied)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LibraryBuffer_WebP_Lossy)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
    return plim::bench::RunWithRatios(argc, argv,
                                      {{"BM_Library_WebP_Lossy", "BM_Bare_libwebp_Lossy"},
                                       {"BM_Library_WebP_Alpha", "BM_Bare_libwebp_Alpha"},
                                       {"BM_Library_WebP_Alpha", "BM_Bare_libwebp_Alpha_Premultiplied"},
                                       {"BM_LibraryBuffer_WebP_Lossy", "BM_Bare_libwebp_Lossy"}});
}
