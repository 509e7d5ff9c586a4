// What the exporters take from each layout a rendered image may have: colour labelled
// premultiplied is unpremultiplied (round(C * 255 / A), at most 255, 0 where A is 0), other colour
// is taken as it is, grey as grey. PNG and TIFF keep those samples exactly; JPEG codes them as
// bare libjpeg-turbo codes the same R,G,B.
#include "io/IOTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csetjmp>

using namespace iotest;

namespace {

constexpr size_t kWidth = 259, kHeight = 256;  // every alpha against every sample; rows not a multiple of 4

void FreeBytes(void *, const void *data, size_t) { std::free(const_cast<void *>(data)); }

CGImageRef MakeImage(const Bytes &bytes, size_t bpc, size_t bpp, size_t rowBytes, CGColorSpaceRef space,
                     uint32_t alphaInfo) {
    void *copy = std::malloc(bytes.size());
    std::memcpy(copy, bytes.data(), bytes.size());
    CGDataProviderRef provider = CGDataProviderCreateWithData(nullptr, copy, bytes.size(), FreeBytes);
    CGImageRef image = CGImageCreate(kWidth, kHeight, bpc, bpp, rowBytes, space, alphaInfo, provider, nullptr,
                                     true, kCGRenderingIntentDefault);
    CGDataProviderRelease(provider);
    return image;
}

Bytes Export(PlimCFImageExporter (*create)(CFAllocatorRef), CGImageRef image) {
    PlimCFImageExporter exporter = create(nullptr);
    CFDataRef data = PlimCFImageExportCreateData(nullptr, exporter, image);
    CFRelease(exporter);
    if (!data) return {};
    Bytes out(CFDataGetBytePtr(data), CFDataGetBytePtr(data) + CFDataGetLength(data));
    CFRelease(data);
    return out;
}

// The samples of an 8-bit PNG as stored, and how many a pixel has.
Bytes PNGSamples(const Bytes &file, int *channels) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    PNGMemory memory{&file};
    ReadPNGFromMemory(png, &memory);
    Bytes samples;
    if (!setjmp(png_jmpbuf(png))) {
        png_read_info(png, info);
        *channels = png_get_channels(png, info);
        samples.resize(png_get_rowbytes(png, info) * png_get_image_height(png, info));
        for (png_uint_32 y = 0; y < png_get_image_height(png, info); y++)
            png_read_row(png, samples.data() + png_get_rowbytes(png, info) * y, nullptr);
        png_read_end(png, nullptr);
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return samples;
}

Bytes TIFFSamples(const Bytes &file, int *channels) {
    const std::string path = TempPath("export_pixels.tif");
    WriteFile(path, file);
    Bytes samples;
    if (TIFF *tif = TIFFOpen(path.c_str(), "r")) {
        uint16_t spp = 0;
        TIFFGetField(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
        *channels = spp;
        const tmsize_t row = TIFFScanlineSize(tif);
        samples.resize(static_cast<size_t>(row) * kHeight);
        for (uint32_t y = 0; y < kHeight; y++) TIFFReadScanline(tif, samples.data() + row * y, y, 0);
        TIFFClose(tif);
    }
    std::remove(path.c_str());
    return samples;
}

uint8_t Unpremultiplied(unsigned c, unsigned a) { return a ? static_cast<uint8_t>(std::min(255u, (c * 255 + a / 2) / a)) : 0; }

TEST(ExportPixels, EveryLayoutGivesTheDocumentedSamplesToPNGTIFFAndJPEG) {
    CGColorSpaceRef rgb = CGColorSpaceCreateWithName(kCGColorSpaceGenericRGB);
    CGColorSpaceRef grey = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    const size_t rowBytes = kWidth * 4 + 8;
    const uint32_t alphaInfos[] = {kCGImageAlphaPremultipliedLast, kCGImageAlphaPremultipliedFirst, kCGImageAlphaLast,
                                   kCGImageAlphaFirst, kCGImageAlphaNoneSkipLast, kCGImageAlphaNoneSkipFirst};
    for (uint32_t info : alphaInfos) {
        const bool first = info == kCGImageAlphaPremultipliedFirst || info == kCGImageAlphaFirst ||
                           info == kCGImageAlphaNoneSkipFirst;
        const bool skip = info == kCGImageAlphaNoneSkipFirst || info == kCGImageAlphaNoneSkipLast;
        const bool premultiplied = info == kCGImageAlphaPremultipliedFirst || info == kCGImageAlphaPremultipliedLast;
        // Row y has alpha y; the samples run through every value along the row, above the
        // alpha too (premultiplied colour past its alpha is clamped).
        Bytes bytes(rowBytes * kHeight, 0x5A), expected, expectedRGB;
        for (size_t y = 0; y < kHeight; y++) {
            for (size_t x = 0; x < kWidth; x++) {
                uint8_t *p = &bytes[rowBytes * y + 4 * x];
                const uint8_t samples[3] = {static_cast<uint8_t>(x), static_cast<uint8_t>(x + 85),
                                            static_cast<uint8_t>(x * 3 + y)};
                p[first ? 0 : 3] = static_cast<uint8_t>(y);
                std::memcpy(p + (first ? 1 : 0), samples, 3);
                for (uint8_t c : samples) {
                    const uint8_t straight = premultiplied ? Unpremultiplied(c, static_cast<unsigned>(y)) : c;
                    expected.push_back(straight);
                    expectedRGB.push_back(straight);
                }
                if (!skip) expected.push_back(static_cast<uint8_t>(y));
            }
        }
        CGImageRef image = MakeImage(bytes, 8, 32, rowBytes, rgb, info);
        ASSERT_NE(image, nullptr);
        int channels = 0;
        EXPECT_EQ(PNGSamples(Export(PlimCFImageExporterCreatePNG, image), &channels), expected) << "PNG, " << info;
        EXPECT_EQ(channels, skip ? 3 : 4);
        EXPECT_EQ(TIFFSamples(Export(PlimCFImageExporterCreateTIFF, image), &channels), expected) << "TIFF, " << info;
        EXPECT_EQ(channels, skip ? 3 : 4);
        int components = 0;
        const Bytes reference = EncodeJPEG(expectedRGB, kWidth, kHeight, 3, JCS_RGB, 75);
        EXPECT_EQ(BareJPEG(Export(PlimCFImageExporterCreateJPEG, image), &components),
                  BareJPEG(reference, &components))
            << "JPEG, " << info;
        CGImageRelease(image);
    }

    // Grey of 8 bits and of 1 bit (expanded to 0 and 255).
    for (size_t bits : {8, 1}) {
        const size_t greyRow = bits == 8 ? kWidth + 3 : (kWidth + 7) / 8 + 1;
        Bytes bytes = Random(greyRow * kHeight, static_cast<uint32_t>(bits)), expected;
        for (size_t y = 0; y < kHeight; y++)
            for (size_t x = 0; x < kWidth; x++)
                expected.push_back(bits == 8 ? bytes[greyRow * y + x]
                                             : ((bytes[greyRow * y + x / 8] >> (7 - x % 8)) & 1) ? 255 : 0);
        CGImageRef image = MakeImage(bytes, bits, bits, greyRow, grey, kCGImageAlphaNone);
        ASSERT_NE(image, nullptr);
        int channels = 0;
        EXPECT_EQ(PNGSamples(Export(PlimCFImageExporterCreatePNG, image), &channels), expected) << bits;
        EXPECT_EQ(channels, 1);
        EXPECT_EQ(TIFFSamples(Export(PlimCFImageExporterCreateTIFF, image), &channels), expected) << bits;
        int components = 0;
        EXPECT_EQ(BareJPEG(Export(PlimCFImageExporterCreateJPEG, image), &components),
                  BareJPEG(EncodeJPEG(expected, kWidth, kHeight, 1, JCS_GRAYSCALE, 75), &components))
            << bits;
        CGImageRelease(image);
    }
    CGColorSpaceRelease(rgb);
    CGColorSpaceRelease(grey);
}

}  // namespace
