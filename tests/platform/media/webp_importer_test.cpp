// The WebP importer decodes straight into a drawing surface of the picture's size and through its
// own raster into any other: both routes give the same premultiplied pixels, however often and in
// whichever order the picture is drawn.
#include <PlimBitmapLib/PlimPixelBuffer.h>
#include <PlimBitmapLib/platform/MacMemory.h>
#include <PlimBitmapLib/platform/QuickTimeComponents.h>

#include <gtest/gtest.h>

#include <webp/encode.h>

#include <random>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// Draws the importer's picture into a fresh 32-bit surface of w x h pixels, rows `rowBytes` apart.
Bytes Draw(GraphicsImportComponent importer, int w, int h, size_t rowBytes) {
    Bytes pixels(rowBytes * static_cast<size_t>(h), 0xEE);
    GWorldPtr world = nullptr;
    const Rect bounds{0, 0, static_cast<SInt16>(h), static_cast<SInt16>(w)};
    EXPECT_EQ(NewGWorldFromPtr(&world, k32ARGBPixelFormat, &bounds, nullptr, nullptr, 0,
                               reinterpret_cast<Ptr>(pixels.data()), static_cast<SInt32>(rowBytes)),
              noErr);
    EXPECT_EQ(GraphicsImportSetGWorld(importer, world, nullptr), noErr);
    EXPECT_EQ(GraphicsImportDraw(importer), noErr);
    DisposeGWorld(world);
    return pixels;
}

// The picture's rows out of a surface's.
Bytes Picture(const Bytes &surface, size_t rowBytes, int w, int h) {
    Bytes out;
    for (int y = 0; y < h; y++)
        out.insert(out.end(), surface.begin() + static_cast<long>(rowBytes * y),
                   surface.begin() + static_cast<long>(rowBytes * y + static_cast<size_t>(w) * 4));
    return out;
}

}  // namespace

TEST(WebPImporter, DirectAndRasterDrawingAgree) {
    const int w = 13, h = 9;
    std::mt19937 rng(11);
    Bytes rgba(static_cast<size_t>(w) * h * 4), want;
    for (uint8_t &b : rgba) b = static_cast<uint8_t>(rng());
    for (size_t i = 0; i < rgba.size(); i += 4)
        want.insert(want.end(), {rgba[i + 3], rgba[i], rgba[i + 1], rgba[i + 2]});
    PlimCFPremultiplyARGBBuffer(want.data(), static_cast<UInt32>(want.size()));
    uint8_t *encoded = nullptr;
    const size_t size = WebPEncodeLosslessRGBA(rgba.data(), w, h, w * 4, &encoded);
    ASSERT_GT(size, 0u);
    Handle file = nullptr;
    ASSERT_EQ(PtrToHand(encoded, &file, static_cast<long>(size)), noErr);
    WebPFree(encoded);

    GraphicsImportComponent importer = nullptr;
    ASSERT_EQ(OpenADefaultComponent(GraphicsImporterComponentType, 0x57454250 /* 'WEBP' */, &importer), noErr);
    ASSERT_EQ(GraphicsImportSetDataHandle(importer, file), noErr);
    ImageDescriptionHandle desc = nullptr;
    ASSERT_EQ(GraphicsImportGetImageDescription(importer, &desc), noErr);
    EXPECT_EQ((*desc)->width, w);
    EXPECT_EQ((*desc)->height, h);
    EXPECT_EQ((*desc)->depth, 32);
    DisposeHandle(reinterpret_cast<Handle>(desc));

    const size_t padded = w * 4 + 12, wide = 20 * 4;
    EXPECT_EQ(Picture(Draw(importer, w, h, padded), padded, w, h), want) << "straight into the surface";
    EXPECT_EQ(Picture(Draw(importer, 20, 11, wide), wide, w, h), want) << "through the raster";
    EXPECT_EQ(Picture(Draw(importer, w, h, padded), padded, w, h), want) << "again, from the raster";
    CloseComponent(importer);
    DisposeHandle(file);
}
