// The boundary tracer against the plain one, and the log's own formatting against printf and
// the stream listing.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "TraceTestSupport.h"
#include "pathfinder/PathFinder.h"
#include "pathfinder/TraceLog.h"

using namespace PathFinder;

namespace {

// Alpha masks of several kinds: noise, discs, stripes and solid frames with holes.
std::vector<uint8_t> RandomMask(std::mt19937 &rng, uint32_t width, uint32_t height) {
    std::vector<uint8_t> alpha(static_cast<size_t>(width) * height, 0);
    const unsigned kind = rng() % 4, density = rng() % 100;
    auto value = [&] { return static_cast<uint8_t>(rng() % 2 ? 255 : 100 + rng() % 60); };
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            uint8_t &a = alpha[static_cast<size_t>(y) * width + x];
            if (kind == 0 && rng() % 100 < density) a = value();
            if (kind == 2 && (x / 3 + y / 2) % 3 == 0) a = value();
            if (kind == 3 && !(x > width / 4 && x < 3 * width / 4 && y > height / 4 && y < 3 * height / 4)) a = value();
        }
    if (kind == 1)
        for (int disc = 0; disc < 1 + static_cast<int>(rng() % 6); ++disc) {
            const float cx = static_cast<float>(rng() % width), cy = static_cast<float>(rng() % height);
            const float r = 1.0f + static_cast<float>(rng() % 12);
            for (uint32_t y = 0; y < height; ++y)
                for (uint32_t x = 0; x < width; ++x)
                    if (std::hypot(static_cast<float>(x) - cx, static_cast<float>(y) - cy) <= r)
                        alpha[static_cast<size_t>(y) * width + x] = 255;
        }
    return alpha;
}

}  // namespace

TEST(PathFinderBoundaryTracer, GivesThePlainTracersSubpathsAndLog) {
    std::mt19937 rng(20);
    const float thresholds[] = {0.5f, 0.0f, 0.45f, 0.99f, 1.0f, -1.0f, NAN};
    for (int round = 0; round < 1500; ++round) {
        const bool large = round % 100 == 0;
        const uint32_t width = 1 + rng() % (large ? 300 : 24), height = 1 + rng() % (large ? 200 : 24);
        std::vector<uint8_t> alpha = RandomMask(rng, width, height);
        std::vector<uint32_t> words(alpha.size(), 0);
        for (size_t i = 0; i < alpha.size(); ++i) reinterpret_cast<uint8_t *>(&words[i])[0] = alpha[i];
        const ImageInfo info{words.data(), width, height, thresholds[round % 7]};

        std::vector<uint8_t> visited(alpha.size(), 0);
        TraceLog plainLog, log;
        const SubpathList plain = TraceSubpaths(info, visited.data(), plainLog);
        // Cells start as garbage: the tracer fills every one.
        std::vector<uint8_t> cells(BoundaryCells(width, height), 0xA5);
        const SubpathList fast = TraceBoundaries(info, cells.data(), log);
        ASSERT_TRUE(fast == plain) << "round " << round << ", " << width << "x" << height;
        ASSERT_EQ(log.Logged(), plainLog.Logged()) << "round " << round;
    }
    EXPECT_EQ(BoundaryCells(3, 4), 30u);
}

TEST(PathFinderBoundaryTracer, CallLogsTheTraceAndAssemblyOnceAfterEarlierOutput) {
    std::mt19937 rng(21);
    std::vector<uint8_t> alpha = RandomMask(rng, 30, 20);
    plim::test::ImageRef image = plim::test::MakeAlphaImage(30, 20, alpha);

    std::vector<uint32_t> words(alpha.size(), 0);
    for (size_t i = 0; i < alpha.size(); ++i) reinterpret_cast<uint8_t *>(&words[i])[0] = alpha[i];
    std::vector<uint8_t> visited(alpha.size(), 0);
    TraceLog expected;
    AssembleSubpaths(TraceSubpaths({words.data(), 30, 20, 0.5f}, visited.data(), expected), expected);

    // Output still waiting in the standard output's buffer comes first.
    ::testing::internal::CaptureStdout();
    std::printf("before ");
    CGMutablePathRef path = PlimCFImageCopyAlphaPath(image.get(), 0.5f);
    std::printf("after\n");
    std::fflush(stdout);
    const std::string log = ::testing::internal::GetCapturedStdout();
    ASSERT_NE(path, nullptr);
    CGPathRelease(path);
    EXPECT_EQ(log, "before " + std::string(expected.Logged()) + "after\n");
}

TEST(PathFinderTraceLog, FormatsAsPrintfAndTheStreamListing) {
    std::mt19937 rng(22);
    // Every digit count, at both of its ends.
    std::vector<int> edges = {0, INT_MAX, INT_MIN};
    for (int power = 1; power <= 1000000000; power *= 10) {
        edges.insert(edges.end(), {power - 1, power, -power});
        if (power == 1000000000) break;
    }
    for (size_t round = 0; round < 3000; ++round) {
        int column = static_cast<int>(rng()), row = static_cast<int>(rng() % 100000);
        if (round % 3 == 0) column %= 1000;
        if (round < edges.size() * edges.size()) column = edges[round % edges.size()], row = edges[round / edges.size()];
        TraceLog log;
        log.StartingSubpath(column, row);
        log.AddingLine(row, column);
        log.ClosingSubpath();
        char expected[128];
        std::snprintf(expected, sizeof expected, "starting subpath (%d, %d)\nadding line (%d, %d)\nclosing subpath\n",
                      column, row, row, column);
        ASSERT_EQ(log.Logged(), expected);
    }

    // Listings of whole, fractional, large, signed-zero and non-finite coordinates, and of a
    // type the listing does not know.
    auto coordinate = [&]() -> float {
        switch (rng() % 7) {
        case 0: return static_cast<float>(rng() % 5000);
        case 6: return static_cast<float>(edges[rng() % edges.size()]);
        case 1: return -static_cast<float>(rng() % 2000000);
        case 2: return std::ldexp(static_cast<float>(rng() % 100000), static_cast<int>(rng() % 30) - 15);
        case 3: return static_cast<float>(rng()) * 1e3f;
        case 4: return rng() % 2 ? -0.0f : 0.0f;
        default: return rng() % 2 ? NAN : -INFINITY;
        }
    };
    for (int round = 0; round < 300; ++round) {
        SubpathList list(rng() % 4);
        for (Subpath &subpath : list)
            for (size_t e = 0, n = 1 + rng() % 6; e < n; ++e) {
                const CGPathElementType types[] = {kCGPathElementMoveToPoint, kCGPathElementAddLineToPoint,
                                                   kCGPathElementCloseSubpath, kCGPathElementAddCurveToPoint};
                subpath.push_back({types[rng() % (round % 10 ? 3 : 4)], CGPointMake(coordinate(), coordinate())});
            }
        TraceLog log;
        log.Listing(list);
        std::ostringstream stream;
        stream << list;
        ASSERT_EQ(log.Logged(), stream.str()) << "round " << round;
    }
}
