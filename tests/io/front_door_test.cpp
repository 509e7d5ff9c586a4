#include "io/IOTestSupport.h"

#include <gtest/gtest.h>

using namespace iotest;

namespace {

// A TIFF written by libtiff with the given layout, from A,R,G,B-free RGB or grey samples.
Bytes WriteTIFF(const std::string &path, int w, int h, uint16_t spp, uint16_t bps,
                uint16_t compression, bool tiled, const Bytes &samples) {
    TIFF *tif = TIFFOpen(path.c_str(), "w");
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, w);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, h);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, spp);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, bps);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, compression);
    size_t rowBytes = static_cast<size_t>(w) * spp * bps / 8;
    if (tiled) {
        TIFFSetField(tif, TIFFTAG_TILEWIDTH, 16);
        TIFFSetField(tif, TIFFTAG_TILELENGTH, 16);
        size_t sampleBytes = bps / 8u * spp;
        Bytes tile(16 * 16 * sampleBytes);
        for (int ty = 0; ty < h; ty += 16)
            for (int tx = 0; tx < w; tx += 16) {
                std::fill(tile.begin(), tile.end(), 0);
                for (int y = 0; y < 16 && ty + y < h; y++)
                    for (int x = 0; x < 16 && tx + x < w; x++)
                        std::memcpy(&tile[(y * 16 + x) * sampleBytes],
                                    &samples[(ty + y) * rowBytes + (tx + x) * sampleBytes], sampleBytes);
                TIFFWriteTile(tif, tile.data(), static_cast<uint32_t>(tx), static_cast<uint32_t>(ty), 0, 0);
            }
    } else {
        TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 5);
        for (int y = 0; y < h; y++)
            TIFFWriteScanline(tif, const_cast<uint8_t *>(&samples[y * rowBytes]), static_cast<uint32_t>(y), 0);
    }
    TIFFClose(tif);
    return ReadFile(path);
}

PlimCFImage FromPath(const std::string &path, PlimImageFormat format = 0) {
    CFStringRef s = Str(path);
    PlimCFImage image = PlimCFImageCreateWithPathAndFormat(nullptr, s, format);
    CFRelease(s);
    return image;
}

}  // namespace

TEST(ImageIO, FormatCodesFromExtensions) {
    struct {
        const char *ext;
        PlimImageFormat format;
    } cases[] = {{"pict", 1}, {"Pict", 1}, {"PCT", 2}, {"png", 3}, {"PNG", 3}, {"jpeg", 4},
                 {"JPG", 4},  {"tiff", 0}, {"png ", 0}, {"", 0}};
    for (const auto &c : cases) {
        CFStringRef s = Str(c.ext);
        EXPECT_EQ(PlimCFImageFormatForPathExtension(s), c.format) << c.ext;
        CFRelease(s);
    }
    EXPECT_EQ(PlimCFImageFormatForPathExtension(nullptr), 0u);
}

TEST(ImageIO, PathsChooseLoadersAndFallBackToContent) {
    Bytes rgb = Random(20 * 10 * 3, 11);
    Bytes png = EncodePNG(rgb, 20, 10, PNG_FORMAT_RGB);
    std::string misnamed = TempPath("png_bytes.JPG");
    WriteFile(misnamed, png);
    PlimCFImage image = FromPath(misnamed);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(CGImageGetWidth(PlimCFImageGetCGImage(image)), 20u);
    CFRelease(image);
    EXPECT_EQ(FromPath(misnamed, 5), nullptr);
    EXPECT_EQ(FromPath(misnamed, static_cast<PlimImageFormat>(-1)), nullptr);
    EXPECT_EQ(FromPath(TempPath("missing.png")), nullptr);
    std::remove(misnamed.c_str());

    // Data: code 0 and a wrong code both reach the content-recognising loader.
    CFDataRef data = MakeData(png);
    for (PlimImageFormat f : {0u, 4u, 1u, 2u}) {
        testing::internal::CaptureStderr();
        PlimCFImage fromData = PlimCFImageCreateWithFormattedData(nullptr, data, f);
        testing::internal::GetCapturedStderr();
        ASSERT_NE(fromData, nullptr) << f;
        CFRelease(fromData);
    }
    EXPECT_EQ(PlimCFImageCreateWithFormattedData(nullptr, data, 5), nullptr);
    CFRelease(data);
    Bytes garbage = Random(1000, 12);
    data = MakeData(garbage);
    EXPECT_EQ(PlimCFImageCreateWithData(nullptr, data), nullptr);
    CFRelease(data);
}

TEST(ImageIO, TIFFOfEveryCommonKindLoadsThroughContent) {
    const int w = 37, h = 21;
    Bytes rgb = Random(static_cast<size_t>(w) * h * 3, 13);
    Bytes grey = Random(static_cast<size_t>(w) * h, 14);
    Bytes rgb16(rgb.size() * 2);
    for (size_t i = 0; i < rgb.size(); i++) {  // 16-bit samples v * 257 reduce back to v
        uint16_t v = static_cast<uint16_t>(rgb[i] * 257);
        std::memcpy(&rgb16[i * 2], &v, 2);
    }
    struct {
        uint16_t spp, bps, compression;
        bool tiled;
        const Bytes *samples;
    } cases[] = {{3, 8, COMPRESSION_NONE, false, &rgb},     {3, 8, COMPRESSION_LZW, false, &rgb},
                 {3, 8, COMPRESSION_ADOBE_DEFLATE, true, &rgb}, {3, 8, COMPRESSION_PACKBITS, false, &rgb},
                 {1, 8, COMPRESSION_LZW, false, &grey},     {3, 16, COMPRESSION_NONE, false, &rgb16}};
    std::string path = TempPath("kind.tif");
    for (const auto &c : cases) {
        WriteTIFF(path, w, h, c.spp, c.bps, c.compression, c.tiled, *c.samples);
        PlimCFImage image = FromPath(path);
        ASSERT_NE(image, nullptr) << c.compression << " " << c.bps;
        CGImageRef cg = PlimCFImageGetCGImage(image);
        Bytes got = PixelsOf(cg);
        if (c.spp == 1) {
            EXPECT_EQ(CGImageGetBitsPerPixel(cg), 8u);
            EXPECT_EQ(got, grey);
        } else {
            EXPECT_EQ(CGImageGetAlphaInfo(cg), kCGImageAlphaNoneSkipFirst);
            ASSERT_EQ(got.size(), rgb.size() / 3 * 4);
            for (size_t i = 0; i < rgb.size() / 3; i++)
                ASSERT_EQ(0, std::memcmp(&got[i * 4 + 1], &rgb[i * 3], 3)) << i;
        }
        CFRelease(image);
    }
    std::remove(path.c_str());
}

TEST(ImageIO, PNGAndTIFFRoundTripsAreLossless) {
    const int w = 31, h = 17;
    Bytes argb = Random(static_cast<size_t>(w) * h * 4, 15);
    for (size_t i = 0; i < argb.size(); i += 4) argb[i] = 255;  // opaque: nothing to premultiply
    Bytes rgb;
    for (size_t i = 0; i < argb.size(); i += 4) rgb.insert(rgb.end(), &argb[i + 1], &argb[i + 4]);
    Bytes png = EncodePNG(rgb, w, h, PNG_FORMAT_RGB);
    CFDataRef data = MakeData(png);
    PlimCFImage image = PlimCFImageCreateWithData(nullptr, data);
    CFRelease(data);
    ASSERT_NE(image, nullptr);
    Bytes original = PixelsOf(PlimCFImageGetCGImage(image));
    for (auto copy : {PlimCFImageCopyPNGData, PlimCFImageCopyTIFFData}) {
        CFDataRef encoded = copy(nullptr, image);
        ASSERT_NE(encoded, nullptr);
        PlimCFImage back = PlimCFImageCreateWithData(nullptr, encoded);
        CFRelease(encoded);
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(PixelsOf(PlimCFImageGetCGImage(back)), original);
        CFRelease(back);
    }
    CFRelease(image);

    // With alpha: non-premultiplied samples survive PNG and TIFF exactly.
    Bytes rgba = Random(static_cast<size_t>(w) * h * 4, 16);
    png = EncodePNG(rgba, w, h, PNG_FORMAT_RGBA);
    data = MakeData(png);
    PlimCFImageLoader loader = PlimCFCreatePNGImageLoaderFromData(nullptr, data);
    CFRelease(data);
    ASSERT_NE(loader, nullptr);
    CGImageRef cg = PlimCFImageLoaderCopyImage(loader);
    CFRelease(loader);
    for (auto create : {PlimCFImageExporterCreatePNG, PlimCFImageExporterCreateTIFF}) {
        PlimCFImageExporter exporter = create(nullptr);
        CFDataRef encoded = PlimCFImageExportCreateData(nullptr, exporter, cg);
        CFRelease(exporter);
        ASSERT_NE(encoded, nullptr);
        PlimCFImageLoader again = PlimCFCreateUnknownImageLoaderFromData(nullptr, encoded);
        CFRelease(encoded);
        ASSERT_NE(again, nullptr);
        CGImageRef back = PlimCFImageLoaderCopyImage(again);
        CFRelease(again);
        EXPECT_EQ(CGImageGetAlphaInfo(back), kCGImageAlphaPremultipliedFirst);
        Bytes a = PixelsOf(cg), b = PixelsOf(back);
        ASSERT_EQ(a.size(), b.size());
        for (size_t i = 0; i < a.size(); i += 4) {
            ASSERT_EQ(a[i], b[i]);
            for (int c = 1; c < 4; c++) ASSERT_NEAR(b[i + c], a[i + c] * a[i] / 255.0, 0.51) << i;
        }
        CGImageRelease(back);
    }
    CGImageRelease(cg);
}

TEST(ImageIO, JPEGAndPICTExports) {
    const int w = 24, h = 16;
    Bytes rgba = Random(static_cast<size_t>(w) * h * 4, 17);
    Bytes png = EncodePNG(rgba, w, h, PNG_FORMAT_RGBA);
    CFDataRef data = MakeData(png);
    PlimCFImageLoader loader = PlimCFCreatePNGImageLoaderFromData(nullptr, data);
    CFRelease(data);
    CGImageRef cg = PlimCFImageLoaderCopyImage(loader);
    CFRelease(loader);

    // PICT data has no header and loads back through the PICT loader; a PICT file keeps it.
    PlimCFImageExporter pict = PlimCFImageExporterCreatePICT(nullptr);
    CFDataRef pictData = PlimCFImageExportCreateData(nullptr, pict, cg);
    ASSERT_NE(pictData, nullptr);
    std::string path = TempPath("out.pict");
    CFStringRef s = Str(path);
    PlimCFImageExportToFile(pict, cg, s);
    Bytes file = ReadFile(path);
    ASSERT_EQ(file.size(), static_cast<size_t>(CFDataGetLength(pictData)) + 512);
    EXPECT_EQ(0, std::memcmp(file.data() + 512, CFDataGetBytePtr(pictData), file.size() - 512));
    PlimCFImageLoader back = PlimCFCreatePICTImageLoaderFromData(nullptr, pictData);
    ASSERT_NE(back, nullptr);
    CGImageRef pictImage = PlimCFImageLoaderCopyImage(back);
    EXPECT_EQ(CGImageGetAlphaInfo(pictImage), kCGImageAlphaNoneSkipFirst);
    CGImageRelease(pictImage);
    CFRelease(back);
    CFRelease(pictData);
    CFRelease(s);
    CFRelease(pict);

    // PCT keeps its header and, read back as PCT, gives the image's unpremultiplied buffer.
    PlimCFImage wrapper = PlimCFImageCreateWithImage(nullptr, cg);
    PlimCFImagePromoteImage(wrapper, false, false);
    ASSERT_EQ(PlimCFImageGetBitsPerPixel(wrapper), 32u);
    Bytes expected(static_cast<const uint8_t *>(PlimCFImageGetImageBuffer(wrapper)),
                   static_cast<const uint8_t *>(PlimCFImageGetImageBuffer(wrapper)) +
                       PlimCFImageGetImageBufferSize(wrapper));
    testing::internal::CaptureStderr();
    PlimCFUnpremultiplyARGBBuffer(expected.data(), static_cast<UInt32>(expected.size()));
    testing::internal::GetCapturedStderr();
    CFRelease(wrapper);
    PlimCFImageExporter pct = PlimCFImageExporterCreatePCT(nullptr);
    CFDataRef pctData = PlimCFImageExportCreateData(nullptr, pct, cg);
    ASSERT_NE(pctData, nullptr);
    ASSERT_GT(CFDataGetLength(pctData), 512);
    for (int i = 0; i < 512; i++) ASSERT_EQ(CFDataGetBytePtr(pctData)[i], 0);
    PlimCFImageLoader pctLoader = PlimCFCreatePCTImageLoaderFromData(nullptr, pctData);
    ASSERT_NE(pctLoader, nullptr);
    CGImageRef pctImage = PlimCFImageLoaderCopyImage(pctLoader);
    EXPECT_EQ(CGImageGetAlphaInfo(pctImage), kCGImageAlphaFirst);
    EXPECT_EQ(PixelsOf(pctImage), expected);
    CGImageRelease(pctImage);
    CFRelease(pctLoader);
    CFRelease(pctData);
    CFRelease(pct);

    // JPEG: close to the input's colour.
    Bytes smooth = Gradient(w, h, 3);
    png = EncodePNG(smooth, w, h, PNG_FORMAT_RGB);
    data = MakeData(png);
    PlimCFImage image = PlimCFImageCreateWithData(nullptr, data);
    CFRelease(data);
    PlimCFImageExporter jpeg = PlimCFImageExporterCreateJPEG(nullptr);
    CFDataRef jpegData = PlimCFImageExportCreateData(nullptr, jpeg, PlimCFImageGetCGImage(image));
    ASSERT_NE(jpegData, nullptr);
    PlimCFImage decoded = PlimCFImageCreateWithFormattedData(nullptr, jpegData, 4);
    ASSERT_NE(decoded, nullptr);
    Bytes got = PixelsOf(PlimCFImageGetCGImage(decoded));
    double error = 0;
    for (size_t i = 0; i < smooth.size() / 3; i++)
        for (int c = 0; c < 3; c++) error += std::abs(got[i * 4 + 1 + c] - smooth[i * 3 + c]);
    EXPECT_LT(error / static_cast<double>(smooth.size()), 4.0);
    CFRelease(decoded);
    CFRelease(jpegData);
    CFRelease(jpeg);
    CFRelease(image);
    CGImageRelease(cg);
    std::remove(path.c_str());

    PlimCFImageExporter png2 = PlimCFImageExporterCreatePNG(nullptr);
    EXPECT_EQ(PlimCFImageExportCreateData(nullptr, png2, nullptr), nullptr);
    CFRelease(png2);
}
