// Encoders and bare decoders of the codec libraries, to make test files and reference pixels.
#pragma once

#include <PlimBitmapLib/PlimBitmapLib.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

#include <gif_lib.h>
#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

namespace iotest {

using Bytes = std::vector<uint8_t>;

inline CFDataRef MakeData(const Bytes &b) {
    return CFDataCreate(nullptr, b.data(), static_cast<CFIndex>(b.size()));
}

inline Bytes Random(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    Bytes b(n);
    for (auto &v : b) v = static_cast<uint8_t>(rng());
    return b;
}

// Smooth content so that JPEG round trips stay close.
inline Bytes Gradient(int w, int h, int channels) {
    Bytes b(static_cast<size_t>(w) * h * channels);
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++)
            for (int c = 0; c < channels; c++)
                b[(static_cast<size_t>(y) * w + x) * channels + c] =
                    static_cast<uint8_t>((x * 2 + y * 2 + c * 20) & 0xFF);
    return b;
}

// format: PNG_FORMAT_* of the simplified API.
inline Bytes EncodePNG(const Bytes &pixels, int w, int h, png_uint_32 format,
                       const Bytes *colormap = nullptr) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(w);
    image.height = static_cast<png_uint_32>(h);
    image.format = format;
    if (colormap) image.colormap_entries = static_cast<png_uint_32>(colormap->size() / 4);
    const void *map = colormap ? colormap->data() : nullptr;
    png_alloc_size_t size = 0;
    png_image_write_to_memory(&image, nullptr, &size, 0, pixels.data(), 0, map);
    Bytes out(size);
    if (!png_image_write_to_memory(&image, out.data(), &size, 0, pixels.data(), 0, map))
        return {};
    out.resize(size);
    return out;
}

// Bare libpng decode with the same promotion the library documents, to A,R,G,B or grey.
inline Bytes BarePNG(const Bytes &file, bool *grey) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&image, file.data(), file.size())) return {};
    bool isGrey = (image.format & PNG_FORMAT_FLAG_COLOR) == 0 && (image.format & PNG_FORMAT_FLAG_ALPHA) == 0;
    *grey = isGrey;
    image.format = isGrey ? PNG_FORMAT_GRAY : PNG_FORMAT_ARGB;
    Bytes out(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, out.data(), 0, nullptr)) return {};
    return out;
}

// Lets libpng read a file from memory; `memory` must outlive the read.
struct PNGMemory {
    const Bytes *file;
    size_t offset = 0;
};

inline void ReadPNGFromMemory(png_structp png, PNGMemory *memory) {
    png_set_read_fn(png, memory, [](png_structp p, png_bytep data, png_size_t n) {
        auto *m = static_cast<PNGMemory *>(png_get_io_ptr(p));
        if (n > m->file->size() - m->offset) png_error(p, "truncated");
        std::memcpy(data, m->file->data() + m->offset, n);
        m->offset += n;
    });
}

inline Bytes EncodeJPEG(const Bytes &pixels, int w, int h, int components, J_COLOR_SPACE space,
                        int quality = 90) {
    jpeg_compress_struct cinfo;
    jpeg_error_mgr err;
    cinfo.err = jpeg_std_error(&err);
    jpeg_create_compress(&cinfo);
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &buffer, &size);
    cinfo.image_width = static_cast<JDIMENSION>(w);
    cinfo.image_height = static_cast<JDIMENSION>(h);
    cinfo.input_components = components;
    cinfo.in_color_space = space;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<uint8_t *>(pixels.data()) +
                       static_cast<size_t>(cinfo.next_scanline) * w * components;
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    Bytes out(buffer, buffer + size);
    std::free(buffer);
    return out;
}

// Bare libjpeg-turbo decode: RGB triples or grey bytes.
inline Bytes BareJPEG(const Bytes &file, int *components) {
    jpeg_decompress_struct cinfo;
    jpeg_error_mgr err;
    cinfo.err = jpeg_std_error(&err);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, file.data(), file.size());
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = cinfo.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_start_decompress(&cinfo);
    *components = cinfo.output_components;
    Bytes out(static_cast<size_t>(cinfo.output_width) * cinfo.output_height * cinfo.output_components);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = out.data() + static_cast<size_t>(cinfo.output_scanline) * cinfo.output_width *
                                        cinfo.output_components;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return out;
}

// The bytes behind a rendered image, row padding removed.
inline Bytes PixelsOf(CGImageRef image) {
    CFDataRef data = CGDataProviderCopyData(CGImageGetDataProvider(image));
    size_t w = CGImageGetWidth(image), h = CGImageGetHeight(image);
    size_t rowBytes = (w * CGImageGetBitsPerPixel(image) + 7) / 8, bpr = CGImageGetBytesPerRow(image);
    Bytes out;
    for (size_t y = 0; y < h; y++)
        out.insert(out.end(), CFDataGetBytePtr(data) + y * bpr, CFDataGetBytePtr(data) + y * bpr + rowBytes);
    CFRelease(data);
    return out;
}

inline std::string TempPath(const std::string &name) {
    const char *dir = std::getenv("TMPDIR");
    return std::string(dir ? dir : "/tmp") + "/plim_io_" + std::to_string(getpid()) + "_" + name;
}

inline void WriteFile(const std::string &path, const Bytes &b) {
    FILE *f = std::fopen(path.c_str(), "wb");
    if (!f) return;
    if (!b.empty()) std::fwrite(b.data(), 1, b.size(), f);
    std::fclose(f);
}

inline Bytes ReadFile(const std::string &path) {
    Bytes b;
    FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) return b;
    uint8_t block[4096];
    size_t n;
    while ((n = std::fread(block, 1, sizeof block, f)) > 0) b.insert(b.end(), block, block + n);
    std::fclose(f);
    return b;
}

inline void Put32(Bytes &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; i++) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

// A bottom-up 24-bit BMP of the given R,G,B pixels.
inline Bytes MakeBMP(const Bytes &rgb, int w, int h) {
    size_t rowBytes = (static_cast<size_t>(w) * 3 + 3) & ~size_t{3};
    Bytes b(54 + rowBytes * h, 0);
    b[0] = 'B';
    b[1] = 'M';
    Put32(b, 2, static_cast<uint32_t>(b.size()));
    Put32(b, 10, 54);
    Put32(b, 14, 40);
    Put32(b, 18, static_cast<uint32_t>(w));
    Put32(b, 22, static_cast<uint32_t>(h));
    b[26] = 1;
    b[28] = 24;
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++)
            for (int c = 0; c < 3; c++)
                b[54 + rowBytes * (h - 1 - y) + x * 3 + (2 - c)] = rgb[(static_cast<size_t>(y) * w + x) * 3 + c];
    return b;
}

inline int WriteToBytes(GifFileType *gif, const GifByteType *data, int n) {
    auto *out = static_cast<Bytes *>(gif->UserData);
    out->insert(out->end(), data, data + n);
    return n;
}

// A one-frame GIF of palette indexes; an interlaced one stores its rows in the four passes.
inline Bytes MakeGIF(const Bytes &indexes, int w, int h, const Bytes &palette, int transparent,
                     bool interlaced = false) {
    Bytes out;
    int err = 0;
    GifFileType *gif = EGifOpen(&out, WriteToBytes, &err);
    ColorMapObject *map = GifMakeMapObject(256, nullptr);
    for (int i = 0; i < 256; i++)
        map->Colors[i] = GifColorType{palette[i * 3], palette[i * 3 + 1], palette[i * 3 + 2]};
    EGifSetGifVersion(gif, true);
    EGifPutScreenDesc(gif, w, h, 8, 0, map);
    GraphicsControlBlock gcb{};
    gcb.TransparentColor = transparent;
    GifByteType ext[4];
    size_t len = EGifGCBToExtension(&gcb, ext);
    EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(len), ext);
    EGifPutImageDesc(gif, 0, 0, w, h, interlaced, nullptr);
    const int starts[] = {0, 4, 2, 1}, steps[] = {8, 8, 4, 2};
    for (int pass = 0; pass < (interlaced ? 4 : 1); pass++)
        for (int y = interlaced ? starts[pass] : 0; y < h; y += interlaced ? steps[pass] : 1)
            EGifPutLine(gif, const_cast<GifPixelType *>(&indexes[static_cast<size_t>(y) * w]), w);
    EGifCloseFile(gif, &err);
    GifFreeMapObject(map);
    return out;
}

inline CFStringRef Str(const std::string &s) {
    return CFStringCreateWithCString(nullptr, s.c_str(), kCFStringEncodingUTF8);
}

}  // namespace iotest
