// CGContextDrawImage of a 2048 x 2048 picture: the 1:1 conversion of straight RGBA into
// premultiplied ARGB against memcpy of the same bytes; a 2:1 reduction against pixman's 2 x 2
// box (the same filter) and its bilinear filter; a 1.5x enlargement to 3072 x 3072 against
// pixman's bilinear filter. The destination is cleared outside the clock for every side.
#include "bench_pixman.h"
#include "bench_ratio.h"

#include <PlimBitmapLib/platform/CoreGraphics.h>

#include <pixman.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

namespace {

constexpr size_t kSide = 2048;
constexpr size_t kBytes = kSide * kSide * 4;

std::vector<uint8_t> &RandomBytes() {
    static std::vector<uint8_t> bytes = [] {
        std::vector<uint8_t> b(kBytes);
        std::mt19937 rng(11);
        for (auto &v : b) v = static_cast<uint8_t>(rng());
        return b;
    }();
    return bytes;
}

// Valid premultiplied ARGB.
std::vector<uint8_t> &PremultipliedBytes() {
    static std::vector<uint8_t> bytes = [] {
        std::vector<uint8_t> b = RandomBytes();
        for (size_t i = 0; i < kBytes; i += 4)
            for (int c = 1; c < 4; ++c) b[i + c] = static_cast<uint8_t>(b[i + c] % (b[i] + 1u));
        return b;
    }();
    return bytes;
}

CGImageRef Image(const std::vector<uint8_t> &bytes, CGImageAlphaInfo alpha) {
    CGColorSpaceRef rgb = CGColorSpaceCreateWithName(kCGColorSpaceGenericRGB);
    CGDataProviderRef provider =
        CGDataProviderCreateWithData(nullptr, bytes.data(), kBytes, nullptr);
    CGImageRef image = CGImageCreate(kSide, kSide, 8, 32, kSide * 4, rgb, alpha, provider, nullptr,
                                     true, kCGRenderingIntentDefault);
    CGDataProviderRelease(provider);
    CGColorSpaceRelease(rgb);
    return image;
}

void BM_memcpy(benchmark::State &state) {
    std::vector<uint8_t> dst(kBytes);
    const std::vector<uint8_t> &src = RandomBytes();
    for (auto _ : state) {
        std::memcpy(dst.data(), src.data(), kBytes);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
}

// Straight-alpha RGBA into a fresh premultiplied ARGB bitmap, as a promotion does.
void BM_DrawRGBAIntoARGB(benchmark::State &state) {
    CGImageRef image = Image(RandomBytes(), kCGImageAlphaLast);
    std::vector<uint8_t> dst(kBytes);
    CGColorSpaceRef rgb = CGColorSpaceCreateWithName(kCGColorSpaceGenericRGB);
    CGContextRef ctx = CGBitmapContextCreate(dst.data(), kSide, kSide, 8, kSide * 4, rgb,
                                             kCGImageAlphaPremultipliedFirst);
    for (auto _ : state) {
        state.PauseTiming();
        std::memset(dst.data(), 0, kBytes);
        state.ResumeTiming();
        CGContextDrawImage(ctx, CGRectMake(0, 0, kSide, kSide), image);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
    CGContextRelease(ctx);
    CGColorSpaceRelease(rgb);
    CGImageRelease(image);
}

// Premultiplied ARGB drawn scaled to side x side, into a premultiplied ARGB bitmap.
void DrawScaled(benchmark::State &state, size_t side) {
    CGImageRef image = Image(PremultipliedBytes(), kCGImageAlphaPremultipliedFirst);
    std::vector<uint8_t> dst(side * side * 4);
    CGColorSpaceRef rgb = CGColorSpaceCreateWithName(kCGColorSpaceGenericRGB);
    CGContextRef ctx = CGBitmapContextCreate(dst.data(), side, side, 8, side * 4, rgb,
                                             kCGImageAlphaPremultipliedFirst);
    const auto extent = static_cast<float>(side);
    for (auto _ : state) {
        state.PauseTiming();
        std::memset(dst.data(), 0, dst.size());
        state.ResumeTiming();
        CGContextDrawImage(ctx, CGRectMake(0, 0, extent, extent), image);
        benchmark::ClobberMemory();
    }
    CGContextRelease(ctx);
    CGColorSpaceRelease(rgb);
    CGImageRelease(image);
}

void PixmanBilinear(benchmark::State &state, size_t side) {
    const plim::bench::PixmanBilinearScale scale(PremultipliedBytes().data(), kSide, kSide,
                                                 static_cast<int>(side), static_cast<int>(side));
    std::vector<uint32_t> dst(side * side);
    for (auto _ : state) {
        state.PauseTiming();
        std::memset(dst.data(), 0, dst.size() * 4);
        state.ResumeTiming();
        scale.Into(dst.data());
        benchmark::ClobberMemory();
    }
}

void BM_DrawReduce2to1(benchmark::State &state) { DrawScaled(state, kSide / 2); }
void BM_PixmanBilinearReduce2to1(benchmark::State &state) { PixmanBilinear(state, kSide / 2); }
void BM_DrawEnlarge3to2(benchmark::State &state) { DrawScaled(state, kSide * 3 / 2); }
void BM_PixmanBilinearEnlarge3to2(benchmark::State &state) { PixmanBilinear(state, kSide * 3 / 2); }

// The same reduction with pixman alone: the same bytes, format, filter and edge rule.
void BM_PixmanReduce2to1(benchmark::State &state) {
    std::vector<uint8_t> &bytes = PremultipliedBytes();
    std::vector<uint8_t> dst(kBytes / 4);
    pixman_image_t *src = pixman_image_create_bits(
        PIXMAN_b8g8r8a8, kSide, kSide, reinterpret_cast<uint32_t *>(bytes.data()), kSide * 4);
    pixman_image_t *out = pixman_image_create_bits(
        PIXMAN_b8g8r8a8, kSide / 2, kSide / 2, reinterpret_cast<uint32_t *>(dst.data()), kSide * 2);
    pixman_transform_t t;
    pixman_transform_init_scale(&t, pixman_double_to_fixed(2), pixman_double_to_fixed(2));
    pixman_image_set_transform(src, &t);
    int n = 0;
    pixman_fixed_t *params = pixman_filter_create_separable_convolution(
        &n, pixman_double_to_fixed(2), pixman_double_to_fixed(2), PIXMAN_KERNEL_IMPULSE,
        PIXMAN_KERNEL_IMPULSE, PIXMAN_KERNEL_BOX, PIXMAN_KERNEL_BOX, 4, 4);
    pixman_image_set_filter(src, PIXMAN_FILTER_SEPARABLE_CONVOLUTION, params, n);
    std::free(params);
    pixman_image_set_repeat(src, PIXMAN_REPEAT_PAD);
    for (auto _ : state) {
        state.PauseTiming();
        std::memset(dst.data(), 0, dst.size());
        state.ResumeTiming();
        pixman_image_composite32(PIXMAN_OP_OVER, src, nullptr, out, 0, 0, 0, 0, 0, 0, kSide / 2,
                                 kSide / 2);
        benchmark::ClobberMemory();
    }
    pixman_image_unref(out);
    pixman_image_unref(src);
}

BENCHMARK(BM_memcpy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DrawRGBAIntoARGB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PixmanReduce2to1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PixmanBilinearReduce2to1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DrawReduce2to1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PixmanBilinearEnlarge3to2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DrawEnlarge3to2)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
    return plim::bench::RunWithRatios(
        argc, argv,
        {{"BM_DrawRGBAIntoARGB", "BM_memcpy"},
         {"BM_DrawReduce2to1", "BM_PixmanReduce2to1"},
         {"BM_DrawReduce2to1", "BM_PixmanBilinearReduce2to1"},
         {"BM_DrawEnlarge3to2", "BM_PixmanBilinearEnlarge3to2"}});
}
