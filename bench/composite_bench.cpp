// Compositing 2048 x 2048 premultiplied ARGB images against pixman's combiners on the same
// pixels (memory order A,R,G,B is pixman's b8g8r8a8), and tiling against one full composite.
// The "throughput" ratios print pixman's time over ours: above 1 means we are faster.
#include "bench_ratio.h"

#include <PlimBitmapLib/PlimBitmapLib.h>

#include <pixman.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

constexpr UInt32 kSize = 2048;
constexpr size_t kBytes = size_t(kSize) * kSize * 4;

std::vector<UInt8> Pixels(unsigned seed) {
    std::vector<UInt8> p(kBytes);
    std::mt19937 rng(seed);
    for (size_t i = 0; i < kBytes; i += 4) {
        UInt8 a = static_cast<UInt8>(rng());
        p[i] = a;
        for (int c = 1; c < 4; ++c) p[i + c] = static_cast<UInt8>(rng() % (a + 1u));
    }
    return p;
}

const std::vector<UInt8> &SourcePixels() {
    static std::vector<UInt8> p = Pixels(1);
    return p;
}
const std::vector<UInt8> &DestPixels() {
    static std::vector<UInt8> p = Pixels(2);
    return p;
}

PlimCFImage MakeImage(const std::vector<UInt8> &pixels) {
    return PlimCFImageCreateWithBuffer(nullptr, pixels.data(), kSize, kSize, 8, 32, kSize * 4,
                                       nullptr, kCGImageAlphaPremultipliedFirst);
}

// Every iteration starts from the same destination pixels.
void Ours(benchmark::State &state, int op) {
    PlimCFImage src = MakeImage(SourcePixels());
    PlimCFImage dest = MakeImage(DestPixels());
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(PlimCFImageGetImageBuffer(dest), DestPixels().data(), kBytes);
        state.ResumeTiming();
        PlimCFImageComposite(src, dest, nullptr, nullptr, 1, op);
        benchmark::ClobberMemory();
    }
    CFRelease(src);
    CFRelease(dest);
}

void Pixman(benchmark::State &state, pixman_op_t op) {
    std::vector<UInt8> s = SourcePixels(), d = DestPixels();
    pixman_image_t *src = pixman_image_create_bits(PIXMAN_b8g8r8a8, kSize, kSize,
                                                   reinterpret_cast<uint32_t *>(s.data()), kSize * 4);
    pixman_image_t *dst = pixman_image_create_bits(PIXMAN_b8g8r8a8, kSize, kSize,
                                                   reinterpret_cast<uint32_t *>(d.data()), kSize * 4);
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(d.data(), DestPixels().data(), kBytes);
        state.ResumeTiming();
        pixman_image_composite32(op, src, nullptr, dst, 0, 0, 0, 0, 0, 0, kSize, kSize);
        benchmark::ClobberMemory();
    }
    pixman_image_unref(src);
    pixman_image_unref(dst);
}

void TileOurs(benchmark::State &state) {
    PlimCFImage src = MakeImage(SourcePixels());
    PlimCFImage dest = MakeImage(DestPixels());
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(PlimCFImageGetImageBuffer(dest), DestPixels().data(), kBytes);
        state.ResumeTiming();
        PlimCFImageTile(src, dest, CGRectMake(0, 0, 100, 100), CGRectMake(0, 0, kSize, kSize),
                        kPlimCompositeSrcOver, kPlimTileOriginMinXMinY);
        benchmark::ClobberMemory();
    }
    CFRelease(src);
    CFRelease(dest);
}

#define PLIM_BENCH_PAIR(name, ours, theirs)                                                  \
    void BM_Plim_##name(benchmark::State &s) { Ours(s, ours); }                                \
    void BM_Pixman_##name(benchmark::State &s) { Pixman(s, theirs); }                          \
    BENCHMARK(BM_Plim_##name)->Unit(benchmark::kMillisecond)->UseRealTime();                 \
    BENCHMARK(BM_Pixman_##name)->Unit(benchmark::kMillisecond)->UseRealTime();

PLIM_BENCH_PAIR(SrcOver, kPlimCompositeSrcOver, PIXMAN_OP_OVER)
PLIM_BENCH_PAIR(CopySrc, kPlimCompositeCopySrc, PIXMAN_OP_SRC)
PLIM_BENCH_PAIR(Multiply, kPlimCompositeMultiply, PIXMAN_OP_MULTIPLY)
PLIM_BENCH_PAIR(Screen, kPlimCompositeScreen, PIXMAN_OP_SCREEN)
PLIM_BENCH_PAIR(SoftLight, kPlimCompositeSoftLight, PIXMAN_OP_SOFT_LIGHT)
PLIM_BENCH_PAIR(Difference, kPlimCompositeDifference, PIXMAN_OP_DIFFERENCE)
BENCHMARK(TileOurs)->Name("BM_Plim_Tile100")->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
    std::vector<std::pair<std::string, std::string>> ratios;
    for (const char *op : {"SrcOver", "CopySrc", "Multiply", "Screen", "SoftLight", "Difference"})
        ratios.emplace_back(std::string("BM_Pixman_") + op + "/real_time",
                            std::string("BM_Plim_") + op + "/real_time");
    ratios.emplace_back("BM_Plim_Tile100/real_time", "BM_Plim_SrcOver/real_time");
    return plim::bench::RunWithRatios(argc, argv, ratios);
}
