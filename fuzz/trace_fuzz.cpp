// libFuzzer target for the alpha path tracer: the input is a small mask (width, height,
// threshold, then alpha bytes, repeated as needed), traced through the public call. Every
// result must be a path of closed subpaths whose vertices lie inside the image, the boundary
// tracer must give the plain tracer's pieces and log, and the indexed join must agree with the
// pairwise one on the traced pieces.
#include <PlimBitmapLib/PlimBitmapLib.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "pathfinder/PathFinder.h"
#include "pathfinder/TraceLog.h"

namespace {

struct Check {
    UInt32 width, height;
    bool open = false;
};

void CheckElement(void *info, const CGPathElement *element) {
    auto *check = static_cast<Check *>(info);
    if (element->type == kCGPathElementCloseSubpath) {
        if (!check->open) std::abort();
        check->open = false;
        return;
    }
    if ((element->type == kCGPathElementMoveToPoint) == check->open) std::abort();
    check->open = true;
    const CGPoint p = element->points[0];
    if (p.x < 0 || p.y < 0 || p.x >= static_cast<float>(check->width) || p.y >= static_cast<float>(check->height))
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // The tracer logs every call on standard output.
    if (!std::freopen("/dev/null", "w", stdout)) std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 4) return 0;
    const UInt32 width = 1 + data[0] % 48, height = 1 + data[1] % 48;
    const float threshold = static_cast<float>(data[2]) / 256.0f;
    std::vector<UInt8> pixels(static_cast<size_t>(width) * height * 4, 0);
    for (size_t i = 0; i < static_cast<size_t>(width) * height; ++i) pixels[i * 4] = data[3 + i % (size - 3)];

    PlimCFImage image = PlimCFImageCreateWithBuffer(nullptr, pixels.data(), width, height, 8, 32, width * 4,
                                                    nullptr, kCGImageAlphaPremultipliedFirst);
    if (!image) return 0;
    CGMutablePathRef path = PlimCFImageCopyAlphaPath(image, threshold);
    if (path) {
        Check check{width, height};
        CGPathApply(path, &check, CheckElement);
        if (check.open) std::abort();
        CGPathRelease(path);
    }

    // Both tracers give the same pieces and log, and the pieces the same through both joins.
    PathFinder::ImageInfo info{static_cast<const uint32_t *>(PlimCFImageGetImageBuffer(image)), width, height,
                               threshold};
    std::vector<uint8_t> visited(static_cast<size_t>(width) * height, 0);
    std::vector<uint8_t> cells(PathFinder::BoundaryCells(width, height));
    if (info.pixels) {
        PathFinder::TraceLog plainLog, log;
        PathFinder::SubpathList pieces = PathFinder::TraceSubpaths(info, visited.data(), plainLog);
        PathFinder::SubpathList traced = PathFinder::TraceBoundaries(info, cells.data(), log);
        if (plainLog.Logged() != log.Logged() || pieces != traced) std::abort();
        PathFinder::SubpathList closed;
        PathFinder::SortOutClosedSubpaths(pieces, closed);
        PathFinder::SubpathList open2 = pieces, closed2 = closed;
        PathFinder::JoinOpenSubpathsPairwise(pieces, closed);
        if (!PathFinder::JoinOpenSubpathsIndexed(open2, closed2)) std::abort();
        if (pieces != open2 || closed != closed2) std::abort();
    }
    CFRelease(image);
    return 0;
}
