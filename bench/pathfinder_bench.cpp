// Tracing the alpha outline of 512 x 512 and 2048 x 2048 masks (random discs and rings, and one
// large disc), with the trace's debug log going to /dev/null as it would in a quiet program,
// against potrace's library on the same masks: turdsize 0, no curve optimisation, its bitmap
// made from the same alpha bytes with the same threshold inside the clock. Also reported: the
// share of a call spent making and writing its log (the same log made again from the traced
// lists), and one plain pass over the alpha bytes as the floor.
#include "bench_ratio.h"

#include <PlimBitmapLib/PlimBitmapLib.h>
#include <emmintrin.h>
#include <fcntl.h>
#include <potracelib.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "core/ImageInternal.h"
#include "pathfinder/PathFinder.h"
#include "pathfinder/TraceLog.h"
#include "platform/runtime/CFRef.h"

namespace {

constexpr float kThreshold = 0.5f;  // alpha 128 and above is solid

// Sends standard output to /dev/null while it lives; the benchmark reporter writes after it.
class QuietStdout {
public:
    QuietStdout() {
        std::fflush(stdout);
        saved_ = dup(1);
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        close(null);
    }
    ~QuietStdout() {
        std::fflush(stdout);
        dup2(saved_, 1);
        close(saved_);
    }
    QuietStdout(const QuietStdout &) = delete;
    QuietStdout &operator=(const QuietStdout &) = delete;

private:
    int saved_;
};

enum class Shape { Blobs, Disc };

// ARGB words, alpha first, side x side. Blobs: discs and rings of random sizes, some
// overlapping, as many per area at every size; disc: one disc filling most of the square.
const std::vector<UInt8> &Mask(Shape shape, UInt32 side) {
    static std::map<std::pair<Shape, UInt32>, std::vector<UInt8>> made;
    auto found = made.find({shape, side});
    if (found != made.end()) return found->second;
    std::vector<UInt8> p(size_t{side} * side * 4, 0);
    auto fill = [&](float cx, float cy, float outer, float inner) {
        const int last = static_cast<int>(side) - 1;
        for (int y = std::max(0, int(cy - outer)); y <= std::min(last, int(cy + outer)); ++y)
            for (int x = std::max(0, int(cx - outer)); x <= std::min(last, int(cx + outer)); ++x) {
                float d = std::hypot(static_cast<float>(x) - cx, static_cast<float>(y) - cy);
                if (d <= outer && d > inner) p[(static_cast<size_t>(y) * side + x) * 4] = 255;
            }
    };
    if (shape == Shape::Disc) {
        const float centre = static_cast<float>(side) / 2;
        fill(centre, centre, 0.4f * static_cast<float>(side), -1.0f);
    } else {
        std::mt19937 rng(11);
        const int shapes = static_cast<int>(600.0 * side * side / (2048.0 * 2048.0));
        for (int k = 0; k < shapes; ++k) {
            float cx = static_cast<float>(rng() % side), cy = static_cast<float>(rng() % side);
            float outer = 8.0f + static_cast<float>(rng() % 60);
            float inner = k % 2 ? outer - 2.0f - static_cast<float>(rng() % 8) : -1.0f;  // rings
            fill(cx, cy, outer, inner);
        }
    }
    return made.emplace(std::make_pair(shape, side), std::move(p)).first->second;
}

plim::CFRef<PlimCFImage> MakeImage(Shape shape, UInt32 side) {
    return plim::CFRef<PlimCFImage>(PlimCFImageCreateWithBuffer(nullptr, Mask(shape, side).data(), side, side, 8,
                                                                32, side * 4, nullptr,
                                                                kCGImageAlphaPremultipliedFirst));
}

void SetPixelRate(benchmark::State &state, UInt32 side) {
    state.counters["pixels/s"] = benchmark::Counter(static_cast<double>(state.iterations()) * side * side,
                                                    benchmark::Counter::kIsRate);
}

void BM_CopyAlphaPath(benchmark::State &state, Shape shape, UInt32 side) {
    auto image = MakeImage(shape, side);
    QuietStdout quiet;
    for (auto _ : state) {
        CGMutablePathRef path = PlimCFImageCopyAlphaPath(image.get(), kThreshold);
        benchmark::DoNotOptimize(path);
        CGPathRelease(path);
    }
    SetPixelRate(state, side);
}

// potrace's bitmap: rows of words, the leftmost pixel in the most significant bit.
void PotraceBitmap(const std::vector<UInt8> &argb, UInt32 side, std::vector<potrace_word> &map) {
    static const std::array<uint8_t, 256> reversed = [] {
        std::array<uint8_t, 256> r{};
        for (unsigned b = 0; b < 256; ++b)
            for (unsigned bit = 0; bit < 8; ++bit)
                if (b & (1u << bit)) r[b] |= static_cast<uint8_t>(0x80u >> bit);
        return r;
    }();
    const size_t words = (side + 63) / 64;
    const __m128i alphaBytes = _mm_set1_epi32(0xFF);
    for (size_t y = 0; y < side; ++y) {
        const UInt8 *row = argb.data() + y * side * 4;
        potrace_word *out = map.data() + y * words;
        for (size_t w = 0; w < words; ++w) {
            potrace_word bits = 0;
            for (size_t x = 64 * w; x < std::min<size_t>(64 * w + 64, side); x += 16) {
                // Sixteen alphas of 128 and above (top bit set) as sixteen bits, the pixel order
                // reversed into the word.
                const auto *p = reinterpret_cast<const __m128i *>(row + 4 * x);
                __m128i a = _mm_packus_epi16(
                    _mm_packs_epi32(_mm_and_si128(_mm_loadu_si128(p), alphaBytes),
                                    _mm_and_si128(_mm_loadu_si128(p + 1), alphaBytes)),
                    _mm_packs_epi32(_mm_and_si128(_mm_loadu_si128(p + 2), alphaBytes),
                                    _mm_and_si128(_mm_loadu_si128(p + 3), alphaBytes)));
                const auto solid = static_cast<unsigned>(_mm_movemask_epi8(a));
                const potrace_word ordered = (potrace_word{reversed[solid & 0xFF]} << 8) | reversed[solid >> 8];
                bits |= ordered << (48 - (x - 64 * w));
            }
            out[w] = bits;
        }
    }
}

void BM_Potrace(benchmark::State &state, Shape shape, UInt32 side) {
    const std::vector<UInt8> &argb = Mask(shape, side);
    potrace_param_t *param = potrace_param_default();
    param->turdsize = 0;
    param->opticurve = 0;
    std::vector<potrace_word> map;
    for (auto _ : state) {
        map.assign(size_t{side} * ((side + 63) / 64), 0);
        PotraceBitmap(argb, side, map);
        potrace_bitmap_t bitmap{static_cast<int>(side), static_cast<int>(side), static_cast<int>((side + 63) / 64),
                                map.data()};
        potrace_state_t *traced = potrace_trace(param, &bitmap);
        if (!traced || traced->status != POTRACE_STATUS_OK) state.SkipWithError("potrace failed");
        benchmark::DoNotOptimize(traced);
        potrace_state_free(traced);
    }
    potrace_param_free(param);
    SetPixelRate(state, side);
}

// The floor: one pass over the alpha bytes with the same threshold test.
void BM_AlphaScan(benchmark::State &state) {
    const std::vector<UInt8> &mask = Mask(Shape::Blobs, 2048);
    for (auto _ : state) {
        size_t solid = 0;
        for (size_t i = 0; i < mask.size(); i += 4) solid += static_cast<float>(mask[i]) / 255.0f > kThreshold;
        benchmark::DoNotOptimize(solid);
    }
    SetPixelRate(state, 2048);
}

// The log of one call on the 2048 x 2048 blobs, made from the traced lists and written, and
// nothing else.
void BM_LogOnly(benchmark::State &state) {
    auto image = MakeImage(Shape::Blobs, 2048);
    PlimCFImagePromoteImage(image.get(), true, true);
    const PathFinder::ImageInfo info{static_cast<const uint32_t *>(image.get()->buffer), 2048, 2048, kThreshold};
    std::vector<uint8_t> cells(PathFinder::BoundaryCells(2048, 2048));
    PathFinder::TraceLog traceLines;
    const PathFinder::SubpathList traced = PathFinder::TraceBoundaries(info, cells.data(), traceLines);
    PathFinder::SubpathList open = traced, closed;
    PathFinder::SortOutClosedSubpaths(open, closed);
    PathFinder::SubpathList joined = open, joinedClosed = closed;
    PathFinder::JoinOpenSubpaths(joined, joinedClosed);
    for (auto &subpath : joined) PathFinder::RetraceOpenSubpath(subpath);
    PathFinder::SubpathList merged = joinedClosed;
    merged.insert(merged.end(), joined.begin(), joined.end());

    QuietStdout quiet;
    for (auto _ : state) {
        PathFinder::TraceLog log = traceLines;
        log.Listing(traced);
        log.Text("\nClosed Paths:\n");
        log.Listing(closed);
        log.Text("\nOpen Paths:\n");
        log.Listing(open);
        log.Text("\n\n");
        log.Listing(merged);
        log.WriteTo(stdout);
    }
    state.counters["subpaths"] = static_cast<double>(merged.size());
}

BENCHMARK(BM_AlphaScan)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CopyAlphaPath, blobs_512, Shape::Blobs, 512)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Potrace, blobs_512, Shape::Blobs, 512)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CopyAlphaPath, disc_512, Shape::Disc, 512)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Potrace, disc_512, Shape::Disc, 512)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CopyAlphaPath, blobs_2048, Shape::Blobs, 2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Potrace, blobs_2048, Shape::Blobs, 2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CopyAlphaPath, disc_2048, Shape::Disc, 2048)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Potrace, disc_2048, Shape::Disc, 2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LogOnly)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
    return plim::bench::RunWithRatios(argc, argv,
                                      {{"BM_CopyAlphaPath/blobs_512", "BM_Potrace/blobs_512"},
                                       {"BM_CopyAlphaPath/disc_512", "BM_Potrace/disc_512"},
                                       {"BM_CopyAlphaPath/blobs_2048", "BM_Potrace/blobs_2048"},
                                       {"BM_CopyAlphaPath/disc_2048", "BM_Potrace/disc_2048"},
                                       {"BM_LogOnly", "BM_CopyAlphaPath/blobs_2048"},
                                       {"BM_CopyAlphaPath/blobs_2048", "BM_AlphaScan"}});
}
