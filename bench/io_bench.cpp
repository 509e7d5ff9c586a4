// Loading a 4096 x 4096 PNG and JPEG from a file into a pixel buffer, against bare libpng and
// libjpeg-turbo decoding the same files.
#include "bench_ratio.h"

#include <PlimBitmapLib/PlimBitmapLib.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <jpeglib.h>
#include <png.h>
#include <unistd.h>

namespace {

constexpr int kSize = 4096;

std::string TempFile(const char *name) {
    return "/tmp/plim_io_bench_" + std::to_string(getpid()) + name;
}

const std::string &PNGPath() {
    static const std::string path = [] {
        std::string p = TempFile(".png");
        std::vector<uint8_t> rgb(static_cast<size_t>(kSize) * kSize * 3);
        for (int y = 0; y < kSize; y++)
            for (int x = 0; x < kSize; x++)
                for (int c = 0; c < 3; c++)
                    rgb[(static_cast<size_t>(y) * kSize + x) * 3 + c] =
                        static_cast<uint8_t>((x * (c + 1) + y * 3 + ((x * y) >> 7)) & 0xFF);
        png_image image;
        std::memset(&image, 0, sizeof image);
        image.version = PNG_IMAGE_VERSION;
        image.width = kSize;
        image.height = kSize;
        image.format = PNG_FORMAT_RGB;
        png_image_write_to_file(&image, p.c_str(), 0, rgb.data(), 0, nullptr);
        return p;
    }();
    return path;
}

const std::string &JPEGPath() {
    static const std::string path = [] {
        std::string p = TempFile(".jpg");
        FILE *f = std::fopen(p.c_str(), "wb");
        jpeg_compress_struct cinfo;
        jpeg_error_mgr err;
        cinfo.err = jpeg_std_error(&err);
        jpeg_create_compress(&cinfo);
        jpeg_stdio_dest(&cinfo, f);
        cinfo.image_width = kSize;
        cinfo.image_height = kSize;
        cinfo.input_components = 3;
        cinfo.in_color_space = JCS_RGB;
        jpeg_set_defaults(&cinfo);
        jpeg_start_compress(&cinfo, TRUE);
        std::vector<uint8_t> row(kSize * 3);
        while (cinfo.next_scanline < cinfo.image_height) {
            for (int x = 0; x < kSize; x++)
                for (int c = 0; c < 3; c++)
                    row[x * 3 + c] = static_cast<uint8_t>((x * (c + 1) + cinfo.next_scanline * 3) & 0xFF);
            JSAMPROW r = row.data();
            jpeg_write_scanlines(&cinfo, &r, 1);
        }
        jpeg_finish_compress(&cinfo);
        jpeg_destroy_compress(&cinfo);
        std::fclose(f);
        return p;
    }();
    return path;
}

// With `buffer`, the load goes on to make the pixel buffer (the promotion); without, it stops
// at the decoded image, which shows where the rest of the time goes.
void LoadThroughLibrary(benchmark::State &state, const std::string &path, bool buffer = true) {
    CFStringRef s = CFStringCreateWithCString(nullptr, path.c_str(), kCFStringEncodingUTF8);
    for (auto _ : state) {
        PlimCFImage image = PlimCFImageCreateWithPath(nullptr, s);
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
    CFRelease(s);
}

void LoadOnly(benchmark::State &state, const std::string &path) { LoadThroughLibrary(state, path, false); }

void BM_Library_PNG(benchmark::State &state) { LoadThroughLibrary(state, PNGPath()); }
void BM_DecodeOnly_PNG(benchmark::State &state) { LoadOnly(state, PNGPath()); }
void BM_DecodeOnly_JPEG(benchmark::State &state) { LoadOnly(state, JPEGPath()); }
void BM_Library_JPEG(benchmark::State &state) { LoadThroughLibrary(state, JPEGPath()); }

void BM_Bare_libpng(benchmark::State &state) {
    const std::string &path = PNGPath();
    for (auto _ : state) {
        // Fresh memory each time, as a caller keeping the pixels needs (the library must too).
        auto *pixels = static_cast<uint8_t *>(std::malloc(static_cast<size_t>(kSize) * kSize * 4));
        png_image image;
        std::memset(&image, 0, sizeof image);
        image.version = PNG_IMAGE_VERSION;
        png_image_begin_read_from_file(&image, path.c_str());
        image.format = PNG_FORMAT_ARGB;
        png_image_finish_read(&image, nullptr, pixels, 0, nullptr);
        benchmark::DoNotOptimize(pixels);
        std::free(pixels);
    }
}

void BM_Bare_libjpeg(benchmark::State &state) {
    const std::string &path = JPEGPath();
    for (auto _ : state) {
        auto *pixels = static_cast<uint8_t *>(std::malloc(static_cast<size_t>(kSize) * kSize * 4));
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

BENCHMARK(BM_Library_PNG)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Bare_libpng)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Library_JPEG)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Bare_libjpeg)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeOnly_PNG)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeOnly_JPEG)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
    int result = plim::bench::RunWithRatios(argc, argv,
                                            {{"BM_Library_PNG", "BM_Bare_libpng"},
                                             {"BM_Library_JPEG", "BM_Bare_libjpeg"},
                                             {"BM_DecodeOnly_PNG", "BM_Bare_libpng"},
                                             {"BM_DecodeOnly_JPEG", "BM_Bare_libjpeg"}});
    std::remove(PNGPath().c_str());
    std::remove(JPEGPath().c_str());
    return result;
}
