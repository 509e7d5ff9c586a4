// Tracing the alpha outline of a 2048 x 2048 mask of discs and rings, with the trace's debug log
// going to /dev/null as it would in a quiet program. Reports pixels per second and, as ratios
// within the run: the trace against one plain pass over the same alpha bytes, the share of the
// call spent writing the log (the same lines written again with the same stdio and stream
// calls), and the share spent outside the promotion that every call makes.
#include "bench_ratio.h"

#include <PlimBitmapLib/PlimBitmapLib.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "core/ImageInternal.h"
#include "pathfinder/PathFinder.h"
#include "platform/runtime/CFRef.h"

namespace {

constexpr UInt32 kSize = 2048;
constexpr int64_t kPixels = int64_t(kSize) * kSize;

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

// ARGB words, alpha first: discs and rings of random sizes, some overlapping.
const std::vector<UInt8> &Mask() {
    static std::vector<UInt8> pixels = [] {
        std::vector<UInt8> p(static_cast<size_t>(kPixels) * 4, 0);
        std::mt19937 rng(11);
        for (int shape = 0; shape < 600; ++shape) {
            float cx = static_cast<float>(rng() % kSize), cy = static_cast<float>(rng() % kSize);
            float outer = 8.0f + static_cast<float>(rng() % 60);
            float inner = shape % 2 ? outer - 2.0f - static_cast<float>(rng() % 8) : -1.0f;  // rings
            for (int y = std::max(0, int(cy - outer)); y <= std::min(int(kSize) - 1, int(cy + outer)); ++y)
                for (int x = std::max(0, int(cx - outer)); x <= std::min(int(kSize) - 1, int(cx + outer)); ++x) {
                    float d = std::hypot(static_cast<float>(x) - cx, static_cast<float>(y) - cy);
                    if (d <= outer && d > inner) p[(static_cast<size_t>(y) * kSize + x) * 4] = 255;
                }
        }
        return p;
    }();
    return pixels;
}

plim::CFRef<PlimCFImage> MakeImage() {
    return plim::CFRef<PlimCFImage>(PlimCFImageCreateWithBuffer(nullptr, Mask().data(), kSize, kSize, 8, 32,
                                                                kSize * 4, nullptr,
                                                                kCGImageAlphaPremultipliedFirst));
}

void SetPixelRate(benchmark::State &state) {
    state.counters["pixels/s"] = benchmark::Counter(static_cast<double>(state.iterations() * kPixels),
                                                    benchmark::Counter::kIsRate);
}

// The floor: one pass over the alpha bytes with the same threshold test.
void BM_AlphaScan(benchmark::State &state) {
    const std::vector<UInt8> &mask = Mask();
    for (auto _ : state) {
        size_t solid = 0;
        for (size_t i = 0; i < mask.size(); i += 4) solid += static_cast<float>(mask[i]) / 255.0f > 0.5f;
        benchmark::DoNotOptimize(solid);
    }
    SetPixelRate(state);
}

void BM_CopyAlphaPath(benchmark::State &state) {
    auto image = MakeImage();
    QuietStdout quiet;
    for (auto _ : state) {
        CGMutablePathRef path = PlimCFImageCopyAlphaPath(image.get(), 0.5f);
        benchmark::DoNotOptimize(path);
        CGPathRelease(path);
    }
    SetPixelRate(state);
}

// Trace and assembly on the promoted buffer, without the promotion.
void BM_TraceAndAssemble(benchmark::State &state) {
    auto image = MakeImage();
    PlimCFImagePromoteImage(image.get(), true, true);
    PathFinder::ImageInfo info{static_cast<const uint32_t *>(image.get()->buffer), kSize, kSize, 0.5f};
    std::vector<uint8_t> visited(static_cast<size_t>(kPixels));
    QuietStdout quiet;
    for (auto _ : state) {
        std::memset(visited.data(), 0, visited.size());
        auto merged = PathFinder::AssembleSubpaths(PathFinder::TraceSubpaths(info, visited.data()));
        benchmark::DoNotOptimize(merged.data());
    }
    SetPixelRate(state);
}

// Everything one call writes, ready to be written again with the same calls: the trace's
// printf lines (read back from a captured log) and the four lists that the listings print.
struct LogWork {
    struct TraceLine {
        char kind;  // 's'tarting, 'a'dding, 'c'losing
        int column, row;
    };
    std::vector<TraceLine> traceLines;
    PathFinder::SubpathList traced, closed, open, merged;
};

const LogWork &Log() {
    static LogWork work = [] {
        LogWork w;
        auto image = MakeImage();
        PlimCFImagePromoteImage(image.get(), true, true);
        PathFinder::ImageInfo info{static_cast<const uint32_t *>(image.get()->buffer), kSize, kSize, 0.5f};
        std::vector<uint8_t> visited(static_cast<size_t>(kPixels));

        std::FILE *file = std::tmpfile();
        std::fflush(stdout);
        int saved = dup(1);
        dup2(fileno(file), 1);
        w.traced = PathFinder::TraceSubpaths(info, visited.data());
        std::fflush(stdout);
        dup2(saved, 1);
        close(saved);
        std::rewind(file);
        char line[256];
        int column, row;
        while (std::fgets(line, sizeof line, file)) {
            if (std::sscanf(line, "starting subpath (%d, %d)", &column, &row) == 2)
                w.traceLines.push_back({'s', column, row});
            else if (std::sscanf(line, "adding line (%d, %d)", &column, &row) == 2)
                w.traceLines.push_back({'a', column, row});
            else if (std::strncmp(line, "closing subpath", 15) == 0)
                w.traceLines.push_back({'c', 0, 0});
        }
        std::fclose(file);

        w.open = w.traced;
        PathFinder::SortOutClosedSubpaths(w.open, w.closed);
        PathFinder::SubpathList joined = w.open, closed = w.closed;
        PathFinder::JoinOpenSubpaths(joined, closed);
        for (auto &subpath : joined) PathFinder::RetraceOpenSubpath(subpath);
        w.merged = closed;
        w.merged.insert(w.merged.end(), joined.begin(), joined.end());
        return w;
    }();
    return work;
}

// The log of one call, written with the calls the tracer uses, and nothing else.
void BM_LogOnly(benchmark::State &state) {
    const LogWork &work = Log();
    QuietStdout quiet;
    for (auto _ : state) {
        for (const LogWork::TraceLine &line : work.traceLines) {
            if (line.kind == 's')
                std::printf("starting subpath (%d, %d)\n", line.column, line.row);
            else if (line.kind == 'a')
                std::printf("adding line (%d, %d)\n", line.column, line.row);
            else
                std::puts("closing subpath");
        }
        std::cout << work.traced << "\nClosed Paths:\n" << work.closed << "\nOpen Paths:\n" << work.open;
        std::cout << "\n\n" << work.merged;
    }
    state.counters["subpaths"] = static_cast<double>(work.merged.size());
}

BENCHMARK(BM_AlphaScan)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CopyAlphaPath)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TraceAndAssemble)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LogOnly)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char **argv) {
    Log();  // captured before any timing
    return plim::bench::RunWithRatios(argc, argv,
                                      {{"BM_CopyAlphaPath", "BM_AlphaScan"},
                                       {"BM_LogOnly", "BM_CopyAlphaPath"},
                                       {"BM_TraceAndAssemble", "BM_CopyAlphaPath"}});
}
