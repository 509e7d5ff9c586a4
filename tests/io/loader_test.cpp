#include "io/IOTestSupport.h"

#include <gtest/gtest.h>

using namespace iotest;

namespace {

CGImageRef LoadWith(PlimCFImageLoader (*create)(CFAllocatorRef, CFDataRef), const Bytes &file) {
    CFDataRef data = MakeData(file);
    PlimCFImageLoader loader = create(nullptr, data);
    CFRelease(data);
    if (!loader) return nullptr;
    CGImageRef image = PlimCFImageLoaderCopyImage(loader);
    CFRelease(loader);
    return image;
}

struct PNGCase {
    png_uint_32 format;
    int channels;
};

}  // namespace

TEST(ImageLoader, PNGMatchesBareLibpngForEveryColourType) {
    const PNGCase cases[] = {{PNG_FORMAT_RGB, 3}, {PNG_FORMAT_RGBA, 4}, {PNG_FORMAT_GRAY, 1},
                             {PNG_FORMAT_GA, 2}, {PNG_FORMAT_RGBA_COLORMAP, 1}};
    for (const PNGCase &c : cases) {
        const int w = 37, h = 23;
        Bytes pixels = Random(static_cast<size_t>(w) * h * c.channels, c.format);
        Bytes map = Random(256 * 4, 77);  // palette with per-entry alpha: PLTE + tRNS
        Bytes file = EncodePNG(pixels, w, h, c.format, c.channels == 1 && (c.format & PNG_FORMAT_FLAG_COLORMAP) ? &map : nullptr);
        ASSERT_FALSE(file.empty()) << c.format;
        bool grey = false;
        Bytes expected = BarePNG(file, &grey);
        CGImageRef image = LoadWith(PlimCFCreatePNGImageLoaderFromData, file);
        ASSERT_NE(image, nullptr) << c.format;
        EXPECT_EQ(CGImageGetWidth(image), size_t{w});
        EXPECT_EQ(CGImageGetHeight(image), size_t{h});
        EXPECT_EQ(CGImageGetBitsPerPixel(image), grey ? 8u : 32u);
        Bytes got = PixelsOf(image);
        bool alpha = (c.format & PNG_FORMAT_FLAG_ALPHA) != 0;
        EXPECT_EQ(CGImageGetAlphaInfo(image),
                  grey ? kCGImageAlphaNone : alpha ? kCGImageAlphaFirst : kCGImageAlphaNoneSkipFirst);
        if (!alpha && !grey) {  // skipped alpha bytes are 255, as the bare decode's opaque alpha
            for (size_t i = 0; i < got.size(); i += 4) EXPECT_EQ(got[i], 255);
        }
        EXPECT_EQ(got, expected) << "format " << c.format;
        CGImageRelease(image);
    }
}

TEST(ImageLoader, JPEGMatchesBareLibjpegAndCMYKBecomesRGB) {
    const int w = 40, h = 30;
    Bytes rgb = Gradient(w, h, 3);
    Bytes file = EncodeJPEG(rgb, w, h, 3, JCS_RGB);
    int components = 0;
    Bytes bare = BareJPEG(file, &components);
    CGImageRef image = LoadWith(PlimCFCreateJPEGImageLoaderFromData, file);
    ASSERT_NE(image, nullptr);
    Bytes got = PixelsOf(image);
    ASSERT_EQ(got.size(), bare.size() / 3 * 4);
    for (size_t i = 0; i < bare.size() / 3; i++) {
        EXPECT_EQ(got[i * 4], 255);
        ASSERT_EQ(0, std::memcmp(&got[i * 4 + 1], &bare[i * 3], 3)) << i;
    }
    CGImageRelease(image);

    Bytes grey = Gradient(w, h, 1);
    file = EncodeJPEG(grey, w, h, 1, JCS_GRAYSCALE);
    bare = BareJPEG(file, &components);
    image = LoadWith(PlimCFCreateJPEGImageLoaderFromData, file);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(CGImageGetBitsPerPixel(image), 8u);
    EXPECT_EQ(PixelsOf(image), bare);
    CGImageRelease(image);

    // CMYK with the Adobe marker stores inverted inks: 255 is no ink (white), K 0 is black.
    Bytes cmyk(static_cast<size_t>(w) * h * 4, 255);
    for (size_t i = static_cast<size_t>(w) * h / 2; i < static_cast<size_t>(w) * h; i++) cmyk[i * 4 + 3] = 0;
    file = EncodeJPEG(cmyk, w, h, 4, JCS_CMYK, 100);
    image = LoadWith(PlimCFCreateJPEGImageLoaderFromData, file);
    ASSERT_NE(image, nullptr);
    got = PixelsOf(image);
    EXPECT_GE(got[1], 250);
    EXPECT_LE(got[got.size() - 2], 5);
    CGImageRelease(image);

    // Not JPEG: null from the JPEG loader.
    Bytes png = EncodePNG(Random(12, 1), 2, 2, PNG_FORMAT_RGB);
    EXPECT_EQ(LoadWith(PlimCFCreateJPEGImageLoaderFromData, png), nullptr);
}

TEST(ImageLoader, CorruptAndTruncatedInputGivesNull) {
    Bytes png = EncodePNG(Random(64 * 64 * 4, 3), 64, 64, PNG_FORMAT_RGBA);
    Bytes jpeg = EncodeJPEG(Gradient(64, 64, 3), 64, 64, 3, JCS_RGB);
    testing::internal::CaptureStderr();
    for (size_t cut : {size_t{0}, size_t{4}, size_t{20}, size_t{60}, size_t{200}}) {
        Bytes p(png.begin(), png.begin() + static_cast<long>(std::min(cut, png.size())));
        Bytes j(jpeg.begin(), jpeg.begin() + static_cast<long>(std::min(cut, jpeg.size())));
        EXPECT_EQ(LoadWith(PlimCFCreatePNGImageLoaderFromData, p), nullptr);
        EXPECT_EQ(LoadWith(PlimCFCreateUnknownImageLoaderFromData, p), nullptr);
        EXPECT_EQ(LoadWith(PlimCFCreatePICTImageLoaderFromData, p), nullptr);
        EXPECT_EQ(LoadWith(PlimCFCreatePCTImageLoaderFromData, p), nullptr);
    }
    // Flipped bytes must never crash; whatever loads is the right size.
    std::mt19937 rng(9);
    for (int round = 0; round < 200; round++) {
        Bytes p = round % 2 ? png : jpeg;
        for (int k = 0; k < 4; k++) p[rng() % p.size()] ^= static_cast<uint8_t>(1u << (rng() % 8));
        CGImageRef image = LoadWith(PlimCFCreateUnknownImageLoaderFromData, p);
        if (image) CGImageRelease(image);
    }
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(PlimCFImageLoaderCopyImage(nullptr), nullptr);
    EXPECT_EQ(PlimCFCreatePNGImageLoaderFromData(nullptr, nullptr), nullptr);
    EXPECT_EQ(PlimCFCreateUnknownImageLoaderFromPath(nullptr, nullptr), nullptr);
}

TEST(ImageLoader, ImporterDepthsChooseTheDocumentedLayouts) {
    // Grey PNG through the importer: 8-bit grey, generic grey colour space.
    Bytes grey = Random(10 * 3, 5);
    Bytes file = EncodePNG(grey, 10, 3, PNG_FORMAT_GRAY);
    CGImageRef image = LoadWith(PlimCFCreateUnknownImageLoaderFromData, file);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(CGImageGetBitsPerPixel(image), 8u);
    EXPECT_EQ(CGImageGetAlphaInfo(image), kCGImageAlphaNone);
    EXPECT_EQ(CGColorSpaceGetModel(CGImageGetColorSpace(image)), kCGColorSpaceModelMonochrome);
    EXPECT_EQ(PixelsOf(image), grey);
    CGImageRelease(image);

    // RGBA through the importer: premultiplied, alpha first.
    Bytes rgba = Random(5 * 4 * 4, 6);
    file = EncodePNG(rgba, 5, 4, PNG_FORMAT_RGBA);
    image = LoadWith(PlimCFCreateUnknownImageLoaderFromData, file);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(CGImageGetAlphaInfo(image), kCGImageAlphaPremultipliedFirst);
    Bytes got = PixelsOf(image);
    for (size_t i = 0; i < 20; i++) {
        EXPECT_EQ(got[i * 4], rgba[i * 4 + 3]);
        for (int c = 0; c < 3; c++)
            EXPECT_NEAR(got[i * 4 + 1 + c], rgba[i * 4 + c] * rgba[i * 4 + 3] / 255.0, 0.51);
    }
    CGImageRelease(image);

    // A 1-bit image 10 pixels wide: rows of 2 bytes, white stays white.
    Bytes bits(10 * 2);
    for (size_t i = 0; i < bits.size(); i++) bits[i] = i % 3 ? 255 : 0;
    png_image pi;
    std::memset(&pi, 0, sizeof pi);
    // Write a real 1-bit file with the full API.
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    Bytes out;
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep d, png_size_t n) {
            auto *o = static_cast<Bytes *>(png_get_io_ptr(p));
            o->insert(o->end(), d, d + n);
        },
        nullptr);
    png_set_IHDR(png, info, 10, 2, 1, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < 2; y++) {
        uint8_t row[2] = {0, 0};
        for (int x = 0; x < 10; x++)
            if (bits[y * 10 + x]) row[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
        png_write_row(png, row);
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    image = LoadWith(PlimCFCreateUnknownImageLoaderFromData, out);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(CGImageGetBitsPerComponent(image), 1u);
    EXPECT_EQ(CGImageGetBytesPerRow(image), 2u);
    got = PixelsOf(image);
    for (int y = 0; y < 2; y++)
        for (int x = 0; x < 10; x++)
            EXPECT_EQ((got[y * 2 + x / 8] >> (7 - x % 8)) & 1, bits[y * 10 + x] ? 1 : 0);
    CGImageRelease(image);
}

TEST(ImageLoader, FormattedLoaderUsesTheNamedImporter) {
    Bytes file = EncodePNG(Random(6 * 6 * 3, 8), 6, 6, PNG_FORMAT_RGB);
    CFDataRef data = MakeData(file);
    PlimCFImageLoader loader = PlimCFCreateFormattedImageLoaderFromData(nullptr, data, 0x504E4766u);
    ASSERT_NE(loader, nullptr);
    EXPECT_EQ(CFGetTypeID(loader), PlimCFImageLoaderGetTypeID());
    CFRelease(loader);
    EXPECT_EQ(PlimCFCreateFormattedImageLoaderFromData(nullptr, data, 0x4A504547u), nullptr);
    EXPECT_EQ(PlimCFCreateFormattedImageLoaderFromData(nullptr, data, 0x6E6F6E65u), nullptr);
    CFRelease(data);
}

TEST(ImageLoader, PICTDataGetsTheHeaderAndDamagedPicturesSaySo) {
    Bytes rgb = Random(9 * 7 * 3, 21);
    CFDataRef png = MakeData(EncodePNG(rgb, 9, 7, PNG_FORMAT_RGB));
    PlimCFImageLoader loader = PlimCFCreatePNGImageLoaderFromData(nullptr, png);
    CFRelease(png);
    CGImageRef cg = PlimCFImageLoaderCopyImage(loader);
    CFRelease(loader);
    PlimCFImageExporter exporter = PlimCFImageExporterCreatePICT(nullptr);
    CFDataRef pict = PlimCFImageExportCreateData(nullptr, exporter, cg);
    CFRelease(exporter);
    ASSERT_NE(pict, nullptr);
    Bytes picture(CFDataGetBytePtr(pict), CFDataGetBytePtr(pict) + CFDataGetLength(pict));
    CFRelease(pict);

    // Picture data loads through the PICT loader and, as the importer sees a whole file, through
    // the PCT loader once 512 bytes are put in front.
    CGImageRef image = LoadWith(PlimCFCreatePICTImageLoaderFromData, picture);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(PixelsOf(image), PixelsOf(cg));
    CGImageRelease(image);
    Bytes withHeader(512, 0);
    withHeader.insert(withHeader.end(), picture.begin(), picture.end());
    image = LoadWith(PlimCFCreatePCTImageLoaderFromData, withHeader);
    ASSERT_NE(image, nullptr);
    CGImageRelease(image);
    testing::internal::CaptureStderr();
    EXPECT_EQ(LoadWith(PlimCFCreatePCTImageLoaderFromData, picture), nullptr);
    testing::internal::GetCapturedStderr();

    // A picture cut short: the importer reports corrupt data and the loader says so.
    Bytes cut(picture.begin(), picture.begin() + static_cast<long>(picture.size() / 2));
    testing::internal::CaptureStderr();
    EXPECT_EQ(LoadWith(PlimCFCreatePICTImageLoaderFromData, cut), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Corrupt PICT data found, cannot load image\n");
    CGImageRelease(cg);
}
