#include "io/IOTestSupport.h"

#include <gtest/gtest.h>

using namespace iotest;

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
