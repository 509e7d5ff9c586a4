// Loading and export of 4096 x 4096 pictures, against the codec libraries used bare on the same
// pixels in the same run:
// - load from a file into the pixel buffer (premultiplied A,R,G,B or X,R,G,B): PNG with alpha and
//   without against libpng's simplified API and libspng, into fresh memory; JPEG against
//   libjpeg-turbo into A,R,G,B;
// - export of a rendered image to a data object: PNG against libpng at its defaults (zlib level
//   6, adaptive filters), JPEG against libjpeg-turbo at its defaults (quality 75, 4:2:0) from
//   X,R,G,B rows, TIFF against libtiff with the same Deflate level, predictor and strips; the
//   sizes of the files are compared as well ("size ... =" lines).
// The picture is photograph-like: smooth colour fields with noise, and an alpha disc with a soft
// edge.
#include "bench_ratio.h"

#include <PlimBitmapLib/PlimBitmapLib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <jpeglib.h>
#include <png.h>
#include <spng.h>
#include <tiffio.h>
#include <unistd.h>

namespace {

constexpr int kSize = 4096;
constexpr size_t kPixels = size_t{kSize} * kSize;

using Bytes = std::vector<uint8_t>;

// Straight R,G,B,A.
const Bytes &PictureRGBA() {
    static const Bytes pixels = [] {
        Bytes p(kPixels * 4);
        std::mt19937 rng(7);
        for (int y = 0; y < kSize; y++) {
            for (int x = 0; x < kSize; x++) {
                uint8_t *q = &p[(static_cast<size_t>(y) * kSize + x) * 4];
                const double fx = x / double{kSize}, fy = y / double{kSize};
                const int noise = static_cast<int>(rng() % 9) - 4;
                const double c[3] = {128 + 100 * std::sin(fx * 7 + fy * 3), 128 + 90 * std::cos(fx * 5 - fy * 4),
                                     60 + 150 * fx * fy};
                for (int i = 0; i < 3; i++) q[i] = static_cast<uint8_t>(std::clamp(c[i] + noise, 0.0, 255.0));
                const double r = std::hypot(x - kSize / 2.0, y - kSize / 2.0);
                q[3] = static_cast<uint8_t>(std::clamp(255.0 - (r - 1800.0), 0.0, 255.0));
            }
        }
        return p;
    }();
    return pixels;
}

Bytes Channels(int channels) {
    const Bytes &rgba = PictureRGBA();
    Bytes out(kPixels * channels);
    for (size_t i = 0; i < kPixels; i++) std::memcpy(&out[i * channels], &rgba[i * 4], channels);
    return out;
}

// A,R,G,B rows: premultiplied from the picture, or opaque (X,R,G,B) with its colours.
Bytes PictureARGB(bool opaque) {
    const Bytes &rgba = PictureRGBA();
    Bytes out(kPixels * 4);
    for (size_t i = 0; i < kPixels; i++) {
        const unsigned a = opaque ? 255 : rgba[i * 4 + 3];
        out[i * 4] = static_cast<uint8_t>(a);
        for (int c = 0; c < 3; c++) out[i * 4 + 1 + c] = static_cast<uint8_t>((rgba[i * 4 + c] * a + 127) / 255);
    }
    return out;
}

// The straight R,G,B,A that the library's exporters take from the premultiplied picture:
// round(C * 255 / A), 0 where A is 0. The peers encode these, so that both write the same pixels.
const Bytes &ExportedRGBA() {
    static const Bytes pixels = [] {
        const Bytes argb = PictureARGB(false);
        Bytes p(kPixels * 4);
        for (size_t i = 0; i < kPixels; i++) {
            const unsigned a = argb[i * 4];
            for (int c = 0; c < 3; c++)
                p[i * 4 + c] = a ? static_cast<uint8_t>(std::min(255u, (argb[i * 4 + 1 + c] * 255u + a / 2) / a)) : 0;
            p[i * 4 + 3] = static_cast<uint8_t>(a);
        }
        return p;
    }();
    return pixels;
}

std::vector<std::string> gTempFiles;  // removed at the end

std::string TempFile(const char *name) {
    gTempFiles.push_back("/tmp/plim_io_bench_" + std::to_string(getpid()) + name);
    return gTempFiles.back();
}

void WriteFile(const std::string &path, const Bytes &bytes) {
    FILE *f = std::fopen(path.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
}

Bytes ReadFile(const std::string &path) {
    FILE *f = std::fopen(path.c_str(), "rb");
    Bytes bytes;
    uint8_t block[1 << 16];
    for (size_t n; (n = std::fread(block, 1, sizeof block, f)) > 0;) bytes.insert(bytes.end(), block, block + n);
    std::fclose(f);
    return bytes;
}

// ---- Peers ----

void AppendToBytes(png_structp png, png_bytep data, png_size_t length) {
    auto *out = static_cast<Bytes *>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}

// libpng at its defaults, rows of `channels` samples.
Bytes LibpngEncode(const Bytes &pixels, int channels) {
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(png, &out, AppendToBytes, nullptr);
    png_set_IHDR(png, info, kSize, kSize, 8, channels == 4 ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < kSize; y++)
        png_write_row(png, const_cast<uint8_t *>(&pixels[static_cast<size_t>(y) * kSize * channels]));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

Bytes LibjpegEncode(const uint8_t *xrgb) {
    jpeg_compress_struct cinfo;
    jpeg_error_mgr err;
    cinfo.err = jpeg_std_error(&err);
    jpeg_create_compress(&cinfo);
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &buffer, &size);
    cinfo.image_width = kSize;
    cinfo.image_height = kSize;
    cinfo.input_components = 4;
    cinfo.in_color_space = JCS_EXT_XRGB;
    jpeg_set_defaults(&cinfo);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<uint8_t *>(xrgb + static_cast<size_t>(cinfo.next_scanline) * kSize * 4);
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    Bytes out(buffer, buffer + size);
    std::free(buffer);
    return out;
}

struct MemoryTIFF {
    Bytes bytes;
    toff_t offset = 0;
};

tsize_t TIFFNoRead(thandle_t, tdata_t, tsize_t) { return -1; }
tsize_t TIFFWriteMemory(thandle_t h, tdata_t data, tsize_t n) {
    auto *f = static_cast<MemoryTIFF *>(h);
    if (f->offset + n > f->bytes.size()) f->bytes.resize(f->offset + n);
    std::memcpy(f->bytes.data() + f->offset, data, static_cast<size_t>(n));
    f->offset += n;
    return n;
}
toff_t TIFFSeekMemory(thandle_t h, toff_t off, int whence) {
    auto *f = static_cast<MemoryTIFF *>(h);
    f->offset = (whence == SEEK_SET ? 0 : whence == SEEK_CUR ? f->offset : f->bytes.size()) + off;
    return f->offset;
}
int TIFFCloseMemory(thandle_t) { return 0; }
toff_t TIFFSizeMemory(thandle_t h) { return static_cast<MemoryTIFF *>(h)->bytes.size(); }
int TIFFNoMap(thandle_t, tdata_t *, toff_t *) { return 0; }
void TIFFNoUnmap(thandle_t, tdata_t, toff_t) {}

// Straight R,G,B,A with unassociated alpha, Deflate at its default level, horizontal predictor,
// libtiff's default strips, as the library writes.
Bytes LibtiffEncode(const Bytes &rgba) {
    MemoryTIFF file;
    TIFF *tif = TIFFClientOpen("memory", "w", &file, TIFFNoRead, TIFFWriteMemory, TIFFSeekMemory, TIFFCloseMemory,
                               TIFFSizeMemory, TIFFNoMap, TIFFNoUnmap);
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, kSize);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, kSize);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 4);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    uint16_t extra[1] = {EXTRASAMPLE_UNASSALPHA};
    TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, extra);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, 0));
    // libtiff's predictor works in place: each row goes through a copy.
    Bytes row(kSize * 4);
    for (int y = 0; y < kSize; y++) {
        std::memcpy(row.data(), &rgba[static_cast<size_t>(y) * kSize * 4], row.size());
        TIFFWriteScanline(tif, row.data(), y, 0);
    }
    TIFFWriteDirectory(tif);
    TIFFClose(tif);
    return std::move(file.bytes);
}

// ---- Files to load ----

const std::string &PNGPath(bool alpha) {
    static const std::string rgba = [] {
        std::string p = TempFile("_rgba.png");
        WriteFile(p, LibpngEncode(PictureRGBA(), 4));
        return p;
    }();
    static const std::string rgb = [] {
        std::string p = TempFile("_rgb.png");
        WriteFile(p, LibpngEncode(Channels(3), 3));
        return p;
    }();
    return alpha ? rgba : rgb;
}

const std::string &JPEGPath() {
    static const std::string path = [] {
        std::string p = TempFile(".jpg");
        WriteFile(p, LibjpegEncode(PictureARGB(true).data()));
        return p;
    }();
    return path;
}

// ---- Loading ----

// With `buffer`, the load goes on to make the pixel buffer (the promotion); without, it stops
// at the decoded image, which shows where the rest of the time goes.
void LoadThroughLibrary(benchmark::State &state, const std::string &path, bool buffer = true) {
    CFStringRef s = CFStringCreateWithCString(nullptr, path.c_str(), kCFStringEncodingUTF8);
    for (auto _ : state) {
        PlimCFImage image = PlimCFImageCreateWithPath(nullptr, s);
        if (!image || !(buffer ? PlimCFImageGetImageBuffer(image) : PlimCFImageGetCGImage(image))) {
            state.SkipWithError("load failed");
            break;
        }
        CFRelease(image);
    }
    CFRelease(s);
}

// Fresh memory each time, as a caller keeping the pixels needs (the library must too).
void LoadWithLibpng(benchmark::State &state, const std::string &path) {
    for (auto _ : state) {
        auto *pixels = static_cast<uint8_t *>(std::malloc(kPixels * 4));
        png_image image;
        std::memset(&image, 0, sizeof image);
        image.version = PNG_IMAGE_VERSION;
        png_image_begin_read_from_file(&image, path.c_str());
        image.format = PNG_FORMAT_ARGB;
        if (!png_image_finish_read(&image, nullptr, pixels, 0, nullptr)) state.SkipWithError("libpng failed");
        benchmark::DoNotOptimize(pixels);
        std::free(pixels);
    }
}

void LoadWithLibspng(benchmark::State &state, const std::string &path) {
    for (auto _ : state) {
        Bytes file = ReadFile(path);
        spng_ctx *ctx = spng_ctx_new(0);
        spng_set_png_buffer(ctx, file.data(), file.size());
        size_t size = 0;
        spng_decoded_image_size(ctx, SPNG_FMT_RGBA8, &size);
        auto *pixels = static_cast<uint8_t *>(std::malloc(size));
        if (spng_decode_image(ctx, pixels, size, SPNG_FMT_RGBA8, 0) != 0) state.SkipWithError("libspng failed");
        benchmark::DoNotOptimize(pixels);
        std::free(pixels);
        spng_ctx_free(ctx);
    }
}

void BM_LoadPNG_Library(benchmark::State &state) { LoadThroughLibrary(state, PNGPath(true)); }
void BM_LoadPNG_libpng(benchmark::State &state) { LoadWithLibpng(state, PNGPath(true)); }
void BM_LoadPNG_libspng(benchmark::State &state) { LoadWithLibspng(state, PNGPath(true)); }
void BM_LoadPNGOpaque_Library(benchmark::State &state) { LoadThroughLibrary(state, PNGPath(false)); }
void BM_LoadPNGOpaque_libpng(benchmark::State &state) { LoadWithLibpng(state, PNGPath(false)); }
void BM_LoadPNGOpaque_libspng(benchmark::State &state) { LoadWithLibspng(state, PNGPath(false)); }
void BM_DecodeOnlyPNG_Library(benchmark::State &state) { LoadThroughLibrary(state, PNGPath(true), false); }
void BM_LoadJPEG_Library(benchmark::State &state) { LoadThroughLibrary(state, JPEGPath()); }
void BM_DecodeOnlyJPEG_Library(benchmark::State &state) { LoadThroughLibrary(state, JPEGPath(), false); }

void BM_LoadJPEG_libjpeg(benchmark::State &state) {
    const std::string &path = JPEGPath();
    for (auto _ : state) {
        auto *pixels = static_cast<uint8_t *>(std::malloc(kPixels * 4));
        FILE *f = std::fopen(path.c_str(), "rb");
        jpeg_decompress_struct cinfo;
        jpeg_error_mgr err;
        cinfo.err = jpeg_std_error(&err);
        jpeg_create_decompress(&cinfo);
        jpeg_stdio_src(&cinfo, f);
        jpeg_read_header(&cinfo, TRUE);
        cinfo.out_color_space = JCS_EXT_ARGB;
        jpeg_start_decompress(&cinfo);
        while (cinfo.output_scanline < cinfo.output_height) {
            JSAMPROW row = pixels + static_cast<size_t>(cinfo.output_scanline) * kSize * 4;
            jpeg_read_scanlines(&cinfo, &row, 1);
        }
        jpeg_finish_decompress(&cinfo);
        jpeg_destroy_decompress(&cinfo);
        std::fclose(f);
        benchmark::DoNotOptimize(pixels);
        std::free(pixels);
    }
}

// ---- Export ----

std::map<std::string, size_t> gSizes;

// The rendered image of an image whose buffer holds the picture, as after any pixel operation.
CGImageRef RenderedPicture(bool opaque) {
    static std::map<bool, CGImageRef> images;
    CGImageRef &image = images[opaque];
    if (!image) {
        Bytes argb = PictureARGB(opaque);
        PlimCFImage holder = PlimCFImageCreateWithBuffer(
            nullptr, argb.data(), kSize, kSize, 8, 32, kSize * 4, nullptr,
            opaque ? kCGImageAlphaNoneSkipFirst : kCGImageAlphaPremultipliedFirst);
        image = CGImageRetain(PlimCFImageGetCGImage(holder));
        CFRelease(holder);
    }
    return image;
}

void ExportThroughLibrary(benchmark::State &state, const char *name, PlimCFImageExporter (*create)(CFAllocatorRef),
                          bool opaque) {
    CGImageRef image = RenderedPicture(opaque);
    PlimCFImageExporter exporter = create(nullptr);
    for (auto _ : state) {
        CFDataRef data = PlimCFImageExportCreateData(nullptr, exporter, image);
        if (!data) {
            state.SkipWithError("export failed");
            break;
        }
        gSizes[name] = static_cast<size_t>(CFDataGetLength(data));
        CFRelease(data);
    }
    CFRelease(exporter);
}

void BM_ExportPNG_Library(benchmark::State &state) { ExportThroughLibrary(state, "BM_ExportPNG_Library", PlimCFImageExporterCreatePNG, false);
}
void BM_ExportJPEG_Library(benchmark::State &state) { ExportThroughLibrary(state, "BM_ExportJPEG_Library", PlimCFImageExporterCreateJPEG, true);
}
void BM_ExportTIFF_Library(benchmark::State &state) { ExportThroughLibrary(state, "BM_ExportTIFF_Library", PlimCFImageExporterCreateTIFF, false);
}

void BM_ExportPNG_libpng(benchmark::State &state) {
    const Bytes &rgba = ExportedRGBA();
    for (auto _ : state) gSizes["BM_ExportPNG_libpng"] = LibpngEncode(rgba, 4).size();
}

void BM_ExportJPEG_libjpeg(benchmark::State &state) {
    const Bytes xrgb = PictureARGB(true);
    for (auto _ : state) gSizes["BM_ExportJPEG_libjpeg"] = LibjpegEncode(xrgb.data()).size();
}

void BM_ExportTIFF_libtiff(benchmark::State &state) {
    const Bytes &rgba = ExportedRGBA();
    for (auto _ : state) gSizes["BM_ExportTIFF_libtiff"] = LibtiffEncode(rgba).size();
}

BENCHMARK(BM_LoadPNG_Library)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadPNG_libpng)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadPNG_libspng)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeOnlyPNG_Library)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadPNGOpaque_Library)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadPNGOpaque_libpng)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadPNGOpaque_libspng)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadJPEG_Library)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadJPEG_libjpeg)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeOnlyJPEG_Library)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ExportPNG_Library)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ExportPNG_libpng)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ExportJPEG_Library)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ExportJPEG_libjpeg)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ExportTIFF_Library)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ExportTIFF_libtiff)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
    int result = plim::bench::RunWithRatios(argc, argv,
                                            {{"BM_LoadPNG_Library", "BM_LoadPNG_libpng"},
                                             {"BM_LoadPNG_Library", "BM_LoadPNG_libspng"},
                                             {"BM_DecodeOnlyPNG_Library", "BM_LoadPNG_libpng"},
                                             {"BM_LoadPNGOpaque_Library", "BM_LoadPNGOpaque_libpng"},
                                             {"BM_LoadPNGOpaque_Library", "BM_LoadPNGOpaque_libspng"},
                                             {"BM_LoadJPEG_Library", "BM_LoadJPEG_libjpeg"},
                                             {"BM_DecodeOnlyJPEG_Library", "BM_LoadJPEG_libjpeg"},
                                             {"BM_ExportPNG_Library", "BM_ExportPNG_libpng"},
                                             {"BM_ExportJPEG_Library", "BM_ExportJPEG_libjpeg"},
                                             {"BM_ExportTIFF_Library", "BM_ExportTIFF_libtiff"}});
    for (const auto &[name, peer] : {std::pair{"BM_ExportPNG_Library", "BM_ExportPNG_libpng"},
                                     std::pair{"BM_ExportJPEG_Library", "BM_ExportJPEG_libjpeg"},
                                     std::pair{"BM_ExportTIFF_Library", "BM_ExportTIFF_libtiff"}}) {
        auto a = gSizes.find(name), b = gSizes.find(peer);
        if (a != gSizes.end() && b != gSizes.end())
            std::printf("size %s / %s = %.3f (%zu / %zu bytes)\n", name, peer,
                        static_cast<double>(a->second) / static_cast<double>(b->second), a->second, b->second);
    }
    for (const std::string &path : gTempFiles) std::remove(path.c_str());
    return result;
}
