// Channel and colour-model operations through the public API, and the grey arithmetic.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "../support/FailingAllocator.h"
#include "ImageTestSupport.h"
#include "pixelops/ChannelArithmetic.h"

namespace {

using namespace plim::test;

TEST(GreyArithmetic, IntegerFormMatchesTheFloatFormForEveryColour) {
    for (unsigned a = 0; a < 256; ++a) ASSERT_EQ(plim::pixel::GreyAlphaReference(static_cast<UInt8>(a)), a);
    for (unsigned r = 0; r < 256; ++r)
        for (unsigned g = 0; g < 256; ++g)
            for (unsigned b = 0; b < 256; ++b)
                ASSERT_EQ(plim::pixel::GreySample(r, g, b),
                          plim::pixel::GreySampleReference(static_cast<UInt8>(r), static_cast<UInt8>(g),
                                                           static_cast<UInt8>(b)))
                    << r << " " << g << " " << b;
}

TEST(GreyArithmetic, BufferLoopMatchesTheReferenceLoop) {
    std::mt19937 rng(11);
    std::vector<UInt8> a(4096 * 4);
    for (auto &v : a) v = static_cast<UInt8>(rng());
    std::vector<UInt8> b = a;
    plim::pixel::MakeGreyPixels(a.data(), a.size() / 4);
    plim::pixel::MakeGreyPixelsReference(b.data(), b.size() / 4);
    EXPECT_EQ(a, b);
}

TEST(ChannelOperations, MakeGrayscaleRoundsTheMeanAndKeepsTheLayout) {
    ImageRef image = MakeImage32(2, 1, {{255, 10, 20, 31}, {255, 1, 2, 2}});
    ASSERT_TRUE(PlimCFImageGetCGImage(image.get()));
    PlimCFImageMakeGrayscale(image.get());
    EXPECT_EQ(image.get()->image, nullptr);  // stale rendered image dropped
    EXPECT_EQ(At(image.get(), 0, 0), (Pixel{255, 20, 20, 20}));
    EXPECT_EQ(At(image.get(), 1, 0), (Pixel{255, 2, 2, 2}));
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(image.get()), 32u);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(image.get()), kCGImageAlphaPremultipliedFirst);
    EXPECT_TRUE(PlimCFImageIsColor(image.get()));

    ImageRef grey = MakeGrey(3, 1, {10, 20, 30});
    PlimCFImageMakeGrayscale(grey.get());
    EXPECT_EQ(Bytes(grey.get()), (std::vector<UInt8>{10, 20, 30}));
}

TEST(ChannelOperations, RemoveAlphaUnpremultipliesAndWarnsOncePerCall) {
    ImageRef image = MakeImage32(3, 1, {{128, 64, 128, 0}, {10, 20, 5, 5}, {10, 5, 30, 5}});
    testing::internal::CaptureStderr();
    PlimCFImageRemoveAlphaChannel(image.get());
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "PlimCFImageRemoveAlphaChannel - invalid unpremultiplication\n");
    EXPECT_EQ(At(image.get(), 0, 0), (Pixel{255, 128, 255, 0}));
    EXPECT_EQ(At(image.get(), 1, 0)[1], 255);  // clamped
    EXPECT_EQ(PlimCFImageGetAlphaInfo(image.get()), kCGImageAlphaPremultipliedFirst);
    EXPECT_TRUE(PlimCFImageHasAlpha(image.get()));
    EXPECT_TRUE(PlimCFImageIsOpaque(image.get()));

    // A second call has nothing invalid left and says nothing.
    testing::internal::CaptureStderr();
    PlimCFImageRemoveAlphaChannel(image.get());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    // Without alpha nothing is touched, not even the ignored byte.
    ImageRef xrgb = MakeImage32(1, 1, {{7, 1, 2, 3}}, kCGImageAlphaNoneSkipFirst);
    PlimCFImageRemoveAlphaChannel(xrgb.get());
    EXPECT_EQ(At(xrgb.get(), 0, 0), (Pixel{7, 1, 2, 3}));
}

TEST(ChannelOperations, IsOpaqueWalksRowsAndIgnoresPadding) {
    std::vector<Pixel> px(6, Pixel{255, 1, 2, 3});
    ImageRef padded = MakeImage32(3, 2, px, kCGImageAlphaPremultipliedFirst, 16, 0);  // padding alpha 0
    EXPECT_TRUE(PlimCFImageIsOpaque(padded.get()));
    px[5] = Pixel{254, 1, 2, 3};
    ImageRef last = MakeImage32(3, 2, px, kCGImageAlphaPremultipliedFirst, 16, 255);
    EXPECT_FALSE(PlimCFImageIsOpaque(last.get()));
    ImageRef xrgb = MakeImage32(1, 1, {{0, 1, 2, 3}}, kCGImageAlphaNoneSkipFirst);
    EXPECT_TRUE(PlimCFImageIsOpaque(xrgb.get()));
    ImageRef empty(PlimCFImageCreate(nullptr));
    EXPECT_TRUE(PlimCFImageIsOpaque(empty.get()));
}

TEST(ChannelOperations, InvertAndClear) {
    ImageRef argb = MakeImage32(1, 1, {{128, 10, 20, 30}});
    PlimCFImageInvert(argb.get());
    EXPECT_EQ(At(argb.get(), 0, 0), (Pixel{128, 245, 235, 225}));
    PlimCFImageInvert(argb.get());
    EXPECT_EQ(At(argb.get(), 0, 0), (Pixel{128, 10, 20, 30}));

    ImageRef xrgb = MakeImage32(1, 1, {{0, 10, 20, 30}}, kCGImageAlphaNoneSkipFirst);
    PlimCFImageInvert(xrgb.get());
    EXPECT_EQ(At(xrgb.get(), 0, 0), (Pixel{255, 245, 235, 225}));

    // Five grey bytes: one whole group and a tail, all inverted.
    ImageRef grey = MakeGrey(5, 1, {0, 1, 100, 254, 255});
    PlimCFImageInvert(grey.get());
    EXPECT_EQ(Bytes(grey.get()), (std::vector<UInt8>{255, 254, 155, 1, 0}));
    EXPECT_FALSE(PlimCFImageIsColor(grey.get()));

    PlimCFImageClear(grey.get());
    EXPECT_EQ(Bytes(grey.get()), std::vector<UInt8>(5, 255));
    ImageRef white(PlimCFImageCreateWithSize(nullptr, CGSizeMake(3, 2), false));
    PlimCFImageInvert(white.get());
    PlimCFImageClear(white.get());
    EXPECT_EQ(Bytes(white.get()), std::vector<UInt8>(6, 255));
    PlimCFImageClear(argb.get());
    EXPECT_EQ(Bytes(argb.get()), std::vector<UInt8>(4, 0));
}

TEST(ChannelOperations, ColourAndAlphaConversions) {
    ImageRef colour = MakeImage32(2, 2, std::vector<Pixel>(4, Pixel{255, 200, 200, 200}));
    ImageRef grey = MakeGrey(2, 2, {0, 50, 100, 255});

    std::vector<UInt8> greyBefore = Bytes(grey.get());
    PlimCFImageConvertToGrayscale(grey.get());
    EXPECT_EQ(Bytes(grey.get()), greyBefore);
    std::vector<UInt8> colourBefore = Bytes(colour.get());
    PlimCFImageConvertToColor(colour.get());
    EXPECT_EQ(Bytes(colour.get()), colourBefore);

    PlimCFImageConvertToGrayscale(colour.get());
    EXPECT_FALSE(PlimCFImageIsColor(colour.get()));
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(colour.get()), 8u);
    EXPECT_EQ(PlimCFImageGetBytesPerRow(colour.get()), 2u);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(colour.get()), kCGImageAlphaNone);
    for (UInt8 v : Bytes(colour.get())) EXPECT_NEAR(v, 200, 1);

    PlimCFImageConvertToColor(grey.get());
    EXPECT_TRUE(PlimCFImageIsColor(grey.get()));
    EXPECT_EQ(PlimCFImageGetAlphaInfo(grey.get()), kCGImageAlphaNoneSkipFirst);
    EXPECT_EQ(At(grey.get(), 1, 0)[1], 50);
    EXPECT_EQ(At(grey.get(), 1, 0)[3], 50);

    PlimCFImageAddAlphaChannel(grey.get());
    EXPECT_EQ(PlimCFImageGetAlphaInfo(grey.get()), kCGImageAlphaPremultipliedFirst);
    EXPECT_EQ(At(grey.get(), 0, 1), (Pixel{255, 100, 100, 100}));
    EXPECT_TRUE(PlimCFImageIsOpaque(grey.get()));
}

TEST(ChannelCopies, OpaqueCopiesLeaveTheSourceAlone) {
    ImageRef source = MakeImage32(2, 1, {{128, 64, 32, 0}, {0, 0, 0, 0}});
    std::vector<UInt8> before = Bytes(source.get());

    ImageRef opaque(PlimCFImageCopyOpaqueImage(nullptr, source.get()));
    ASSERT_TRUE(opaque);
    EXPECT_EQ(At(opaque.get(), 0, 0), (Pixel{255, 128, 64, 0}));
    EXPECT_EQ(At(opaque.get(), 1, 0), (Pixel{255, 0, 0, 0}));

    ImageRef dark(PlimCFImageCopyPremultipliedOpaqueImage(nullptr, source.get()));
    ASSERT_TRUE(dark);
    EXPECT_EQ(At(dark.get(), 0, 0), (Pixel{255, 64, 32, 0}));
    EXPECT_EQ(Bytes(source.get()), before);
}

TEST(ChannelCopies, AlphaChannelIsReadRowByRowPastThePadding) {
    ImageRef source = MakeImage32(3, 2, {{1, 0, 0, 0}, {2, 0, 0, 0}, {3, 0, 0, 0}, {4, 0, 0, 0}, {5, 0, 0, 0},
                                         {6, 0, 0, 0}},
                                  kCGImageAlphaPremultipliedFirst, 20, 99);
    ImageRef alpha(PlimCFImageCopyAlphaChannel(nullptr, source.get()));
    ASSERT_TRUE(alpha);
    EXPECT_EQ(PlimCFImageGetWidth(alpha.get()), 3u);
    EXPECT_EQ(PlimCFImageGetHeight(alpha.get()), 2u);
    EXPECT_EQ(PlimCFImageGetBytesPerRow(alpha.get()), 3u);
    EXPECT_FALSE(PlimCFImageIsColor(alpha.get()));
    EXPECT_EQ(Bytes(alpha.get()), (std::vector<UInt8>{1, 2, 3, 4, 5, 6}));

    ImageRef xrgb = MakeImage32(2, 2, std::vector<Pixel>(4, Pixel{0, 9, 9, 9}), kCGImageAlphaNoneSkipFirst);
    ImageRef full(PlimCFImageCopyAlphaChannel(nullptr, xrgb.get()));
    ASSERT_TRUE(full);
    EXPECT_EQ(Bytes(full.get()), std::vector<UInt8>(4, 255));
    EXPECT_EQ(PlimCFImageGetAlphaInfo(xrgb.get()), kCGImageAlphaNoneSkipFirst);  // source kept
}

TEST(ChannelCopies, ImageAndMask) {
    ImageRef colour = MakeImage32(3, 1, {{255, 255, 100, 0}, {255, 255, 255, 255}, {255, 40, 50, 60}});
    ImageRef mask = MakeGrey(3, 1, {0, 128, 255});
    ImageRef small = MakeGrey(2, 1, {0, 0});
    EXPECT_FALSE(PlimCFImageCreateWithImageAndMask(nullptr, colour.get(), small.get(), false));

    ImageRef joined(PlimCFImageCreateWithImageAndMask(nullptr, colour.get(), mask.get(), false));
    ASSERT_TRUE(joined);
    EXPECT_EQ(PlimCFImageGetAlphaInfo(joined.get()), kCGImageAlphaPremultipliedFirst);
    EXPECT_EQ(At(joined.get(), 0, 0), (Pixel{0, 0, 0, 0}));
    EXPECT_EQ(At(joined.get(), 1, 0), (Pixel{128, 128, 128, 128}));
    EXPECT_EQ(At(joined.get(), 2, 0), (Pixel{255, 40, 50, 60}));

    ImageRef kept(PlimCFImageCreateWithImageAndMask(nullptr, colour.get(), mask.get(), true));
    ASSERT_TRUE(kept);
    EXPECT_EQ(At(kept.get(), 0, 0), (Pixel{0, 255, 100, 0}));
    EXPECT_EQ(At(kept.get(), 1, 0), (Pixel{128, 255, 255, 255}));

    // A colour mask is turned grey first.
    ImageRef colourMask = MakeImage32(3, 1, {{255, 0, 0, 0}, {255, 128, 128, 128}, {255, 255, 255, 255}});
    ImageRef viaColour(PlimCFImageCreateWithImageAndMask(nullptr, colour.get(), colourMask.get(), true));
    ASSERT_TRUE(viaColour);
    EXPECT_EQ(At(viaColour.get(), 0, 0)[0], 0);
    EXPECT_NEAR(At(viaColour.get(), 1, 0)[0], 128, 1);
    EXPECT_EQ(At(viaColour.get(), 2, 0)[0], 255);
    EXPECT_EQ(PlimCFImageGetBitsPerPixel(colourMask.get()), 32u);  // the caller's mask is not changed

    // A grey image is taken in colour rather than read as four-byte pixels.
    ImageRef greyImage = MakeGrey(3, 1, {30, 60, 90});
    ImageRef fromGrey(PlimCFImageCreateWithImageAndMask(nullptr, greyImage.get(), mask.get(), true));
    ASSERT_TRUE(fromGrey);
    EXPECT_EQ(At(fromGrey.get(), 2, 0), (Pixel{255, 90, 90, 90}));
    EXPECT_EQ(At(fromGrey.get(), 1, 0), (Pixel{128, 60, 60, 60}));
}

TEST(ChannelOperations, NoMemoryLeavesTheImageAsItWas) {
    FailingAllocator alloc;
    {
        ImageRef image = MakeImage32(4, 3, std::vector<Pixel>(12, Pixel{0, 100, 50, 25}),
                                     kCGImageAlphaNoneSkipFirst, 0, 0, alloc.get());
        ImageRef grey = MakeGrey(5, 2, std::vector<UInt8>(10, 77), alloc.get());
        ASSERT_TRUE(image && grey);
        std::vector<UInt8> before = Bytes(image.get());
        alloc.setBudget(0);
        PlimCFImageConvertToGrayscale(image.get());
        PlimCFImageAddAlphaChannel(image.get());
        PlimCFImageConvertToColor(grey.get());
        alloc.setBudget(-1);
        EXPECT_EQ(PlimCFImageGetBitsPerPixel(image.get()), 32u);
        EXPECT_EQ(PlimCFImageGetAlphaInfo(image.get()), kCGImageAlphaNoneSkipFirst);
        EXPECT_EQ(Bytes(image.get()), before);
        EXPECT_EQ(Bytes(grey.get()), std::vector<UInt8>(10, 77));
    }
    EXPECT_EQ(alloc.live(), 0);
}

TEST(ChannelCopies, FailedCopiesReturnNullWithoutLeaks) {
    ImageRef source = MakeImage32(3, 2, std::vector<Pixel>(6, Pixel{128, 64, 32, 16}));
    ImageRef mask = MakeGrey(3, 2, {0, 50, 100, 150, 200, 250});
    auto run = [&](auto make) {
        return ExhaustFailures([&](CFAllocatorRef a) {
            PlimCFImage made = make(a);
            if (made) CFRelease(made);
            return made != nullptr;
        });
    };
    EXPECT_GT(run([&](CFAllocatorRef a) { return PlimCFImageCopyOpaqueImage(a, source.get()); }), 0);
    EXPECT_GT(run([&](CFAllocatorRef a) { return PlimCFImageCopyPremultipliedOpaqueImage(a, source.get()); }), 0);
    EXPECT_GT(run([&](CFAllocatorRef a) { return PlimCFImageCopyAlphaChannel(a, source.get()); }), 0);
    EXPECT_GT(run([&](CFAllocatorRef a) { return PlimCFImageCreateWithImageAndMask(a, source.get(), mask.get(), false); }),
              0);
}

}  // namespace
