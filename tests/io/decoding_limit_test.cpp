// The decoding pixel limit, and files whose header promises more than their data holds: every
// decoder refuses them, whichever front door they come through.
#include "io/IOTestSupport.h"
#include "platform/media/PictTestSupport.h"

#include <gtest/gtest.h>

#include <functional>

using namespace iotest;

namespace {

// Restores the process-wide limit when a test ends, whatever it set.
struct LimitGuard {
    UInt64 saved = PlimGetDecodingPixelLimit();
    ~LimitGuard() { PlimSetDecodingPixelLimit(saved); }
};

void PutBE16(Bytes &b, size_t at, unsigned v) {
    b[at] = static_cast<uint8_t>(v >> 8);
    b[at + 1] = static_cast<uint8_t>(v);
}

void PutBE32(Bytes &b, size_t at, uint32_t v) {
    PutBE16(b, at, v >> 16);
    PutBE16(b, at + 2, v & 0xFFFF);
}

uint32_t Crc32(const uint8_t *p, size_t n) {
    uint32_t c = 0xFFFFFFFFu;
    for (size_t i = 0; i < n; i++) {
        c ^= p[i];
        for (int k = 0; k < 8; k++) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
    }
    return ~c;
}

// Offset of the first JPEG marker `code` (the 0xFF byte).
size_t FindMarker(const Bytes &jpeg, uint8_t code) {
    for (size_t i = 2; i + 1 < jpeg.size(); i++)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == code) return i;
    ADD_FAILURE() << "no marker " << int{code};
    return 0;
}

// A small JPEG whose frame header claims width x height, cut `extra` bytes after its scan
// header (if it is that long).
Bytes JPEGClaiming(unsigned width, unsigned height, size_t extra) {
    Bytes jpeg = EncodeJPEG(Gradient(16, 16, 1), 16, 16, 1, JCS_GRAYSCALE);
    size_t sof = FindMarker(jpeg, 0xC0), sos = FindMarker(jpeg, 0xDA);
    PutBE16(jpeg, sof + 5, height);
    PutBE16(jpeg, sof + 7, width);
    size_t scan = sos + 2 + (static_cast<size_t>(jpeg[sos + 2]) << 8 | jpeg[sos + 3]);
    if (extra < jpeg.size() - scan) jpeg.resize(scan + extra);
    return jpeg;
}

// A small PNG whose header claims width x height (with a valid checksum), cut right after the
// first image data chunk's length and type.
Bytes PNGClaimingWithoutPixels(uint32_t width, uint32_t height) {
    Bytes png = EncodePNG(Bytes(16 * 16, 0x80), 16, 16, PNG_FORMAT_GRAY);
    PutBE32(png, 16, width);
    PutBE32(png, 20, height);
    PutBE32(png, 29, Crc32(&png[12], 17));
    for (size_t at = 8; at + 8 <= png.size();) {
        uint32_t length = static_cast<uint32_t>(png[at]) << 24 | png[at + 1] << 16 | png[at + 2] << 8 | png[at + 3];
        if (std::memcmp(&png[at + 4], "IDAT", 4) == 0) {
            png.resize(at + 8);
            return png;
        }
        at += 12 + length;
    }
    ADD_FAILURE() << "no image data chunk";
    return png;
}

// A GIF of a width x height screen and frame with a two-colour table, ending after the frame's
// descriptor when `withPixels` is false, else after a few bytes of compressed pixels.
Bytes GIFClaiming(unsigned width, unsigned height, bool withPixels) {
    Bytes gif = {'G', 'I', 'F', '8', '9', 'a', 0, 0, 0, 0, 0x80, 0, 0, 0, 0, 0, 255, 255, 255};
    gif[6] = static_cast<uint8_t>(width), gif[7] = static_cast<uint8_t>(width >> 8);
    gif[8] = static_cast<uint8_t>(height), gif[9] = static_cast<uint8_t>(height >> 8);
    Bytes frame = {0x2C, 0, 0, 0, 0, gif[6], gif[7], gif[8], gif[9], 0};
    gif.insert(gif.end(), frame.begin(), frame.end());
    if (withPixels) gif.insert(gif.end(), {2, 2, 0x44, 0x01, 0, 0x3B});
    return gif;
}

// A little-endian grey TIFF of width x height whose one strip starts past the end of the file.
Bytes TIFFClaimingWithoutPixels(uint32_t width, uint32_t height) {
    struct Entry {
        uint16_t tag, type;
        uint32_t value;
    };
    const Entry entries[] = {{256, 4, width}, {257, 4, height}, {258, 3, 8},      {259, 3, 1},
                             {262, 3, 1},     {273, 4, 100000}, {277, 3, 1},      {278, 4, height},
                             {279, 4, width * height}};
    Bytes tiff = {'I', 'I', 42, 0, 8, 0, 0, 0, static_cast<uint8_t>(std::size(entries)), 0};
    for (const Entry &e : entries) {
        Bytes field(12, 0);
        field[0] = static_cast<uint8_t>(e.tag), field[1] = static_cast<uint8_t>(e.tag >> 8);
        field[2] = static_cast<uint8_t>(e.type);
        field[4] = 1;
        Put32(field, 8, e.value);
        tiff.insert(tiff.end(), field.begin(), field.end());
    }
    tiff.insert(tiff.end(), 4, 0);
    return tiff;
}

// A 24-bit BMP header of width x height with no pixel data.
Bytes BMPClaimingWithoutPixels(uint32_t width, uint32_t height) {
    Bytes bmp = MakeBMP(Bytes(3, 0), 1, 1);
    Put32(bmp, 18, width);
    Put32(bmp, 22, height);
    bmp.resize(54);
    return bmp;
}

// A version 2 picture (no file header): one pixel of direct colour drawn over `drawn`, in a
// frame of frameWidth x frameHeight or, when `source` is given, in an extended header's source
// rectangle. With `cut`, the picture ends inside the pixel's data.
Bytes PictDrawing(int frameWidth, int frameHeight, pict_test::Rect drawn, const pict_test::Rect *source = nullptr,
                  bool cut = false) {
    pict_test::PictBuilder b(2, pict_test::Rect{0, 0, frameHeight, frameWidth}, source);
    b.directOp(0x9A, 4, pict_test::Rect{0, 0, 1, 1}, 0, 32, 3, drawn);
    b.bytes({0, 200, 100, 50});
    b.end();
    Bytes picture = b.data();
    if (cut) picture.resize(picture.size() - 5);
    return picture;
}

Bytes WithPictHeader(Bytes picture) {
    picture.insert(picture.begin(), 512, 0);
    return picture;
}

PlimCFImage FromData(const Bytes &file, PlimImageFormat format) {
    CFDataRef data = MakeData(file);
    PlimCFImage image = PlimCFImageCreateWithFormattedData(nullptr, data, format);
    CFRelease(data);
    return image;
}

// Whether the bytes load through the data front door with the format's code and through the
// content-recognising loader; both must agree.
bool Loads(const Bytes &file, PlimImageFormat format) {
    PlimCFImage byFormat = FromData(file, format);
    CFDataRef data = MakeData(file);
    PlimCFImageLoader byContent = PlimCFCreateUnknownImageLoaderFromData(nullptr, data);
    CFRelease(data);
    // PICT data without its header is recognised by content only as a complete file.
    const bool contentApplies = format != kPlimImageFormatPICT;
    EXPECT_TRUE(!contentApplies || (byFormat != nullptr) == (byContent != nullptr)) << "format " << format;
    bool loaded = byFormat != nullptr;
    if (byFormat) CFRelease(byFormat);
    if (byContent) CFRelease(byContent);
    return loaded;
}

struct Sample {
    const char *name;
    Bytes file;
    PlimImageFormat format;  // 0: recognised by content
};

// 24 x 10 pictures in every format a decoder reads.
std::vector<Sample> Samples() {
    const int w = 24, h = 10;
    PlimCFImage image = PlimCFImageCreateWithSize(nullptr, CGSizeMake(w, h), true);
    CFDataRef tiff = PlimCFImageCopyTIFFData(nullptr, image);
    PlimCFImageExporter pict = PlimCFImageExporterCreatePICT(nullptr);
    CFDataRef picture = PlimCFImageExportCreateData(nullptr, pict, PlimCFImageGetCGImage(image));
    Bytes tiffBytes(CFDataGetBytePtr(tiff), CFDataGetBytePtr(tiff) + CFDataGetLength(tiff));
    Bytes pictBytes(CFDataGetBytePtr(picture), CFDataGetBytePtr(picture) + CFDataGetLength(picture));
    CFRelease(picture);
    CFRelease(pict);
    CFRelease(tiff);
    CFRelease(image);
    Bytes palette = Random(256 * 3, 5), indexes = Random(w * h, 6);
    return {{"PNG", EncodePNG(Random(w * h * 4, 1), w, h, PNG_FORMAT_RGBA), kPlimImageFormatPNG},
            {"JPEG", EncodeJPEG(Gradient(w, h, 3), w, h, 3, JCS_RGB), kPlimImageFormatJPEG},
            {"TIFF", tiffBytes, kPlimImageFormatUnknown},
            {"GIF", MakeGIF(indexes, w, h, palette, -1), kPlimImageFormatUnknown},
            {"interlaced GIF", MakeGIF(indexes, w, h, palette, -1, true), kPlimImageFormatUnknown},
            {"BMP", MakeBMP(Random(w * h * 3, 7), w, h), kPlimImageFormatUnknown},
            {"PICT", pictBytes, kPlimImageFormatPICT},
            {"PCT", WithPictHeader(pictBytes), kPlimImageFormatPCT}};
}

TEST(DecodingLimit, EveryDecoderHonoursTheLimitToThePixel) {
    LimitGuard guard;
    EXPECT_EQ(PlimGetDecodingPixelLimit(), kPlimDefaultDecodingPixelLimit);
    for (const Sample &s : Samples()) {
        ASSERT_FALSE(s.file.empty()) << s.name;
        PlimSetDecodingPixelLimit(240);
        EXPECT_TRUE(Loads(s.file, s.format)) << s.name << " at the limit";
        PlimSetDecodingPixelLimit(239);
        EXPECT_FALSE(Loads(s.file, s.format)) << s.name << " one pixel over the limit";
    }
    // The loaders of PNG and JPEG decode through the graphics layer's own decoders.
    PlimSetDecodingPixelLimit(239);
    std::vector<Sample> samples = Samples();
    for (int i = 0; i < 2; i++) {
        CFDataRef data = MakeData(samples[i].file);
        PlimCFImageLoader loader = i == 0 ? PlimCFCreatePNGImageLoaderFromData(nullptr, data)
                                          : PlimCFCreateJPEGImageLoaderFromData(nullptr, data);
        EXPECT_EQ(loader, nullptr) << samples[i].name;
        if (loader) CFRelease(loader);
        CFRelease(data);
    }
    // 0, or anything past what 32-bit buffer sizes can hold, sets the largest limit.
    PlimSetDecodingPixelLimit(0);
    EXPECT_EQ(PlimGetDecodingPixelLimit(), kPlimMaximumDecodingPixelLimit);
    PlimSetDecodingPixelLimit(UINT64_MAX);
    EXPECT_EQ(PlimGetDecodingPixelLimit(), kPlimMaximumDecodingPixelLimit);
    PlimSetDecodingPixelLimit(1000);
    EXPECT_EQ(PlimGetDecodingPixelLimit(), 1000u);
}

TEST(DecodingLimit, TinyFilesThatPromiseHugePicturesAreRefusedByDefault) {
    // A 35-byte GIF, a truncated JPEG of about 300 bytes and a picture of a few hundred bytes,
    // each 16384 x 16384 pixels (1 GiB decoded); a 6 x 8 picture whose extended header blows it
    // up to 8263 x 27133.
    Bytes gif = GIFClaiming(16384, 16384, true);
    Bytes jpeg = JPEGClaiming(16384, 16384, 24);
    Bytes huge = PictDrawing(16384, 16384, pict_test::Rect{0, 0, 16384, 16384});
    const pict_test::Rect source{0, 0, 27133, 8263};
    Bytes blownUp = PictDrawing(6, 8, pict_test::Rect{0, 0, 27133, 8263}, &source);
    EXPECT_FALSE(Loads(gif, kPlimImageFormatUnknown));
    EXPECT_FALSE(Loads(jpeg, kPlimImageFormatJPEG));
    for (const Bytes *picture : {&huge, &blownUp}) {
        EXPECT_FALSE(Loads(*picture, kPlimImageFormatPICT));
        EXPECT_FALSE(Loads(WithPictHeader(*picture), kPlimImageFormatPCT));
    }
    // The same shapes at a size the limit allows load (the pictures are drawn in full).
    EXPECT_TRUE(Loads(PictDrawing(300, 200, pict_test::Rect{0, 0, 200, 300}), kPlimImageFormatPICT));
    const pict_test::Rect smaller{0, 0, 270, 82};
    EXPECT_TRUE(Loads(PictDrawing(6, 8, pict_test::Rect{0, 0, 270, 82}, &smaller), kPlimImageFormatPICT));

    // A legitimately large picture well below the limit loads with the default.
    const int w = 8192, h = 4096;
    Bytes big = EncodePNG(Bytes(static_cast<size_t>(w) * h, 0x30), w, h, PNG_FORMAT_GRAY);
    PlimCFImage image = FromData(big, kPlimImageFormatPNG);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(PlimCFImageGetWidth(image), static_cast<UInt32>(w));
    EXPECT_EQ(PlimCFImageGetHeight(image), static_cast<UInt32>(h));
    CFRelease(image);
}

TEST(DecodingLimit, FilesThatEndBeforeTheirPixelDataAreRefused) {
    // 10000 x 10000 is below the default limit: only the missing data can refuse these.
    const uint32_t side = 10000;
    ASSERT_LT(uint64_t{side} * side, PlimGetDecodingPixelLimit());
    EXPECT_FALSE(Loads(PNGClaimingWithoutPixels(side, side), kPlimImageFormatPNG));
    EXPECT_FALSE(Loads(JPEGClaiming(side, side, 0), kPlimImageFormatJPEG));
    Bytes withEnd = JPEGClaiming(side, side, 0);
    withEnd.insert(withEnd.end(), {0xFF, 0xD9});
    EXPECT_FALSE(Loads(withEnd, kPlimImageFormatJPEG));
    EXPECT_FALSE(Loads(GIFClaiming(side, side, false), kPlimImageFormatUnknown));
    EXPECT_FALSE(Loads(TIFFClaimingWithoutPixels(side, side), kPlimImageFormatUnknown));
    EXPECT_FALSE(Loads(BMPClaimingWithoutPixels(side, side), kPlimImageFormatUnknown));
    const int pictSide = 20000;
    Bytes picture = PictDrawing(pictSide, pictSide, pict_test::Rect{0, 0, pictSide, pictSide}, nullptr, true);
    EXPECT_FALSE(Loads(picture, kPlimImageFormatPICT));
    EXPECT_FALSE(Loads(WithPictHeader(picture), kPlimImageFormatPCT));

    // The same headers over complete data of a small picture load, so the refusals above are
    // about the missing data.
    EXPECT_TRUE(Loads(JPEGClaiming(16, 16, SIZE_MAX), kPlimImageFormatJPEG));
    EXPECT_TRUE(Loads(PictDrawing(20, 20, pict_test::Rect{0, 0, 20, 20}), kPlimImageFormatPICT));
}

TEST(DecodingLimit, InterlacedGIFRowsLandInOrder) {
    const int w = 7, h = 19;  // every pass has rows, the last ones short
    Bytes palette = Random(256 * 3, 11), indexes = Random(static_cast<size_t>(w) * h, 12);
    PlimCFImage plain = FromData(MakeGIF(indexes, w, h, palette, -1), kPlimImageFormatUnknown);
    PlimCFImage interlaced = FromData(MakeGIF(indexes, w, h, palette, -1, true), kPlimImageFormatUnknown);
    ASSERT_NE(plain, nullptr);
    ASSERT_NE(interlaced, nullptr);
    Bytes a = PixelsOf(PlimCFImageGetCGImage(plain)), b = PixelsOf(PlimCFImageGetCGImage(interlaced));
    ASSERT_EQ(a.size(), static_cast<size_t>(w) * h * 4);
    EXPECT_EQ(a, b);
    for (size_t i = 0; i < indexes.size(); i++)
        ASSERT_EQ(0, std::memcmp(&a[i * 4 + 1], &palette[indexes[i] * 3], 3)) << i;
    CFRelease(plain);
    CFRelease(interlaced);
}

}  // namespace
