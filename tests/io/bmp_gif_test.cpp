#include "io/IOTestSupport.h"

#include <gif_lib.h>
#include <gtest/gtest.h>

using namespace iotest;

namespace {

void Put32(Bytes &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; i++) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

// A bottom-up 24-bit BMP of the given R,G,B pixels.
Bytes MakeBMP(const Bytes &rgb, int w, int h) {
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

int WriteToBytes(GifFileType *gif, const GifByteType *data, int n) {
    auto *out = static_cast<Bytes *>(gif->UserData);
    out->insert(out->end(), data, data + n);
    return n;
}

Bytes MakeGIF(const Bytes &indexes, int w, int h, const Bytes &palette, int transparent) {
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
    EGifPutImageDesc(gif, 0, 0, w, h, false, nullptr);
    for (int y = 0; y < h; y++)
        EGifPutLine(gif, const_cast<GifPixelType *>(&indexes[static_cast<size_t>(y) * w]), w);
    EGifCloseFile(gif, &err);
    GifFreeMapObject(map);
    return out;
}

}  // namespace

TEST(ImageIO, BMPAndGIFLoadThroughContent) {
    const int w = 13, h = 6;
    Bytes rgb = Random(static_cast<size_t>(w) * h * 3, 31);
    CFDataRef data = MakeData(MakeBMP(rgb, w, h));
    PlimCFImage image = PlimCFImageCreateWithData(nullptr, data);
    CFRelease(data);
    ASSERT_NE(image, nullptr);
    Bytes got = PixelsOf(PlimCFImageGetCGImage(image));
    for (size_t i = 0; i < rgb.size() / 3; i++) ASSERT_EQ(0, std::memcmp(&got[i * 4 + 1], &rgb[i * 3], 3));
    CFRelease(image);

    Bytes palette = Random(256 * 3, 32), indexes = Random(static_cast<size_t>(w) * h, 33);
    indexes[0] = 7;
    data = MakeData(MakeGIF(indexes, w, h, palette, 7));
    image = PlimCFImageCreateWithData(nullptr, data);
    CFRelease(data);
    ASSERT_NE(image, nullptr);
    CGImageRef cg = PlimCFImageGetCGImage(image);
    EXPECT_EQ(CGImageGetAlphaInfo(cg), kCGImageAlphaPremultipliedFirst);
    got = PixelsOf(cg);
    for (size_t i = 0; i < indexes.size(); i++) {
        if (indexes[i] == 7) {
            EXPECT_EQ(got[i * 4], 0);
            continue;
        }
        ASSERT_EQ(got[i * 4], 255);
        ASSERT_EQ(0, std::memcmp(&got[i * 4 + 1], &palette[indexes[i] * 3], 3)) << i;
    }
    CFRelease(image);

    // Truncated files of both kinds give null.
    for (Bytes file : {MakeBMP(rgb, w, h), MakeGIF(indexes, w, h, palette, -1)}) {
        file.resize(file.size() / 2);
        data = MakeData(file);
        EXPECT_EQ(PlimCFImageCreateWithData(nullptr, data), nullptr);
        CFRelease(data);
    }
}
