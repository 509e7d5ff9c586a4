// The drawing engine's own resampling: the row engines give the bytes of the plain per-pixel
// filters at every instruction set, and drawing keeps the pictures pixman drew before.
#include "platform/graphics/Resample.h"

#include "GraphicsTestSupport.h"

#include <gtest/gtest.h>

#include <pixman.h>

#include <cstdlib>
#include <random>
#include <vector>

namespace {

using namespace plim::graphics;

std::vector<VectorLevel> Levels() {
    std::vector<VectorLevel> levels{VectorLevel::None};
    if (BestVectorLevel() >= VectorLevel::SSE2) levels.push_back(VectorLevel::SSE2);
    if (BestVectorLevel() >= VectorLevel::AVX2) levels.push_back(VectorLevel::AVX2);
    return levels;
}

std::vector<uint8_t> RandomBytes(std::mt19937 &rng, size_t n) {
    std::vector<uint8_t> v(n);
    for (auto &b : v) b = static_cast<uint8_t>(rng());
    // Runs of the extreme values, where a sum or a product would overflow first.
    for (size_t i = 0; i < n; ++i)
        if (rng() % 6 == 0) v[i] = rng() % 2 ? 255 : 0;
    return v;
}

TEST(Resample, BoxEngineGivesTheMeanOfEachBlock) {
    std::mt19937 rng(7);
    for (int round = 0; round < 400; ++round) {
        BoxGeometry g{1 + rng() % 5, 1 + rng() % 5, rng() % 3, rng() % 3};
        if (round % 3 == 0) g.kx = g.ky = 2;  // the dedicated 2 x 2 rows
        if (round == 1) g.ky = 257;           // the tallest block whose column sums fit 16 bits
        const size_t width = 1 + rng() % 40, height = 1 + rng() % 3;
        const size_t sw = g.x + g.kx * width + rng() % 3, sh = g.y + g.ky * height + rng() % 2;
        const size_t stride = 4 * sw + rng() % 9;
        std::vector<uint8_t> bytes = RandomBytes(rng, stride * sh);
        const Pixels32 source{bytes.data(), stride, sw, sh};
        ASSERT_TRUE(BoxFits(source, g, width, height));
        std::vector<uint8_t> expected(4 * width), got(4 * width);
        for (VectorLevel level : Levels()) {
            BoxReducer engine(source, g, width, level);
            for (size_t j = 0; j < height; ++j) {
                ReferenceBoxRow(source, g, j, width, expected.data());
                engine.Row(j, got.data());
                ASSERT_EQ(got, expected) << "round " << round << " level " << static_cast<int>(level) << " row " << j;
            }
        }
    }
    // Blocks must lie inside the source, and their sums within the lanes.
    std::vector<uint8_t> bytes(4 * 10 * 10);
    const Pixels32 source{bytes.data(), 40, 10, 10};
    EXPECT_TRUE(BoxFits(source, {2, 2, 0, 0}, 5, 5));
    EXPECT_FALSE(BoxFits(source, {2, 2, 1, 0}, 5, 5));
    EXPECT_FALSE(BoxFits(source, {3, 3, 0, 0}, 4, 3));
    EXPECT_FALSE(BoxFits(source, {1, 258, 0, 0}, 1, 1));
}

TEST(Resample, BilinearEngineMatchesThePerPixelFilter) {
    std::mt19937 rng(8);
    for (int round = 0; round < 400; ++round) {
        const size_t sw = 1 + rng() % 30, sh = 1 + rng() % 6;
        const size_t width = 1 + rng() % 70, height = 1 + rng() % 8;
        const size_t stride = 4 * sw + rng() % 9;
        // Steps from a standstill to one pixel, starts from beyond either edge.
        const int64_t dx = rng() % 65537, dy = rng() % 65537;
        const int64_t x = static_cast<int64_t>(rng() % (sw * 65536 + 200000)) - 100000;
        const int64_t y = static_cast<int64_t>(rng() % (sh * 65536 + 200000)) - 100000;
        std::vector<uint8_t> bytes = RandomBytes(rng, stride * sh);
        const Pixels32 source{bytes.data(), stride, sw, sh};
        const BilinearGeometry g{x, dx, y, dy};
        ASSERT_TRUE(BilinearFits(source, g, width, height));
        std::vector<uint8_t> expected(4 * width), got(4 * width);
        for (VectorLevel level : Levels()) {
            BilinearResampler engine(source, g, width, level);
            // In order, then backwards and repeated: the kept rows must never go stale.
            std::vector<size_t> order;
            for (size_t j = 0; j < height; ++j) order.push_back(j);
            for (size_t j = height; j-- > 0;) order.push_back(j);
            order.push_back(height / 2);
            for (size_t j : order) {
                ReferenceBilinearRow(source, g, j, width, expected.data());
                engine.Row(j, got.data());
                ASSERT_EQ(got, expected) << "round " << round << " level " << static_cast<int>(level) << " row " << j;
            }
        }
    }
    std::vector<uint8_t> bytes(16);
    const Pixels32 source{bytes.data(), 8, 2, 2};
    EXPECT_FALSE(BilinearFits(source, {0, -1, 0, 1}, 2, 2));  // mirrored
    EXPECT_FALSE(BilinearFits(source, {int64_t{1} << 31, 1, 0, 1}, 2, 2));
}

// pixman drawing the same mapping: source pixel (i, j) centre at destination
// (i + 0.5) k + offset, as the drawing engine set it up before it had its own filters.
std::vector<uint8_t> PixmanDraw(const std::vector<uint8_t> &argb, size_t sw, size_t sh, size_t dw,
                                size_t dh, bool box) {
    std::vector<uint8_t> bytes = argb, out(dw * dh * 4, 0);
    pixman_image_t *src = pixman_image_create_bits(PIXMAN_b8g8r8a8, static_cast<int>(sw), static_cast<int>(sh),
                                                   reinterpret_cast<uint32_t *>(bytes.data()),
                                                   static_cast<int>(sw * 4));
    pixman_image_t *dst = pixman_image_create_bits(PIXMAN_b8g8r8a8, static_cast<int>(dw), static_cast<int>(dh),
                                                   reinterpret_cast<uint32_t *>(out.data()),
                                                   static_cast<int>(dw * 4));
    const double kx = static_cast<double>(sw) / static_cast<double>(dw);
    const double ky = static_cast<double>(sh) / static_cast<double>(dh);
    pixman_transform_t t;
    pixman_transform_init_scale(&t, pixman_double_to_fixed(kx), pixman_double_to_fixed(ky));
    pixman_image_set_transform(src, &t);
    if (box) {
        int n = 0;
        pixman_fixed_t *params = pixman_filter_create_separable_convolution(
            &n, pixman_double_to_fixed(kx), pixman_double_to_fixed(ky), PIXMAN_KERNEL_IMPULSE,
            PIXMAN_KERNEL_IMPULSE, PIXMAN_KERNEL_BOX, PIXMAN_KERNEL_BOX, 4, 4);
        pixman_image_set_filter(src, PIXMAN_FILTER_SEPARABLE_CONVOLUTION, params, n);
        std::free(params);
    } else {
        pixman_image_set_filter(src, PIXMAN_FILTER_BILINEAR, nullptr, 0);
    }
    pixman_image_set_repeat(src, PIXMAN_REPEAT_PAD);
    pixman_image_composite32(PIXMAN_OP_SRC, src, nullptr, dst, 0, 0, 0, 0, 0, 0, static_cast<int>(dw),
                             static_cast<int>(dh));
    pixman_image_unref(dst);
    pixman_image_unref(src);
    return out;
}

TEST(Resample, DrawingKeepsPixmansBilinearAndHalvingResults) {
    std::mt19937 rng(9);
    CGColorSpaceRef rgb = gfxtest::RGB();
    for (int round = 0; round < 40; ++round) {
        const bool box = round % 2 == 0;
        const size_t dw = 1 + rng() % 40, dh = 1 + rng() % 20;
        const size_t sw = box ? 2 * dw : 1 + rng() % dw, sh = box ? 2 * dh : 1 + rng() % dh;
        std::vector<uint8_t> argb = RandomBytes(rng, sw * sh * 4);
        for (size_t i = 0; i < argb.size(); i += 4)
            for (size_t c = 1; c < 4; ++c) argb[i + c] = static_cast<uint8_t>(argb[i + c] % (argb[i] + 1u));
        CGImageRef image = gfxtest::MakeImage(argb, sw, sh, 8, 32, sw * 4, rgb, kCGImageAlphaPremultipliedFirst);
        std::vector<uint8_t> drawn(dw * dh * 4, 0);
        CGContextRef ctx = CGBitmapContextCreate(drawn.data(), dw, dh, 8, dw * 4, rgb, kCGImageAlphaPremultipliedFirst);
        CGContextDrawImage(ctx, CGRectMake(0, 0, static_cast<float>(dw), static_cast<float>(dh)), image);
        CGContextRelease(ctx);
        CGImageRelease(image);
        ASSERT_EQ(drawn, PixmanDraw(argb, sw, sh, dw, dh, box))
            << sw << "x" << sh << " to " << dw << "x" << dh;
    }
    CGColorSpaceRelease(rgb);
}

}  // namespace
