// Crop, vertical flip and a 2:1 reduction of a 2048 x 2048 ARGB image, against memcpy of the
// image's bytes; the 2:1 reduction and a 1.5x enlargement also against pixman's bilinear
// scaling into freshly allocated memory, as the library scales into a new buffer. Each
// iteration works on a fresh image, made while the clock is stopped.
#include "bench_data.h"
#include "bench_pixman.h"
#include "bench_ratio.h"

#include <PlimBitmapLib/PlimBitmapLib.h>

#include <cstring>
#include <vector>

namespace {

constexpr UInt32 kSide = 2048;
constexpr size_t kBytes = size_t{kSide} * kSide * 4;

const std::vector<UInt8> &Source() {
    static std::vector<UInt8> pixels = plim::bench::RandomPremultipliedARGB(kBytes, 3);
    return pixels;
}

PlimCFImage FreshImage() {
    return PlimCFImageCreateWithBuffer(nullptr, Source().data(), kSide, kSide, 8, 32, kSide * 4, nullptr,
                                       kCGImageAlphaPremultipliedFirst);
}

void BM_memcpy(benchmark::State &state) {
    std::vector<UInt8> dst(kBytes);
    for (auto _ : state) {
        std::memcpy(dst.data(), Source().data(), kBytes);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
}

// The floor for operations that end in a new buffer: the same copy into freshly allocated
// memory, page faults included, with a fresh image alive beside it as in the others.
void BM_memcpyIntoNewMemory(benchmark::State &state) {
    for (auto _ : state) {
        state.PauseTiming();
        PlimCFImage image = FreshImage();
        state.ResumeTiming();
        void *dst = CFAllocatorAllocate(nullptr, static_cast<CFIndex>(kBytes), 0);
        std::memcpy(dst, PlimCFImageGetImageBuffer(image), kBytes);
        benchmark::DoNotOptimize(dst);
        benchmark::ClobberMemory();
        state.PauseTiming();
        CFAllocatorDeallocate(nullptr, dst);
        CFRelease(image);
        state.ResumeTiming();
    }
}

template <typename Operation>
void RunOnFreshImages(benchmark::State &state, Operation operation) {
    for (auto _ : state) {
        state.PauseTiming();
        PlimCFImage image = FreshImage();
        state.ResumeTiming();
        operation(image);
        benchmark::DoNotOptimize(PlimCFImageGetImageBuffer(image));
        state.PauseTiming();
        CFRelease(image);
        state.ResumeTiming();
    }
}

// Crop away a one-pixel frame: nearly all of the picture is kept.
void BM_Crop(benchmark::State &state) {
    RunOnFreshImages(state, [](PlimCFImage image) {
        PlimCFImageCropToRect(image, CGRectMake(1, 1, kSide - 2, kSide - 2));
    });
}

void BM_Flip(benchmark::State &state) {
    RunOnFreshImages(state, [](PlimCFImage image) { PlimCFImageFlipVertically(image); });
}

void BM_ScaleHalf(benchmark::State &state) {
    RunOnFreshImages(state, [](PlimCFImage image) {
        PlimCFImageScaleToSize(image, CGSizeMake(kSide / 2, kSide / 2));
    });
}

void BM_ScaleUp3to2(benchmark::State &state) {
    RunOnFreshImages(state, [](PlimCFImage image) {
        PlimCFImageScaleToSize(image, CGSizeMake(kSide * 3 / 2, kSide * 3 / 2));
    });
}

void PixmanIntoNewMemory(benchmark::State &state, UInt32 side) {
    const plim::bench::PixmanBilinearScale scale(Source().data(), kSide, kSide, static_cast<int>(side),
                                                 static_cast<int>(side));
    const auto bytes = static_cast<CFIndex>(size_t{side} * side * 4);
    for (auto _ : state) {
        void *dst = CFAllocatorAllocate(nullptr, bytes, 0);
        scale.Into(static_cast<uint32_t *>(dst));
        benchmark::DoNotOptimize(dst);
        benchmark::ClobberMemory();
        state.PauseTiming();
        CFAllocatorDeallocate(nullptr, dst);
        state.ResumeTiming();
    }
}

void BM_PixmanBilinearHalf(benchmark::State &state) { PixmanIntoNewMemory(state, kSide / 2); }
void BM_PixmanBilinearUp3to2(benchmark::State &state) { PixmanIntoNewMemory(state, kSide * 3 / 2); }

BENCHMARK(BM_memcpy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_memcpyIntoNewMemory)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Crop)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Flip)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScaleHalf)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PixmanBilinearHalf)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScaleUp3to2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PixmanBilinearUp3to2)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
    return plim::bench::RunWithRatios(argc, argv,
                                      {{"BM_Crop", "BM_memcpy"},
                                       {"BM_Flip", "BM_memcpy"},
                                       {"BM_ScaleHalf", "BM_memcpy"},
                                       {"BM_ScaleHalf", "BM_PixmanBilinearHalf"},
                                       {"BM_ScaleUp3to2", "BM_PixmanBilinearUp3to2"},
                                       {"BM_memcpyIntoNewMemory", "BM_memcpy"}});
}
