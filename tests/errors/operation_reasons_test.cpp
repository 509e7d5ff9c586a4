// Why in-place operations did nothing and creators gave null, through the public API; and that
// every thread has its own last error.
#include "errors/ErrorTestSupport.h"
#include "platform/runtime/CFRef.h"
#include "support/FailingAllocator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <latch>
#include <thread>
#include <vector>

namespace {

using errortest::ReasonOf;
using plim::CFRef;
using ImageRef = CFRef<PlimCFImage>;

ImageRef Transparent(float w, float h) { return ImageRef(PlimCFImageCreateWithSize(nullptr, CGSizeMake(w, h), true)); }

std::vector<UInt8> Pixels(PlimCFImage image) {
    const auto *p = static_cast<const UInt8 *>(PlimCFImageGetImageBuffer(image));
    return p ? std::vector<UInt8>(p, p + PlimCFImageGetImageBufferSize(image)) : std::vector<UInt8>();
}

TEST(LastError, InPlaceOperationsSayWhyTheyDidNothing) {
    // An image without pixels.
    ImageRef nothing(PlimCFImageCreate(nullptr));
    ImageRef some = Transparent(4, 4);
    const struct {
        const char *name;
        void (*operation)(PlimCFImage, PlimCFImage);
    } kOnNothing[] = {
        {"invert", [](PlimCFImage i, PlimCFImage) { PlimCFImageInvert(i); }},
        {"clear", [](PlimCFImage i, PlimCFImage) { PlimCFImageClear(i); }},
        {"remove alpha", [](PlimCFImage i, PlimCFImage) { PlimCFImageRemoveAlphaChannel(i); }},
        {"flip", [](PlimCFImage i, PlimCFImage) { PlimCFImageFlipVertically(i); }},
        {"crop", [](PlimCFImage i, PlimCFImage) { PlimCFImageCropToRect(i, CGRectMake(0, 0, 2, 2)); }},
        {"scale", [](PlimCFImage i, PlimCFImage) { PlimCFImageScaleToSize(i, CGSizeMake(2, 2)); }},
        {"promote", [](PlimCFImage i, PlimCFImage) { PlimCFImagePromoteImage(i, true, true); }},
        {"composite onto", [](PlimCFImage i, PlimCFImage s) {
             PlimCFImageComposite(s, i, nullptr, nullptr, 0, kPlimCompositeSrcOver); }},
        {"composite from", [](PlimCFImage i, PlimCFImage s) {
             PlimCFImageComposite(i, s, nullptr, nullptr, 0, kPlimCompositeSrcOver); }},
        {"tile onto", [](PlimCFImage i, PlimCFImage s) {
             PlimCFImageTile(s, i, CGRectMake(0, 0, 2, 2), CGRectMake(0, 0, 4, 4), kPlimCompositeSrcOver,
                             kPlimTileOriginMinXMinY); }},
    };
    for (const auto &c : kOnNothing)
        EXPECT_EQ(ReasonOf([&] { c.operation(nothing.get(), some.get()); }), kPlimErrorNoPixels) << c.name;

    // Arguments that leave nothing to do, and the image as it was.
    const std::vector<UInt8> before = Pixels(some.get());
    const struct {
        const char *name;
        void (*operation)(PlimCFImage);
    } kRefused[] = {
        {"crop outside", [](PlimCFImage i) { PlimCFImageCropToRect(i, CGRectMake(10, 10, 2, 2)); }},
        {"crop to NaN", [](PlimCFImage i) { PlimCFImageCropToRect(i, CGRectMake(0, 0, NAN, 2)); }},
        {"scale negative", [](PlimCFImage i) { PlimCFImageScaleToSize(i, CGSizeMake(-2, 2)); }},
        {"scale to nothing", [](PlimCFImage i) { PlimCFImageScaleToSize(i, CGSizeMake(0, 0)); }},
        {"operation 24", [](PlimCFImage i) { PlimCFImageComposite(i, i, nullptr, nullptr, 0, 24); }},
        {"operation -1", [](PlimCFImage i) { PlimCFImageComposite(i, i, nullptr, nullptr, 0, -1); }},
        {"tile origin 4", [](PlimCFImage i) {
             PlimCFImageTile(i, i, CGRectMake(0, 0, 2, 2), CGRectMake(0, 0, 4, 4), kPlimCompositeSrcOver, 4); }},
        {"empty tile", [](PlimCFImage i) {
             PlimCFImageTile(i, i, CGRectMake(0, 0, 0, 2), CGRectMake(0, 0, 4, 4), kPlimCompositeSrcOver, 0); }},
    };
    for (const auto &c : kRefused) {
        EXPECT_EQ(ReasonOf([&] { c.operation(some.get()); }), kPlimErrorInvalidArgument) << c.name;
        EXPECT_EQ(Pixels(some.get()), before) << c.name;
        EXPECT_EQ(PlimCFImageGetWidth(some.get()), 4u) << c.name;
    }

    // Memory that runs out while the rendered image is drawn into a buffer: nothing changes.
    ImageRef opaque(PlimCFImageCreateWithSize(nullptr, CGSizeMake(5, 3), false));
    CGImageRef rendered = PlimCFImageGetCGImage(opaque.get());
    for (void (*operation)(PlimCFImage) : {PlimCFImageInvert, PlimCFImageAddAlphaChannel, PlimCFImageConvertToColor,
                                           PlimCFImageFlipVertically}) {
        plim::test::FailingAllocator allocator(1);  // the image object, and nothing more
        ImageRef image(PlimCFImageCreateWithImage(allocator.get(), rendered));
        ASSERT_TRUE(image);
        EXPECT_EQ(ReasonOf([&] { operation(image.get()); }), kPlimErrorOutOfMemory);
        EXPECT_EQ(PlimCFImageGetCGImage(image.get()), rendered);
    }

    // A caller's buffer in a layout nothing can draw: the operations that need a drawing refuse it.
    std::vector<UInt8> bytes(64, 0x55);
    ImageRef odd(PlimCFImageCreateWithBuffer(nullptr, bytes.data(), 4, 4, 5, 20, 16, nullptr,
                                             kCGImageAlphaNoneSkipFirst));
    ASSERT_TRUE(odd);
    EXPECT_EQ(ReasonOf([&] { PlimCFImageScaleToSize(odd.get(), CGSizeMake(8, 8)); }), kPlimErrorUnsupportedLayout);
    EXPECT_EQ(ReasonOf([&] { PlimCFImageAddAlphaChannel(odd.get()); }), kPlimErrorUnsupportedLayout);
    EXPECT_EQ(ReasonOf([&] { EXPECT_EQ(PlimCFImageGetCGImage(odd.get()), nullptr); }), kPlimErrorUnsupportedLayout);
    EXPECT_EQ(Pixels(odd.get()), bytes);

    // Operations that work leave the caller's last error alone.
    PlimCFImageComposite(some.get(), some.get(), nullptr, nullptr, 0, 99);
    ASSERT_EQ(PlimGetLastError(), kPlimErrorInvalidArgument);
    PlimCFImageInvert(some.get());
    PlimCFImageComposite(opaque.get(), some.get(), nullptr, nullptr, 0, kPlimCompositeMultiply);
    PlimCFImageTile(opaque.get(), some.get(), CGRectMake(0, 0, 2, 2), CGRectMake(0, 0, 4, 4), kPlimCompositeXOR, 0);
    PlimCFImageScaleToSize(some.get(), CGSizeMake(9, 7));
    PlimCFImageCropToRect(some.get(), CGRectMake(1, 1, 3, 3));
    EXPECT_EQ(PlimGetLastError(), kPlimErrorInvalidArgument);
}

TEST(LastError, CreatorsSayWhyTheyGaveNull) {
    std::vector<UInt8> bytes(64, 0);
    auto withBuffer = [&](const void *pixels, UInt32 w, UInt32 h, UInt32 bpp, UInt32 rowBytes, int alpha) {
        return ReasonOf([&] {
            EXPECT_EQ(PlimCFImageCreateWithBuffer(nullptr, pixels, w, h, 8, bpp, rowBytes, nullptr,
                                                  static_cast<CGImageAlphaInfo>(alpha)),
                      nullptr);
        });
    };
    EXPECT_EQ(withBuffer(bytes.data(), 4, 4, 32, 16, 8), kPlimErrorInvalidArgument);
    EXPECT_EQ(withBuffer(bytes.data(), 4, 4, 32, 15, 2), kPlimErrorInvalidArgument);
    EXPECT_EQ(withBuffer(nullptr, 4, 4, 32, 16, 2), kPlimErrorInvalidArgument);
    EXPECT_EQ(withBuffer(bytes.data(), 4, 0, 32, 16, 2), kPlimErrorInvalidArgument);
    EXPECT_EQ(withBuffer(bytes.data(), 1u << 20, 1u << 20, 32, 0, 2), kPlimErrorTooLarge);

    auto withSize = [](float w, float h) {
        return ReasonOf([&] { EXPECT_EQ(PlimCFImageCreateWithSize(nullptr, CGSizeMake(w, h), true), nullptr); });
    };
    EXPECT_EQ(withSize(NAN, 4), kPlimErrorInvalidArgument);
    EXPECT_EQ(withSize(4, -1), kPlimErrorInvalidArgument);
    EXPECT_EQ(withSize(0, 0), kPlimErrorInvalidArgument);
    EXPECT_EQ(withSize(1e10f, 4), kPlimErrorTooLarge);
    EXPECT_EQ(withSize(65536, 65536), kPlimErrorTooLarge);

    ImageRef some = Transparent(4, 4);
    ImageRef other = Transparent(4, 5);
    EXPECT_EQ(ReasonOf([&] { EXPECT_EQ(PlimCFImageCreateWithImageAndMask(nullptr, some.get(), other.get(), false),
                                       nullptr); }),
              kPlimErrorInvalidArgument);
    EXPECT_EQ(ReasonOf([] { EXPECT_EQ(PlimCFColorMatchListCreate(nullptr, 0, 5), nullptr); }),
              kPlimErrorInvalidArgument);
    EXPECT_EQ(ReasonOf([] { EXPECT_EQ(PlimCFImageCreate(kCFAllocatorNull), nullptr); }), kPlimErrorOutOfMemory);
    for (long budget = 0;; ++budget) {
        ASSERT_LT(budget, 16);
        plim::test::FailingAllocator allocator(budget);
        PlimClearLastError();
        ImageRef copy(PlimCFImageCreateCopy(allocator.get(), some.get()));
        if (copy) break;
        EXPECT_EQ(PlimGetLastError(), kPlimErrorOutOfMemory) << budget;
    }
}

TEST(LastError, EachThreadHasItsOwn) {
    // Two threads fail for different reasons at the same time; each reads its own, and the
    // thread that started them keeps its own.
    PlimClearLastError();
    for (int round = 0; round < 20; ++round) {
        std::latch failed(2), read(2);
        PlimError seen[2] = {kPlimErrorNone, kPlimErrorNone};
        std::thread a([&] {
            EXPECT_EQ(PlimCFImageCreateWithSize(nullptr, CGSizeMake(NAN, 1), true), nullptr);
            failed.arrive_and_wait();
            seen[0] = PlimGetLastError();
            read.arrive_and_wait();
        });
        std::thread b([&] {
            EXPECT_EQ(PlimCFImageCreateWithSize(nullptr, CGSizeMake(1e10f, 1), true), nullptr);
            failed.arrive_and_wait();
            seen[1] = PlimGetLastError();
            PlimClearLastError();
            read.arrive_and_wait();
        });
        a.join();
        b.join();
        EXPECT_EQ(seen[0], kPlimErrorInvalidArgument);
        EXPECT_EQ(seen[1], kPlimErrorTooLarge);
        EXPECT_EQ(PlimGetLastError(), kPlimErrorNone);
    }
}

TEST(LastError, TextsNameEveryReasonOnce) {
    std::vector<std::string> texts;
    for (int e = kPlimErrorNone; e <= kPlimErrorTimedOut; ++e) {
        std::string text = PlimGetErrorText(static_cast<PlimError>(e));
        EXPECT_NE(text, "unknown error") << e;
        for (const std::string &earlier : texts) EXPECT_NE(text, earlier) << e;
        texts.push_back(text);
    }
    EXPECT_STREQ(PlimGetErrorText(static_cast<PlimError>(kPlimErrorTimedOut + 1)), "unknown error");
    EXPECT_STREQ(PlimGetErrorText(static_cast<PlimError>(-1)), "unknown error");
}

}  // namespace
