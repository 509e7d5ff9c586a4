// Compositing against pixman and memcpy, measured side by side in one run. Every operation is
// timed on 2048 x 2048 premultiplied ARGB next to pixman's matching operator (memory order
// A,R,G,B is pixman's b8g8r8a8), in interleaved rounds of CPU time, keeping each one's best.
// Also: SrcOver against memcpy of the same bytes, the opaque and grey layouts per byte against
// ARGB, and tiling in small tiles against one composite of the whole image.
//
//   composite_bench [rounds]     (default 5)
#include "bench_data.h"

#include <PlimBitmapLib/PlimBitmapLib.h>

#include <pixman.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr UInt32 kSize = 2048;
constexpr size_t kBytes = size_t(kSize) * kSize * 4;

struct Operation {
    const char *name;
    PlimCompositeOperation ours;
    pixman_op_t pixman;
};

const Operation kOperations[] = {
    {"Clear", kPlimCompositeClear, PIXMAN_OP_CLEAR},
    {"CopySrc", kPlimCompositeCopySrc, PIXMAN_OP_SRC},
    {"CopyDest", kPlimCompositeCopyDest, PIXMAN_OP_DST},
    {"SrcOver", kPlimCompositeSrcOver, PIXMAN_OP_OVER},
    {"DestOver", kPlimCompositeDestOver, PIXMAN_OP_OVER_REVERSE},
    {"SrcIn", kPlimCompositeSrcIn, PIXMAN_OP_IN},
    {"DestIn", kPlimCompositeDestIn, PIXMAN_OP_IN_REVERSE},
    {"SrcOut", kPlimCompositeSrcOut, PIXMAN_OP_OUT},
    {"DestOut", kPlimCompositeDestOut, PIXMAN_OP_OUT_REVERSE},
    {"SrcAtop", kPlimCompositeSrcAtop, PIXMAN_OP_ATOP},
    {"DestAtop", kPlimCompositeDestAtop, PIXMAN_OP_ATOP_REVERSE},
    {"XOR", kPlimCompositeXOR, PIXMAN_OP_XOR},
    {"Plus", kPlimCompositePlus, PIXMAN_OP_ADD},
    {"Multiply", kPlimCompositeMultiply, PIXMAN_OP_MULTIPLY},
    {"Screen", kPlimCompositeScreen, PIXMAN_OP_SCREEN},
    {"Overlay", kPlimCompositeOverlay, PIXMAN_OP_OVERLAY},
    {"Darken", kPlimCompositeDarken, PIXMAN_OP_DARKEN},
    {"Lighten", kPlimCompositeLighten, PIXMAN_OP_LIGHTEN},
    {"ColorDodge", kPlimCompositeColorDodge, PIXMAN_OP_COLOR_DODGE},
    {"ColorBurn", kPlimCompositeColorBurn, PIXMAN_OP_COLOR_BURN},
    {"HardLight", kPlimCompositeHardLight, PIXMAN_OP_HARD_LIGHT},
    {"SoftLight", kPlimCompositeSoftLight, PIXMAN_OP_SOFT_LIGHT},
    {"Difference", kPlimCompositeDifference, PIXMAN_OP_DIFFERENCE},
    {"Exclusion", kPlimCompositeExclusion, PIXMAN_OP_EXCLUSION},
};
constexpr size_t kCount = sizeof kOperations / sizeof kOperations[0];

double CpuSeconds() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// The best of the times `work` took, each after `reset` (not timed).
struct Timer {
    double best = 1e30;
    void Measure(const std::function<void()> &reset, const std::function<void()> &work) {
        reset();
        const double start = CpuSeconds();
        work();
        best = std::min(best, CpuSeconds() - start);
    }
};

std::vector<UInt8> RandomBytes(size_t n, unsigned seed) {
    std::vector<UInt8> p(n);
    unsigned x = seed * 2654435761u + 1;
    for (auto &b : p) b = static_cast<UInt8>((x = x * 1664525u + 1013904223u) >> 24);
    return p;
}

struct Images {
    std::vector<UInt8> srcPixels, destPixels;
    PlimCFImage src = nullptr, dest = nullptr;
    ~Images() {
        if (src) CFRelease(src);
        if (dest) CFRelease(dest);
    }
    void Reset() const { std::memcpy(PlimCFImageGetImageBuffer(dest), destPixels.data(), destPixels.size()); }
};

// Two images of one layout holding the given pixels.
void Make(Images &im, UInt32 w, UInt32 h, UInt32 bpp, CGColorSpaceRef space, CGImageAlphaInfo alpha) {
    im.src = PlimCFImageCreateWithBuffer(nullptr, im.srcPixels.data(), w, h, 8, bpp * 8, w * bpp,
                                         space, alpha);
    im.dest = PlimCFImageCreateWithBuffer(nullptr, im.destPixels.data(), w, h, 8, bpp * 8, w * bpp,
                                          space, alpha);
    if (!im.src || !im.dest) {
        std::fprintf(stderr, "cannot make the images\n");
        std::exit(1);
    }
}

double GeoMean(const std::vector<double> &v) {
    double s = 0;
    for (double x : v) s += std::log(x);
    return std::exp(s / static_cast<double>(v.size()));
}

}  // namespace

int main(int argc, char **argv) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;

    Images argb, rgb, grey;
    argb.srcPixels = plim::bench::RandomPremultipliedARGB(kBytes, 1);
    argb.destPixels = plim::bench::RandomPremultipliedARGB(kBytes, 2);
    Make(argb, kSize, kSize, 4, nullptr, kCGImageAlphaPremultipliedFirst);
    rgb.srcPixels = RandomBytes(kBytes, 3);
    rgb.destPixels = RandomBytes(kBytes, 4);
    CGColorSpaceRef rgbSpace = PlimCGColorSpaceCreateMainDisplay();
    Make(rgb, kSize, kSize, 4, rgbSpace, kCGImageAlphaNoneSkipFirst);
    grey.srcPixels = RandomBytes(kBytes, 5);
    grey.destPixels = RandomBytes(kBytes, 6);
    CGColorSpaceRef greySpace = CGColorSpaceCreateDeviceGray();
    Make(grey, kSize * 2, kSize * 2, 1, greySpace, kCGImageAlphaNone);  // the same bytes as ARGB

    std::vector<UInt8> pixSrc = argb.srcPixels, pixDest = argb.destPixels;
    pixman_image_t *pSrc = pixman_image_create_bits(PIXMAN_b8g8r8a8, kSize, kSize,
                                                    reinterpret_cast<uint32_t *>(pixSrc.data()), kSize * 4);
    pixman_image_t *pDest = pixman_image_create_bits(PIXMAN_b8g8r8a8, kSize, kSize,
                                                     reinterpret_cast<uint32_t *>(pixDest.data()), kSize * 4);
    std::vector<UInt8> copyTarget(kBytes);

    Timer ours[kCount], theirs[kCount], opaque[kCount], greyT[kCount], copy, tiles16, tiles100;
    Timer callOurs, callTheirs;  // 1000 calls that draw nothing: the cost of a call itself
    constexpr int kCalls = 1000;
    auto resetPixman = [&] { std::memcpy(pixDest.data(), argb.destPixels.data(), kBytes); };
    for (int r = 0; r < rounds; ++r) {
        for (size_t i = 0; i < kCount; ++i) {
            const Operation &op = kOperations[i];
            ours[i].Measure([&] { argb.Reset(); }, [&] {
                PlimCFImageComposite(argb.src, argb.dest, nullptr, nullptr, 1, op.ours);
            });
            theirs[i].Measure(resetPixman, [&] {
                pixman_image_composite32(op.pixman, pSrc, nullptr, pDest, 0, 0, 0, 0, 0, 0, kSize, kSize);
            });
            opaque[i].Measure([&] { rgb.Reset(); }, [&] {
                PlimCFImageComposite(rgb.src, rgb.dest, nullptr, nullptr, 1, op.ours);
            });
            greyT[i].Measure([&] { grey.Reset(); }, [&] {
                PlimCFImageComposite(grey.src, grey.dest, nullptr, nullptr, 1, op.ours);
            });
        }
        copy.Measure([] {}, [&] { std::memcpy(copyTarget.data(), argb.srcPixels.data(), kBytes); });
        callOurs.Measure([] {}, [&] {
            for (int k = 0; k < kCalls; ++k)
                PlimCFImageComposite(argb.src, argb.dest, nullptr, nullptr, 1, kPlimCompositeCopyDest);
        });
        callTheirs.Measure([] {}, [&] {
            for (int k = 0; k < kCalls; ++k)
                pixman_image_composite32(PIXMAN_OP_DST, pSrc, nullptr, pDest, 0, 0, 0, 0, 0, 0, kSize, kSize);
        });
        for (auto [timer, side] : {std::pair{&tiles16, 16.0f}, std::pair{&tiles100, 100.0f}})
            timer->Measure([&] { argb.Reset(); }, [&] {
                PlimCFImageTile(argb.src, argb.dest, CGRectMake(0, 0, side, side),
                                CGRectMake(0, 0, kSize, kSize), kPlimCompositeSrcOver,
                                kPlimTileOriginMinXMinY);
            });
    }

    std::vector<size_t> order(kCount);
    for (size_t i = 0; i < kCount; ++i) order[i] = i;
    auto ratio = [&](size_t i) { return ours[i].best / theirs[i].best; };
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return ratio(a) > ratio(b); });

    std::printf("2048 x 2048, best of %d interleaved rounds, CPU time; ratio below 1 = faster\n\n", rounds);
    std::printf("%-11s %10s %10s %9s | %13s %13s\n", "operation", "ours ms", "pixman ms",
                "ours/pix", "RGB_888/ARGB", "S_8/ARGB");
    std::vector<double> ratios;
    double worstOpaque = 0, worstGrey = 0;
    for (size_t i : order) {
        const double o = opaque[i].best / ours[i].best, g = greyT[i].best / ours[i].best;
        std::printf("%-11s %10.2f %10.2f %9.2f | %13.2f %13.2f\n", kOperations[i].name,
                    ours[i].best * 1e3, theirs[i].best * 1e3, ratio(i), o, g);
        ratios.push_back(ratio(i));
        // CopyDest does nothing in any layout; its per-byte ratio is noise.
        if (kOperations[i].ours != kPlimCompositeCopyDest) {
            worstOpaque = std::max(worstOpaque, o);
            worstGrey = std::max(worstGrey, g);
        }
    }
    const size_t srcOver = 3;
    std::printf("\ngeometric mean ours/pixman over all 24: %.2f\n", GeoMean(ratios));
    std::printf("worst ours/pixman: %.2f (%s)\n", ratio(order[0]), kOperations[order[0]].name);
    std::printf("SrcOver / memcpy of the same bytes: %.2f (pixman OVER / memcpy: %.2f)\n",
                ours[srcOver].best / copy.best, theirs[srcOver].best / copy.best);
    std::printf("worst per-byte time vs ARGB: RGB_888 %.2f, S_8 %.2f (CopyDest left out)\n",
                worstOpaque, worstGrey);
    std::printf("one call that draws nothing (CopyDest): ours %.3f us, pixman %.3f us\n",
                callOurs.best * 1e6 / kCalls, callTheirs.best * 1e6 / kCalls);
    std::printf("tiling SrcOver, 16 x 16 tiles / one composite: %.2f; 100 x 100 tiles: %.2f\n",
                tiles16.best / ours[srcOver].best, tiles100.best / ours[srcOver].best);

    pixman_image_unref(pSrc);
    pixman_image_unref(pDest);
    CGColorSpaceRelease(rgbSpace);
    CGColorSpaceRelease(greySpace);
    return 0;
}
