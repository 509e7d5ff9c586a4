// Premultiplication of plain buffers and RGB/HSV conversion.
#include <PlimBitmapLib/PlimPixelBuffer.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "pixelops/PixelArithmetic.h"

namespace {

using plim::pixel::PremultiplySampleReference;
using plim::pixel::UnpremultiplySampleReference;

// Every (colour, alpha) pair, one pixel each, with the colour in all three colour bytes.
std::vector<UInt8> AllPairs(int alphaIndex) {
    std::vector<UInt8> buffer;
    for (int a = 0; a < 256; ++a)
        for (int c = 0; c < 256; ++c) {
            UInt8 px[4];
            for (int i = 0; i < 4; ++i) px[i] = static_cast<UInt8>(i == alphaIndex ? a : c);
            buffer.insert(buffer.end(), px, px + 4);
        }
    return buffer;
}

TEST(Premultiply, EveryPairMatchesTheFormulaInBothByteOrders) {
    for (int alphaIndex : {0, 3}) {
        std::vector<UInt8> buffer = AllPairs(alphaIndex);
        if (alphaIndex == 0)
            PlimCFPremultiplyARGBBuffer(buffer.data(), static_cast<UInt32>(buffer.size()));
        else
            PlimCFPremultiplyRGBABuffer(buffer.data(), static_cast<UInt32>(buffer.size()));
        for (int a = 0; a < 256; ++a)
            for (int c = 0; c < 256; ++c) {
                const UInt8 *px = &buffer[static_cast<size_t>(a * 256 + c) * 4];
                auto expected = static_cast<UInt8>(std::floor(c * a / 255.0 + 0.5));
                ASSERT_EQ(PremultiplySampleReference(static_cast<UInt8>(c), static_cast<UInt8>(a)), expected)
                    << "C " << c << " A " << a;
                for (int i = 0; i < 4; ++i)
                    ASSERT_EQ(px[i], i == alphaIndex ? a : expected) << "C " << c << " A " << a << " byte " << i;
            }
    }
}

TEST(Unpremultiply, EveryPairMatchesTheFloatOrderInBothByteOrders) {
    for (int alphaIndex : {0, 3}) {
        std::vector<UInt8> buffer = AllPairs(alphaIndex);
        ::testing::internal::CaptureStderr();
        if (alphaIndex == 0)
            PlimCFUnpremultiplyARGBBuffer(buffer.data(), static_cast<UInt32>(buffer.size()));
        else
            PlimCFUnpremultiplyRGBABuffer(buffer.data(), static_cast<UInt32>(buffer.size()));
        ::testing::internal::GetCapturedStderr();
        int belowRounded = 0;
        for (int a = 0; a < 256; ++a)
            for (int c = 0; c < 256; ++c) {
                const UInt8 *px = &buffer[static_cast<size_t>(a * 256 + c) * 4];
                // The order of operations, written out independently of the library's helper.
                float af = static_cast<float>(a) / 255.0f, cf = static_cast<float>(c) / 255.0f;
                float inv = af == 0.0f ? 0.0f : static_cast<float>(1.0 / static_cast<double>(af));
                float x = inv * cf;
                float v = x > 1.0f ? 255.0f : x * 255.0f;
                auto expected = static_cast<UInt8>(static_cast<int>(std::floor(static_cast<double>(v) + 0.5)));
                ASSERT_EQ(UnpremultiplySampleReference(static_cast<UInt8>(c), static_cast<UInt8>(a)), expected);
                for (int i = 0; i < 4; ++i)
                    ASSERT_EQ(px[i], i == alphaIndex ? a : expected) << "C " << c << " A " << a << " byte " << i;
                if (a > 0 && c <= a && expected + 1 == static_cast<int>(std::floor(c * 255.0 / a + 0.5)))
                    ++belowRounded;
            }
        EXPECT_GT(belowRounded, 0);  // the float inverse does cost a few results one step
    }
    EXPECT_EQ(UnpremultiplySampleReference(7, 14), 127);
    EXPECT_EQ(UnpremultiplySampleReference(3, 18), 42);
    EXPECT_EQ(UnpremultiplySampleReference(200, 0), 0);
    EXPECT_EQ(UnpremultiplySampleReference(200, 100), 255);
}

TEST(Premultiply, BufferFunctionsAgreeWithThePerSampleReferenceOnRandomBuffers) {
    std::mt19937 rng(11);
    for (int round = 0; round < 400; ++round) {
        size_t length = rng() % 300;  // odd lengths and unaligned tails included
        size_t offset = rng() % 4;    // unaligned starts
        std::vector<UInt8> buffer(length + offset);
        for (auto &b : buffer) b = static_cast<UInt8>(rng());
        for (int alphaIndex : {0, 3}) {
            for (bool premultiply : {true, false}) {
                std::vector<UInt8> work = buffer, expected = buffer;
                UInt8 *p = work.data() + offset, *e = expected.data() + offset;
                for (size_t i = 0; i + 4 <= length; i += 4)
                    for (int k = 0; k < 4; ++k)
                        if (k != alphaIndex)
                            e[i + k] = premultiply ? PremultiplySampleReference(e[i + k], e[i + alphaIndex])
                                                   : UnpremultiplySampleReference(e[i + k], e[i + alphaIndex]);
                ::testing::internal::CaptureStderr();
                auto n = static_cast<UInt32>(length);
                if (premultiply)
                    alphaIndex == 0 ? PlimCFPremultiplyARGBBuffer(p, n) : PlimCFPremultiplyRGBABuffer(p, n);
                else
                    alphaIndex == 0 ? PlimCFUnpremultiplyARGBBuffer(p, n) : PlimCFUnpremultiplyRGBABuffer(p, n);
                ::testing::internal::GetCapturedStderr();
                ASSERT_EQ(work, expected) << "round " << round << " alpha at " << alphaIndex;
            }
        }
    }
}

TEST(Premultiply, DocumentedPixelsAndTrailingBytes) {
    UInt8 px[7] = {128, 128, 255, 0, 9, 9, 9};
    PlimCFPremultiplyARGBBuffer(px, 7);  // one pixel; bytes 4 to 6 untouched
    EXPECT_EQ((std::vector<UInt8>(px, px + 7)), (std::vector<UInt8>{128, 64, 128, 0, 9, 9, 9}));
    ::testing::internal::CaptureStderr();
    PlimCFUnpremultiplyARGBBuffer(px, 7);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ((std::vector<UInt8>(px, px + 7)), (std::vector<UInt8>{128, 128, 255, 0, 9, 9, 9}));

    UInt8 rgba[8] = {10, 20, 30, 255, 10, 20, 30, 0};
    PlimCFPremultiplyRGBABuffer(rgba, 8);
    EXPECT_EQ((std::vector<UInt8>(rgba, rgba + 8)), (std::vector<UInt8>{10, 20, 30, 255, 0, 0, 0, 0}));
    UInt8 none[3] = {1, 2, 3};
    PlimCFPremultiplyRGBABuffer(none, 3);
    PlimCFUnpremultiplyRGBABuffer(none, 0);
    EXPECT_EQ(none[0], 1);
}

TEST(Unpremultiply, InvalidPixelsAreReportedOncePerCall) {
    // Two pixels with a colour above alpha, in the middle of valid ones.
    UInt8 argb[16] = {255, 1, 2, 3, 10, 20, 5, 5, 10, 5, 5, 30, 0, 0, 0, 0};
    const std::string argbMessage = "PlimCFUnpremultiplyARGBBuffer - invalid unpremultiplication\n";
    ASSERT_EQ(argbMessage.size(), 60u);
    ::testing::internal::CaptureStderr();
    PlimCFUnpremultiplyARGBBuffer(argb, 16);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), argbMessage);
    EXPECT_EQ(argb[5], 255);  // clamped
    EXPECT_EQ(argb[11], 255);

    UInt8 bad[8] = {10, 20, 5, 5, 10, 5, 30, 10};
    ::testing::internal::CaptureStderr();
    PlimCFUnpremultiplyARGBBuffer(bad, 8);
    std::string first = ::testing::internal::GetCapturedStderr();
    UInt8 bad2[8] = {10, 20, 5, 5, 10, 5, 30, 10};
    ::testing::internal::CaptureStderr();
    PlimCFUnpremultiplyARGBBuffer(bad2, 8);
    EXPECT_EQ(first + ::testing::internal::GetCapturedStderr(), argbMessage + argbMessage);

    UInt8 rgba[4] = {9, 0, 0, 8};
    ::testing::internal::CaptureStderr();
    PlimCFUnpremultiplyRGBABuffer(rgba, 4);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "PlimCFUnpremultiplyRGBABuffer - invalid unpremultiplication\n");
}

void ExpectHSV(float r, float g, float b, float h, float s, float v) {
    float t[3] = {r, g, b};
    PlimConvertRGBToHSV(t);
    EXPECT_FLOAT_EQ(t[0], h) << r << "," << g << "," << b;
    EXPECT_FLOAT_EQ(t[1], s);
    EXPECT_FLOAT_EQ(t[2], v);
}

void ExpectRGB(float h, float s, float v, float r, float g, float b) {
    float t[3] = {h, s, v};
    PlimConvertHSVToRGB(t);
    EXPECT_FLOAT_EQ(t[0], r) << h << "," << s << "," << v;
    EXPECT_FLOAT_EQ(t[1], g);
    EXPECT_FLOAT_EQ(t[2], b);
}

TEST(HSV, DocumentedConversions) {
    ExpectHSV(1, 0, 0, 0, 1, 1);
    ExpectHSV(0, 1, 0, 120, 1, 1);
    ExpectHSV(0, 0, 1, 240, 1, 1);
    ExpectHSV(0.5f, 0.25f, 0.25f, 0, 0.25f, 0.5f);  // saturation is max - min
    ExpectHSV(1, 0, 0.5f, -30, 1, 1);               // hue is not wrapped
    ExpectHSV(1, 0, 1, -60, 1, 1);
    ExpectHSV(0.3f, 0.3f, 0.3f, 0, 0, 0.3f);

    ExpectRGB(120, 1, 1, 0, 1, 0);
    ExpectRGB(360, 1, 1, 0, 0, 0);
    ExpectRGB(-30, 1, 1, 0, 0, 0);
    ExpectRGB(77, 0, 0.4f, 0.4f, 0.4f, 0.4f);
    ExpectRGB(-500, 0, 0.4f, 0.4f, 0.4f, 0.4f);
    ExpectRGB(300, 1, 1, 1, 0, 1);
}

TEST(HSV, RoundTripHoldsWhenTheLargestComponentIsOne) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    for (int i = 0; i < 10000; ++i) {
        float c[3] = {unit(rng), unit(rng), unit(rng)};
        c[i % 3] = 1.0f;
        if (c[0] == 1.0f && c[2] > c[1]) std::swap(c[1], c[2]);  // keep the hue non-negative
        float t[3] = {c[0], c[1], c[2]};
        PlimConvertRGBToHSV(t);
        PlimConvertHSVToRGB(t);
        for (int k = 0; k < 3; ++k) EXPECT_NEAR(t[k], c[k], 2e-6f) << i;
    }
}

}  // namespace
