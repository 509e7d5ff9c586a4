// A loaded JPEG's decoded pixels become the image's buffer without a copy, while the rendered
// image stays what it was: its pixels are decoded again from the file when read after that.
#include "io/IOTestSupport.h"
#include "platform/graphics/GraphicsTypes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

using namespace iotest;

namespace {

// Through the JPEG loader (a path ending in .jpg takes the same one).
PlimCFImage Load(const Bytes &file) {
    CFDataRef data = MakeData(file);
    PlimCFImage image = PlimCFImageCreateWithFormattedData(nullptr, data, kPlimImageFormatJPEG);
    CFRelease(data);
    return image;
}

// The buffer as drawing the rendered image into a fresh one makes it: through a second image
// holding the same rendered image, which can therefore not give its pixels up.
Bytes DrawnBuffer(CGImageRef rendered) {
    PlimCFImage other = PlimCFImageCreateWithImage(nullptr, rendered);
    const auto *p = static_cast<const uint8_t *>(PlimCFImageGetImageBuffer(other));
    Bytes out(p, p + PlimCFImageGetImageBufferSize(other));
    CFRelease(other);
    return out;
}

bool HoldsPixels(CGImageRef image) {
    return plim::graphics::ProviderData(CGImageGetDataProvider(image)) != nullptr;
}

// Opaque colour JPEGs: RGB (libjpeg-turbo writes X,R,G,B) and Adobe CMYK (converted by us).
std::vector<Bytes> OpaqueColourJPEGs(int w, int h) {
    Bytes cmyk = Random(static_cast<size_t>(w) * h * 4, 21);
    return {EncodeJPEG(Gradient(w, h, 3), w, h, 3, JCS_RGB), EncodeJPEG(cmyk, w, h, 4, JCS_CMYK)};
}

}  // namespace

TEST(JPEGBuffer, DecodedPixelsBecomeTheBufferAndTheRenderedImageKeepsItsOwn) {
    const UInt64 limit = PlimGetDecodingPixelLimit();
    for (const Bytes &file : OpaqueColourJPEGs(61, 47)) {
        PlimCFImage image = Load(file);
        ASSERT_TRUE(image);
        CGImageRef rendered = PlimCFImageGetCGImage(image);
        const Bytes pixels = PixelsOf(rendered);
        const Bytes drawn = DrawnBuffer(rendered);
        ASSERT_TRUE(HoldsPixels(rendered));

        auto *buffer = static_cast<uint8_t *>(PlimCFImageGetImageBuffer(image));
        ASSERT_NE(buffer, nullptr);
        EXPECT_FALSE(HoldsPixels(rendered)) << "the decoded block was not handed over";
        EXPECT_EQ(PlimCFImageGetCGImage(image), rendered) << "an unchanged promotion keeps the rendered image";
        EXPECT_EQ(PlimCFImageGetAlphaInfo(image), kCGImageAlphaNoneSkipFirst);
        ASSERT_EQ(PlimCFImageGetImageBufferSize(image), drawn.size());
        EXPECT_EQ(Bytes(buffer, buffer + drawn.size()), drawn);

        // Changes to the buffer never reach the rendered image, which decodes its file again,
        // even under a pixel limit lowered since it was loaded.
        std::memset(buffer, 0x5A, drawn.size());
        PlimSetDecodingPixelLimit(1);
        EXPECT_EQ(PixelsOf(rendered), pixels);
        PlimSetDecodingPixelLimit(limit);
        EXPECT_TRUE(HoldsPixels(rendered));
        // And once the buffer's change is announced, the next rendered image shows it.
        PlimCFImageInvalidateImage(image);
        EXPECT_EQ(PixelsOf(PlimCFImageGetCGImage(image)), Bytes(drawn.size(), 0x5A));
        CFRelease(image);
    }
}

TEST(JPEGBuffer, PixelsHeldElsewhereAreCopiedAndHandedOverPixelsAreRemadeOnce) {
    for (const Bytes &file : OpaqueColourJPEGs(33, 20)) {
        // A caller holding the rendered image: the promotion draws a copy and the image keeps its own.
        PlimCFImage image = Load(file);
        ASSERT_TRUE(image);
        CGImageRef held = CGImageRetain(PlimCFImageGetCGImage(image));
        const Bytes pixels = PixelsOf(held);
        auto *buffer = static_cast<uint8_t *>(PlimCFImageGetImageBuffer(image));
        ASSERT_NE(buffer, nullptr);
        EXPECT_TRUE(HoldsPixels(held));
        std::memset(buffer, 0, PlimCFImageGetImageBufferSize(image));
        CFRelease(image);
        EXPECT_EQ(PixelsOf(held), pixels);
        CGImageRelease(held);

        // Handed over, then read from several threads at once: each sees the same pixels.
        image = Load(file);
        CGImageRef rendered = PlimCFImageGetCGImage(image);
        const Bytes expected = PixelsOf(rendered);
        ASSERT_NE(PlimCFImageGetImageBuffer(image), nullptr);
        ASSERT_FALSE(HoldsPixels(rendered));
        Bytes seen[4];
        std::vector<std::thread> readers;
        for (Bytes &s : seen) readers.emplace_back([&s, rendered] { s = PixelsOf(rendered); });
        for (std::thread &t : readers) t.join();
        for (const Bytes &s : seen) EXPECT_EQ(s, expected);
        // A forced promotion draws the rendered image again, from its remade pixels; the opaque
        // picture as premultiplied ARGB has the same bytes as the handed-over buffer had.
        PlimCFImage forced = Load(file);
        CGImageRef forcedRendered = PlimCFImageGetCGImage(forced);
        const Bytes drawn = DrawnBuffer(forcedRendered);
        auto *before = static_cast<uint8_t *>(PlimCFImageGetImageBuffer(forced));
        ASSERT_NE(before, nullptr);
        ASSERT_FALSE(HoldsPixels(forcedRendered));
        std::memset(before, 0x5A, drawn.size());
        PlimCFImagePromoteImage(forced, false, true);
        EXPECT_EQ(PlimCFImageGetAlphaInfo(forced), kCGImageAlphaPremultipliedFirst);
        const auto *after = static_cast<const uint8_t *>(PlimCFImageGetImageBuffer(forced));
        ASSERT_NE(after, nullptr);
        EXPECT_EQ(Bytes(after, after + drawn.size()), drawn);
        CFRelease(forced);
        // An export reads the remade pixels too.
        PlimCFImageExporter png = PlimCFImageExporterCreatePNG(nullptr);
        CFDataRef exported = PlimCFImageExportCreateData(nullptr, png, rendered);
        EXPECT_NE(exported, nullptr);
        if (exported) CFRelease(exported);
        CFRelease(png);
        CFRelease(image);
    }
}
