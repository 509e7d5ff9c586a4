// The plain road for PNG image data gives the pixels of libpng's rows, and leaves every file it
// is not sure of to libpng.
#include "io/IOTestSupport.h"
#include "platform/graphics/decoders/PNGImageData.h"
#include "platform/graphics/decoders/Raster.h"

#include <gtest/gtest.h>

#include <libdeflate.h>
#include <png.h>

#include <csetjmp>
#include <cstring>
#include <random>
#include <vector>

namespace {

using plim::decoders::Raster;
using iotest::Bytes;

struct Options {
    int colorType = PNG_COLOR_TYPE_RGB;
    int width = 33, height = 17;
    int filters = PNG_ALL_FILTERS;
    int level = 6;
    size_t idatBytes = 8192;       // libpng's compression buffer: the size of each IDAT chunk
    int windowBits = 15;
    bool trns = false;             // a tRNS chunk (a colour key, or alpha for part of the palette)
    bool textAfterImage = false;   // a tEXt chunk between the image data and IEND
};

void Append(png_structp png, png_bytep data, png_size_t n) {
    auto *out = static_cast<Bytes *>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + n);
}

int Channels(int colorType) {
    switch (colorType) {
        case PNG_COLOR_TYPE_GRAY:
        case PNG_COLOR_TYPE_PALETTE: return 1;
        case PNG_COLOR_TYPE_GRAY_ALPHA: return 2;
        case PNG_COLOR_TYPE_RGB: return 3;
        default: return 4;
    }
}

// Random samples with runs and repeats, so that every filter gets picked somewhere; the colour
// key is made to occur.
Bytes Samples(const Options &o, uint32_t seed) {
    std::mt19937 rng(seed);
    const size_t channels = static_cast<size_t>(Channels(o.colorType));
    Bytes pixels(static_cast<size_t>(o.width) * o.height * channels);
    for (size_t i = 0; i < pixels.size(); i++) {
        pixels[i] = rng() % 3 == 0 && i >= channels ? pixels[i - channels] : static_cast<uint8_t>(rng());
        if (o.colorType == PNG_COLOR_TYPE_PALETTE) pixels[i] = static_cast<uint8_t>(pixels[i] % 40);
    }
    if (o.trns && channels <= 3) std::memset(pixels.data(), 7, channels);
    return pixels;
}

Bytes Encode(const Options &o, uint32_t seed) {
    const Bytes pixels = Samples(o, seed);
    Bytes out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return {};
    }
    png_set_write_fn(png, &out, Append, nullptr);
    png_set_IHDR(png, info, o.width, o.height, 8, o.colorType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_set_filter(png, 0, o.filters);
    png_set_compression_level(png, o.level);
    png_set_compression_buffer_size(png, o.idatBytes);
    png_set_compression_window_bits(png, o.windowBits);
    png_color palette[40];
    png_byte alphas[25];
    png_color_16 key{};
    key.gray = key.red = key.green = key.blue = 7;
    if (o.colorType == PNG_COLOR_TYPE_PALETTE) {
        for (int i = 0; i < 40; i++) palette[i] = {static_cast<png_byte>(i * 6), static_cast<png_byte>(255 - i), 77};
        png_set_PLTE(png, info, palette, 40);
        for (int i = 0; i < 25; i++) alphas[i] = static_cast<png_byte>(i * 10);
    }
    if (o.trns) png_set_tRNS(png, info, alphas, 25, &key);
    png_write_info(png, info);
    for (int y = 0; y < o.height; y++)
        png_write_row(png, pixels.data() + static_cast<size_t>(y) * o.width * Channels(o.colorType));
    if (o.textAfterImage) {
        png_text text{};
        text.compression = PNG_TEXT_COMPRESSION_NONE;
        text.key = const_cast<char *>("Comment");
        text.text = const_cast<char *>("after the image data");
        png_set_text(png, info, &text, 1);
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return out;
}

// Runs the plain road the way the decoder does, after png_read_info.
bool PlainRoad(const Bytes &file, Raster *out) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    iotest::PNGMemory memory{&file};
    iotest::ReadPNGFromMemory(png, &memory);
    bool taken = false;
    if (!setjmp(png_jmpbuf(png))) {
        png_read_info(png, info);
        taken = plim::decoders::DecodePlainImageData(png, info, file.data(), file.size(), memory.offset, out);
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return taken;
}

// The whole decoder, whichever road it takes.
bool Decode(const Bytes &file, Raster *out) { return plim::decoders::DecodePNG(file.data(), file.size(), out); }

Bytes PixelsOf(const Raster &r) { return Bytes(r.pixels, r.pixels + r.BytesPerRow() * r.height); }

TEST(PNGImageData, PlainFilesGiveLibpngsPixels) {
    const int colorTypes[] = {PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_RGB, PNG_COLOR_TYPE_PALETTE, PNG_COLOR_TYPE_GRAY_ALPHA,
                              PNG_COLOR_TYPE_RGB_ALPHA};
    const int filters[] = {PNG_FILTER_NONE, PNG_FILTER_SUB, PNG_FILTER_UP, PNG_FILTER_AVG, PNG_FILTER_PAETH,
                           PNG_ALL_FILTERS};
    uint32_t seed = 1;
    for (int colorType : colorTypes) {
        for (bool trns : {false, true}) {
            if (trns && (colorType & PNG_COLOR_MASK_ALPHA)) continue;
            for (int f = 0; f < 6; f++, seed++) {
                Options o;
                o.colorType = colorType;
                o.trns = trns;
                o.filters = filters[f];
                o.width = 1 + static_cast<int>(seed * 7 % 40);
                o.height = 1 + static_cast<int>(seed * 5 % 23);
                o.level = f % 3 == 0 ? 0 : 9;
                o.idatBytes = f % 2 ? 64 : 8192;  // many chunks, or one
                const Bytes file = Encode(o, seed);
                ASSERT_FALSE(file.empty());
                // The same picture with a chunk after its image data goes through libpng's rows.
                o.textAfterImage = true;
                const Bytes throughLibpng = Encode(o, seed);

                Raster plain, rows, whole;
                ASSERT_TRUE(PlainRoad(file, &plain)) << colorType << " " << trns << " " << f;
                ASSERT_FALSE(PlainRoad(throughLibpng, &rows));
                ASSERT_TRUE(Decode(throughLibpng, &rows));
                ASSERT_TRUE(Decode(file, &whole));
                for (const Raster *r : {&plain, &whole}) {
                    EXPECT_EQ(r->width, rows.width);
                    EXPECT_EQ(r->height, rows.height);
                    EXPECT_EQ(r->grey, rows.grey);
                    EXPECT_EQ(r->alpha, rows.alpha);
                    ASSERT_EQ(PixelsOf(*r), PixelsOf(rows)) << colorType << " tRNS " << trns << " filters " << f;
                }
            }
        }
    }
}

Bytes WithByte(Bytes file, size_t at, uint8_t value) {
    file[at] = value;
    return file;
}

uint32_t BigEndian(const Bytes &b, size_t at) {
    return (uint32_t{b[at]} << 24) | (uint32_t{b[at + 1]} << 16) | (uint32_t{b[at + 2]} << 8) | b[at + 3];
}

void PutBigEndian(Bytes &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; i++) b[at + i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

size_t FindChunk(const Bytes &file, const char *type) {
    for (size_t i = 8; i + 8 <= file.size(); i++)
        if (std::memcmp(&file[i + 4], type, 4) == 0) return i;
    return 0;
}

TEST(PNGImageData, LeavesEveryOtherFileToLibpng) {
    Options o;
    o.width = 300;
    o.height = 40;
    const Bytes good = Encode(o, 99);
    Raster reference;
    ASSERT_TRUE(Decode(good, &reference));
    const size_t idat = FindChunk(good, "IDAT"), iend = FindChunk(good, "IEND");
    ASSERT_GT(idat, 0u);
    ASSERT_GT(iend, idat);

    // Refused here, and refused by libpng too.
    const Bytes broken[] = {
        WithByte(good, idat + 20, static_cast<uint8_t>(good[idat + 20] ^ 1)),  // checksum no longer fits
        Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(iend)),  // ends before IEND
        Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(idat + 30)),
    };
    for (const Bytes &file : broken) {
        Raster plain, whole;
        EXPECT_FALSE(PlainRoad(file, &plain));
        EXPECT_EQ(plain.pixels, nullptr);
        EXPECT_FALSE(Decode(file, &whole));
    }

    // Refused here, decoded by libpng: a small declared window, and a chunk after the image data.
    Options small = o;
    small.windowBits = 9;
    small.level = 1;
    Options text = o;
    text.textAfterImage = true;
    for (const Options &other : {small, text}) {
        const Bytes file = Encode(other, 99);
        Raster plain, whole;
        EXPECT_FALSE(PlainRoad(file, &plain));
        ASSERT_TRUE(Decode(file, &whole));
        EXPECT_EQ(PixelsOf(whole), PixelsOf(reference));
    }

    // A filter type that does not exist, in a file otherwise right (checksums made to fit):
    // libpng refuses it.
    Options unfiltered = o;
    unfiltered.level = 0;
    unfiltered.filters = PNG_FILTER_NONE;
    unfiltered.idatBytes = 1 << 16;  // one chunk
    Bytes file = Encode(unfiltered, 99);
    const size_t chunk = FindChunk(file, "IDAT");
    const uint32_t length = BigEndian(file, chunk);
    const size_t stream = chunk + 8, filterByte = stream + 2 + 5;  // zlib's header, a stored block's
    ASSERT_EQ(file[filterByte], 0);
    file[filterByte] = 5;
    // Adler-32 of the raw rows, with their first byte 5 more.
    const uint32_t raw = 300 * 3 + 1, total = raw * 40;
    const uint32_t adler = BigEndian(file, stream + length - 4);
    const uint32_t a = ((adler & 0xFFFF) + 5) % 65521, b = ((adler >> 16) + 5 * total) % 65521;
    PutBigEndian(file, stream + length - 4, (b << 16) | a);
    PutBigEndian(file, stream + length, libdeflate_crc32(0, &file[chunk + 4], length + 4));
    Raster plain, whole;
    EXPECT_FALSE(PlainRoad(file, &plain));
    EXPECT_FALSE(Decode(file, &whole));
    // The same bytes with the filter type put back decode.
    file[filterByte] = 0;
    PutBigEndian(file, stream + length - 4, adler);
    PutBigEndian(file, stream + length, libdeflate_crc32(0, &file[chunk + 4], length + 4));
    EXPECT_TRUE(PlainRoad(file, &plain));
}

}  // namespace
