// Premultiplying and unpremultiplying a 4096 x 4096 ARGB buffer, against memcpy of the same bytes.
#include "bench_data.h"
#include "bench_ratio.h"

#include <PlimBitmapLib/PlimPixelBuffer.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr size_t kBytes = size_t(4096) * 4096 * 4;

std::vector<UInt8> &Source() {
    static std::vector<UInt8> pixels = plim::bench::RandomPremultipliedARGB(kBytes, 7);
    return pixels;
}

void BM_memcpy(benchmark::State &state) {
    std::vector<UInt8> dst(kBytes);
    const std::vector<UInt8> &src = Source();
    for (auto _ : state) {
        std::memcpy(dst.data(), src.data(), kBytes);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
}

// Each iteration converts the buffer in place; the values drift but every byte is still read
// and written once, which is what is measured.
void BM_PremultiplyARGB(benchmark::State &state) {
    std::vector<UInt8> buffer = Source();
    for (auto _ : state) {
        PlimCFPremultiplyARGBBuffer(buffer.data(), static_cast<UInt32>(kBytes));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
}

void BM_UnpremultiplyARGB(benchmark::State &state) {
    std::vector<UInt8> buffer = Source();
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(buffer.data(), Source().data(), kBytes);  // keep the input valid
        state.ResumeTiming();
        PlimCFUnpremultiplyARGBBuffer(buffer.data(), static_cast<UInt32>(kBytes));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
}

void BM_PremultiplyRGBA(benchmark::State &state) {
    std::vector<UInt8> buffer = Source();
    for (auto _ : state) {
        PlimCFPremultiplyRGBABuffer(buffer.data(), static_cast<UInt32>(kBytes));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBytes));
}

BENCHMARK(BM_memcpy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PremultiplyARGB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PremultiplyRGBA)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UnpremultiplyARGB)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
    return plim::bench::RunWithRatios(argc, argv,
                                      {{"BM_PremultiplyARGB", "BM_memcpy"},
                                       {"BM_PremultiplyRGBA", "BM_memcpy"},
                                       {"BM_UnpremultiplyARGB", "BM_memcpy"}});
}
