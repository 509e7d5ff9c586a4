// Tracing alpha outlines through the public API: shapes, log, thresholds and failures.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "../support/FailingAllocator.h"
#include "TraceTestSupport.h"
#include "core/ImageInternal.h"
#include "pathfinder/PathFinder.h"

using namespace plim::test;

namespace {

// The listing of one subpath as "Path n" and its element lines.
const char kSquare3Listing[] =
    "Path 0\n\tMoveToPoint:  (0, 2)\n\tAddLineToPoint:  (2, 2)\n\tAddLineToPoint:  (2, 0)\n"
    "\tAddLineToPoint:  (0, 0)\n\tCloseSubpath\n";

}  // namespace

TEST(PathFinderTrace, SolidRectangles) {
    TraceResult r = Trace(MakeMask({"###", "###", "###"}).get(), 0.5f);
    EXPECT_EQ(r.svg, "M 0 2 L 2 2 L 2 0 L 0 0 Z");
    EXPECT_EQ(r.log, std::string("starting subpath (0, 0)\nadding line (2, 0)\nadding line (2, 2)\n"
                                 "adding line (0, 2)\nclosing subpath\n") +
                         kSquare3Listing + "\nClosed Paths:\n" + kSquare3Listing + "\nOpen Paths:\n\n\n" +
                         kSquare3Listing);

    // The pixel at buffer (0, 1) is no vertex: the step leaving it closes the subpath.
    EXPECT_EQ(Trace(MakeMask({"##", "##"}).get(), 0.5f).svg, "M 0 1 L 1 1 L 1 0 Z");
    // A lone pixel is a single move, retraced.
    EXPECT_EQ(Trace(MakeMask({".#."}).get(), 0.5f).svg, "M 1 0 L 1 0 Z");
    // A one-row strip dead-ends and is retraced onto itself.
    EXPECT_EQ(Trace(MakeMask({"#####"}).get(), 0.5f).svg, "M 0 0 L 4 0 Z");
    // A taller rectangle: y is flipped, the interior is never stepped on.
    EXPECT_EQ(Trace(MakeMask({"....", ".###", ".###", ".###", ".###"}).get(), 0.5f).svg,
              "M 1 3 L 3 3 L 3 0 L 1 0 Z");
}

TEST(PathFinderTrace, UShapeGivesThreeSubpathsInOrder) {
    TraceResult r = Trace(MakeMask({"#...#", "#...#", "#####"}).get(), 0.5f);
    EXPECT_EQ(r.svg,
              "M 0 2 L 0 1 L 1 0 L 3 0 L 4 1 L 4 2 L 4 1 L 3 0 L 1 0 L 0 1 Z "
              "M 0 0 L 0 0 Z "
              "M 4 0 L 4 0 Z");
    const std::string traced =
        "Path 0\n\tMoveToPoint:  (0, 2)\n\tAddLineToPoint:  (0, 1)\n\tAddLineToPoint:  (1, 0)\n"
        "\tAddLineToPoint:  (3, 0)\n\tAddLineToPoint:  (4, 1)\n\tAddLineToPoint:  (4, 2)\n"
        "Path 1\n\tMoveToPoint:  (0, 0)\n"
        "Path 2\n\tMoveToPoint:  (4, 0)\n";
    const std::string merged =
        "Path 0\n\tMoveToPoint:  (0, 2)\n\tAddLineToPoint:  (0, 1)\n\tAddLineToPoint:  (1, 0)\n"
        "\tAddLineToPoint:  (3, 0)\n\tAddLineToPoint:  (4, 1)\n\tAddLineToPoint:  (4, 2)\n"
        "\tAddLineToPoint:  (4, 1)\n\tAddLineToPoint:  (3, 0)\n\tAddLineToPoint:  (1, 0)\n"
        "\tAddLineToPoint:  (0, 1)\n\tCloseSubpath\n"
        "Path 1\n\tMoveToPoint:  (0, 0)\n\tAddLineToPoint:  (0, 0)\n\tCloseSubpath\n"
        "Path 2\n\tMoveToPoint:  (4, 0)\n\tAddLineToPoint:  (4, 0)\n\tCloseSubpath\n";
    EXPECT_EQ(r.log,
              "starting subpath (0, 0)\nadding line (0, 1)\nadding line (1, 2)\nadding line (3, 2)\n"
              "adding line (4, 1)\nadding line (4, 0)\nstarting subpath (0, 2)\nstarting subpath (4, 2)\n" +
                  traced + "\nClosed Paths:\n\nOpen Paths:\n" + traced + "\n\n" + merged);
}

TEST(PathFinderTrace, DiagonalNeighbourJoinsInFront) {
    TraceResult r = Trace(MakeMask({".##", "#..", "..."}).get(), 0.5f);
    EXPECT_EQ(r.svg, "M 0 1 L 1 2 L 2 2 L 1 2 Z");
}

TEST(PathFinderTrace, ThresholdIsStrictSinglePrecision) {
    EXPECT_EQ(Trace(MakeAlphaImage(1, 1, {128}).get(), 0.5f).svg, "M 0 0 L 0 0 Z");
    EXPECT_EQ(Trace(MakeAlphaImage(1, 1, {127}).get(), 0.5f).svg, "");
    // Alpha 255 is 1.0 exactly: not above a threshold of 1.
    EXPECT_EQ(Trace(MakeAlphaImage(1, 1, {255}).get(), 0.99f).svg, "M 0 0 L 0 0 Z");

    ImageRef solid = MakeMask({"###", "###"});
    TraceResult r = Trace(solid.get(), 1.0f);
    EXPECT_FALSE(r.isNull);
    EXPECT_EQ(r.svg, "");
    EXPECT_EQ(r.log, "\nClosed Paths:\n\nOpen Paths:\n\n\n");
    // The image stays promoted.
    EXPECT_EQ(PlimCFImageGetAlphaInfo(solid.get()), kCGImageAlphaPremultipliedFirst);
}

TEST(PathFinderTrace, ImagesWithoutAlphaGiveAnEmptyPathAndNoLog) {
    std::vector<UInt8> opaque(4 * 4 * 4, 255);
    for (CGImageAlphaInfo info : {kCGImageAlphaNoneSkipFirst, kCGImageAlphaNoneSkipLast}) {
        ImageRef image(PlimCFImageCreateWithBuffer(nullptr, opaque.data(), 4, 4, 8, 32, 16, nullptr, info));
        ASSERT_TRUE(image);
        TraceResult r = Trace(image.get(), 0.5f);
        EXPECT_FALSE(r.isNull);
        EXPECT_EQ(r.svg, "");
        EXPECT_EQ(r.log, "");
    }
    CGColorSpaceRef grey = CGColorSpaceCreateWithName(kCGColorSpaceGenericGray);
    ImageRef image(PlimCFImageCreateWithBuffer(nullptr, opaque.data(), 4, 4, 8, 8, 4, grey, kCGImageAlphaNone));
    CGColorSpaceRelease(grey);
    ASSERT_TRUE(image);
    TraceResult r = Trace(image.get(), 0.5f);
    EXPECT_FALSE(r.isNull);
    EXPECT_EQ(r.svg, "");
    EXPECT_EQ(r.log, "");
}

// Read back through CGPathApply: every vertex is a solid pixel on the boundary, every subpath
// is closed, and no invariant check fires, over many random masks.
TEST(PathFinderTrace, RandomMasksGiveClosedBoundaryOutlines) {
    std::mt19937 rng(2024);
    for (int round = 0; round < 300; ++round) {
        UInt32 width = 1 + rng() % 12, height = 1 + rng() % 12;
        unsigned density = rng() % 100;
        std::vector<UInt8> alpha(width * height);
        for (UInt8 &a : alpha) a = rng() % 100 < density ? static_cast<UInt8>(128 + rng() % 128) : 0;
        ImageRef image = MakeAlphaImage(width, height, alpha);
        ::testing::internal::CaptureStdout();
        CGMutablePathRef path = PlimCFImageCopyAlphaPath(image.get(), 0.5f);
        ::testing::internal::GetCapturedStdout();
        ASSERT_NE(path, nullptr);

        struct Walk {
            PathFinder::ImageInfo info;
            bool open = false;
            int bad = 0, moves = 0;
        } walk{{static_cast<const uint32_t *>(image.get()->buffer), width, height, 0.5f}};
        CGPathApply(path, &walk, [](void *p, const CGPathElement *e) {
            auto *w = static_cast<Walk *>(p);
            if (e->type == kCGPathElementCloseSubpath) {
                if (!w->open) ++w->bad;
                w->open = false;
                return;
            }
            if ((e->type == kCGPathElementMoveToPoint) == w->open) ++w->bad;
            if (e->type == kCGPathElementMoveToPoint) ++w->moves;
            w->open = true;
            auto column = static_cast<unsigned long>(e->points[0].x);
            auto row = w->info.height - 1 - static_cast<unsigned long>(e->points[0].y);
            unsigned long pixel = column + row * w->info.width;
            if (!PathFinder::IsPixelSolid(w->info, pixel) || PathFinder::IsPixelFloating(w->info, pixel)) ++w->bad;
        });
        EXPECT_EQ(walk.bad, 0) << "round " << round;
        EXPECT_FALSE(walk.open);
        bool anySolid = false;
        for (UInt8 a : alpha) anySolid |= a > 127;
        EXPECT_EQ(walk.moves > 0, anySolid);
        CGPathRelease(path);
    }
}

TEST(PathFinderTrace, NeighboursAndFloatingPixels) {
    std::vector<uint32_t> words(4 * 3, 0);
    PathFinder::ImageInfo info{words.data(), 4, 3, 0.5f};
    const int dx[8] = {-1, -1, 0, 1, 1, 1, 0, -1}, dy[8] = {0, -1, -1, -1, 0, 1, 1, 1};
    for (unsigned long pixel = 0; pixel < 12; ++pixel) {
        long column = static_cast<long>(pixel % 4), row = static_cast<long>(pixel / 4);
        for (int counter = -16; counter < 16; ++counter) {
            int d = ((counter % 8) + 8) % 8;
            unsigned long neighbour = 12345;
            bool exists = PathFinder::IsValidPixel(info, pixel, counter, &neighbour);
            long c = column + dx[d], r = row + dy[d];
            EXPECT_EQ(exists, c >= 0 && c < 4 && r >= 0 && r < 3) << pixel << " " << counter;
            EXPECT_EQ(neighbour, pixel + static_cast<unsigned long>(dx[d] + 4 * dy[d]));
        }
    }
    // All solid: only the two interior pixels float; one transparent neighbour sinks one.
    for (uint32_t &w : words) reinterpret_cast<uint8_t *>(&w)[0] = 200;
    for (unsigned long pixel = 0; pixel < 12; ++pixel)
        EXPECT_EQ(PathFinder::IsPixelFloating(info, pixel), pixel == 5 || pixel == 6) << pixel;
    reinterpret_cast<uint8_t *>(&words[3])[0] = 0;
    EXPECT_TRUE(PathFinder::IsPixelFloating(info, 5));
    EXPECT_FALSE(PathFinder::IsPixelFloating(info, 6));
}

TEST(PathFinderTrace, AllocationFailuresGiveNullWithoutLeaks) {
    std::vector<UInt8> alpha(6 * 5, 255);
    alpha[7] = 0;
    long failures = ExhaustFailures([&](CFAllocatorRef allocator) {
        ImageRef image = MakeAlphaImage(6, 5, alpha, allocator);
        if (!image) return false;
        ::testing::internal::CaptureStdout();
        CGMutablePathRef path = PlimCFImageCopyAlphaPath(image.get(), 0.5f);
        ::testing::internal::GetCapturedStdout();
        if (!path) return false;
        EXPECT_FALSE(CGPathIsEmpty(path));
        CGPathRelease(path);
        return true;
    });
    EXPECT_GT(failures, 1);
}

TEST(PathFinderTrace, SVGStringOfHandMadePaths) {
    CGMutablePathRef path = CGPathCreateMutable();
    EXPECT_EQ(SVG(path), "");
    CGPathMoveToPoint(path, nullptr, 1.5f, -2);
    CGPathAddLineToPoint(path, nullptr, 100000, 0.1f);
    CGPathCloseSubpath(path);
    CGPathMoveToPoint(path, nullptr, 3, 4);
    EXPECT_EQ(SVG(path), "M 1.5 -2 L 100000 0.100000001 Z M 3 4");
    CGPathRelease(path);
}
