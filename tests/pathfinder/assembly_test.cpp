// Subpath records and their assembly: adjacency, moving closed subpaths, joining, retracing,
// merging and the debug listing.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <sstream>
#include <string>

#include "pathfinder/PathFinder.h"
#include "pathfinder/TraceLog.h"

using namespace PathFinder;

namespace {

PathElement M(float x, float y) { return {kCGPathElementMoveToPoint, CGPointMake(x, y)}; }
PathElement L(float x, float y) { return {kCGPathElementAddLineToPoint, CGPointMake(x, y)}; }
PathElement Z() { return {kCGPathElementCloseSubpath, CGPointMake(0, 0)}; }

// One subpath as compact text: "M0,0 L5,0 Z".
std::string Text(const Subpath &subpath) {
    std::ostringstream out;
    for (const PathElement &e : subpath) {
        if (out.tellp() > 0) out << ' ';
        if (e.type == kCGPathElementCloseSubpath) {
            out << 'Z';
            continue;
        }
        out << (e.type == kCGPathElementMoveToPoint ? 'M' : 'L') << e.point.x << ',' << e.point.y;
    }
    return out.str();
}

std::string Text(const SubpathList &list) {
    std::string all;
    for (const Subpath &s : list) all += (all.empty() ? "" : " | ") + Text(s);
    return all;
}

}  // namespace

TEST(PathFinderAssembly, AdjacencyTruncatesEachDifference) {
    EXPECT_TRUE(PointsAdjacent(CGPointMake(3, 3), CGPointMake(4.9f, 1.1f)));  // -1.9 -> -1, 1.9 -> 1
    EXPECT_TRUE(PointsAdjacent(CGPointMake(3, 3), CGPointMake(3, 3)));
    EXPECT_TRUE(PointsAdjacent(CGPointMake(0, 0), CGPointMake(-1, 1)));
    EXPECT_FALSE(PointsAdjacent(CGPointMake(3, 3), CGPointMake(5, 3)));
    EXPECT_FALSE(PointsAdjacent(CGPointMake(3, 3), CGPointMake(3, 1)));
    EXPECT_FALSE(PointsAdjacent(CGPointMake(0, 0), CGPointMake(2, 1)));
    EXPECT_FALSE(PointsAdjacent(CGPointMake(0, 0), CGPointMake(4294967296.0f + 0.0f, 0)));
    EXPECT_FALSE(PointsAdjacent(CGPointMake(0, 0), CGPointMake(NAN, 0)));
}

TEST(PathFinderAssembly, TransferMovesOnlyClosedSubpaths) {
    SubpathList open = {{M(0, 0)}, {M(1, 1), L(2, 2), L(3, 3)}, {M(4, 4), L(5, 5), Z()}, {M(6, 6), L(7, 7), Z()}};
    SubpathList closed = {{M(9, 9), L(9, 8), Z()}};

    auto position = open.begin();
    EXPECT_FALSE(TransferClosedPath(open, position, closed));  // a single move is open
    EXPECT_EQ(position, open.begin());
    ++position;
    EXPECT_FALSE(TransferClosedPath(open, position, closed));
    EXPECT_EQ(position, open.begin() + 1);
    ++position;
    EXPECT_TRUE(TransferClosedPath(open, position, closed));
    ASSERT_NE(position, open.end());
    EXPECT_EQ(Text(*position), "M6,6 L7,7 Z");  // names the one that followed
    EXPECT_TRUE(TransferClosedPath(open, position, closed));
    EXPECT_EQ(position, open.end());
    EXPECT_EQ(Text(open), "M0,0 | M1,1 L2,2 L3,3");
    EXPECT_EQ(Text(closed), "M9,9 L9,8 Z | M4,4 L5,5 Z | M6,6 L7,7 Z");
}

TEST(PathFinderAssembly, CombineJoinsAtEitherEndWithReversal) {
    struct Case {
        Subpath destination, source;
        bool atFront, reverse;
        const char *expected;
    } cases[] = {
        {{M(0, 0), L(5, 0)}, {M(6, 1), L(9, 1)}, false, false, "M0,0 L5,0 L6,1 L9,1"},
        {{M(0, 0), L(5, 0)}, {M(1, 1), L(1, 7)}, true, true, "M1,7 L1,1 L0,0 L5,0"},
        {{M(0, 0), L(5, 0)}, {M(9, 9), L(1, 1)}, true, false, "M9,9 L1,1 L0,0 L5,0"},
        {{M(0, 0), L(5, 0)}, {M(9, 9), L(7, 7), L(6, 1)}, false, true, "M0,0 L5,0 L6,1 L7,7 L9,9"},
        {{M(0, 0)}, {M(1, 0)}, true, true, "M1,0 L0,0"},
    };
    for (Case &c : cases) {
        CombinePaths(c.destination, c.source, c.atFront, c.reverse);
        EXPECT_EQ(Text(c.destination), c.expected);
    }
}

TEST(PathFinderAssembly, JoiningRepeatsPassesAndClosesRingsAtOnce) {
    // C joins onto A's back only in the first pass; A then reaches B in a second pass.
    SubpathList open = {{M(0, 0), L(3, 0)}, {M(10, 0), L(20, 0)}, {M(4, 0), L(9, 0)}};
    SubpathList closed;
    JoinOpenSubpaths(open, closed);
    EXPECT_EQ(Text(open), "M0,0 L3,0 L4,0 L9,0 L10,0 L20,0");
    EXPECT_TRUE(closed.empty());

    // j goes in front (Fi meets Bj) and the join makes a ring: its last point gives way to a
    // close and it leaves at once, so the third subpath (adjacent to the close element's (0, 0))
    // is never joined to it.
    open = {{M(0, 0), L(5, 0)}, {M(6, 1), L(6, 5), L(1, 1)}, {M(0, 1), L(0, 9)}};
    closed = {{M(50, 50), L(51, 50), Z()}};
    JoinOpenSubpaths(open, closed);
    EXPECT_EQ(Text(closed), "M50,50 L51,50 Z | M6,1 L6,5 L1,1 L0,0 Z");
    EXPECT_EQ(Text(open), "M0,1 L0,9");

    // Fi-Fj wins over Fi-Bj; the grown subpath's new front then meets the next one's back.
    open = {{M(5, 5), L(9, 5)}, {M(4, 4), L(6, 6)}, {M(20, 20), L(7, 7)}};
    closed.clear();
    JoinOpenSubpaths(open, closed);
    EXPECT_EQ(Text(open), "M20,20 L7,7 L6,6 L4,4 L5,5 L9,5");
    EXPECT_TRUE(closed.empty());
}

// The grid join must find exactly the partners, in exactly the order, of the pairwise scan.
TEST(PathFinderAssembly, IndexedJoinMatchesPairwiseJoin) {
    std::mt19937 rng(99);
    for (int round = 0; round < 2000; ++round) {
        const bool fractional = round % 3 == 0;
        const int span = 4 + static_cast<int>(rng() % 20);
        auto coordinate = [&] {
            float v = static_cast<float>(static_cast<int>(rng() % span) - 2);
            return fractional ? v + static_cast<float>(rng() % 8) * 0.25f : v;
        };
        SubpathList open;
        for (size_t count = rng() % 40; count > 0; --count) {
            Subpath subpath = {M(coordinate(), coordinate())};
            for (size_t n = rng() % 4; n > 0; --n) subpath.push_back(L(coordinate(), coordinate()));
            open.push_back(subpath);
        }
        SubpathList closed = {{M(-50, -50), Z()}};
        SubpathList open2 = open, closed2 = closed;
        JoinOpenSubpathsPairwise(open, closed);
        ASSERT_TRUE(JoinOpenSubpathsIndexed(open2, closed2));
        ASSERT_EQ(Text(open), Text(open2)) << "round " << round;
        ASSERT_EQ(Text(closed), Text(closed2)) << "round " << round;
    }

    // End points the grid cannot hold: it declines and leaves the lists alone.
    SubpathList open = {{M(0, 0)}, {M(NAN, 1)}}, closed;
    EXPECT_FALSE(JoinOpenSubpathsIndexed(open, closed));
    open = {{M(0, 0)}, {M(3e9f, 1)}};
    EXPECT_FALSE(JoinOpenSubpathsIndexed(open, closed));
    EXPECT_EQ(open.size(), 2u);
    EXPECT_TRUE(closed.empty());
}

TEST(PathFinderAssembly, SortingOutMatchesTransferAtEachPosition) {
    std::mt19937 rng(5);
    for (int round = 0; round < 200; ++round) {
        SubpathList open;
        for (size_t count = rng() % 12; count > 0; --count) {
            Subpath subpath = {M(static_cast<float>(count), 0)};
            for (size_t n = rng() % 3; n > 0; --n) subpath.push_back(L(static_cast<float>(n), 1));
            if (rng() % 2) subpath.push_back(Z());
            open.push_back(subpath);
        }
        SubpathList open2 = open, closed, closed2 = {{M(7, 7), Z()}};
        closed = closed2;
        for (auto position = open.begin(); position != open.end();)
            if (!TransferClosedPath(open, position, closed)) ++position;
        SortOutClosedSubpaths(open2, closed2);
        ASSERT_EQ(Text(open), Text(open2));
        ASSERT_EQ(Text(closed), Text(closed2));
    }
}

TEST(PathFinderAssembly, RetraceRunsBackAlongTheChain) {
    Subpath single = {M(1, 2)};
    RetraceOpenSubpath(single);
    EXPECT_EQ(Text(single), "M1,2 L1,2 Z");

    Subpath pair = {M(0, 0), L(4, 0)};
    RetraceOpenSubpath(pair);
    EXPECT_EQ(Text(pair), "M0,0 L4,0 Z");

    Subpath chain = {M(0, 0), L(1, 0), L(2, 0), L(3, 0)};
    RetraceOpenSubpath(chain);
    EXPECT_EQ(Text(chain), "M0,0 L1,0 L2,0 L3,0 L2,0 L1,0 Z");
    EXPECT_EQ(chain.size(), 2 * 4 - 1u);
}

TEST(PathFinderAssembly, MergeListsClosedFirstAndLogsEachStage) {
    SubpathList open = {{M(0, 0), L(3, 0)}, {M(10, 10), L(12, 10), Z()}, {M(30, 30)}};
    TraceLog log;
    SubpathList merged = AssembleSubpaths(open, log);
    EXPECT_EQ(Text(merged), "M10,10 L12,10 Z | M0,0 L3,0 Z | M30,30 L30,30 Z");
    EXPECT_EQ(log.Logged(),
              "Path 0\n\tMoveToPoint:  (0, 0)\n\tAddLineToPoint:  (3, 0)\n"
              "Path 1\n\tMoveToPoint:  (10, 10)\n\tAddLineToPoint:  (12, 10)\n\tCloseSubpath\n"
              "Path 2\n\tMoveToPoint:  (30, 30)\n"
              "\nClosed Paths:\n"
              "Path 0\n\tMoveToPoint:  (10, 10)\n\tAddLineToPoint:  (12, 10)\n\tCloseSubpath\n"
              "\nOpen Paths:\n"
              "Path 0\n\tMoveToPoint:  (0, 0)\n\tAddLineToPoint:  (3, 0)\n"
              "Path 1\n\tMoveToPoint:  (30, 30)\n"
              "\n\n"
              "Path 0\n\tMoveToPoint:  (10, 10)\n\tAddLineToPoint:  (12, 10)\n\tCloseSubpath\n"
              "Path 1\n\tMoveToPoint:  (0, 0)\n\tAddLineToPoint:  (3, 0)\n\tCloseSubpath\n"
              "Path 2\n\tMoveToPoint:  (30, 30)\n\tAddLineToPoint:  (30, 30)\n\tCloseSubpath\n");
}

TEST(PathFinderAssembly, ListingFormat) {
    std::ostringstream out;
    out << SubpathList{{M(2, 3), Z()}};
    EXPECT_EQ(out.str(), "Path 0\n\tMoveToPoint:  (2, 3)\n\tCloseSubpath\n");

    out.str("");
    out << SubpathList{{M(12, 0.5f), L(-1, 1234567)}, {{static_cast<CGPathElementType>(3), CGPointMake(0, 0)}}};
    EXPECT_EQ(out.str(),
              "Path 0\n\tMoveToPoint:  (12, 0.5)\n\tAddLineToPoint:  (-1, 1.23457e+06)\n"
              "Path 1\nUNRECOGNIZED TYPE\n");

    out.str("");
    out << SubpathList{};
    EXPECT_EQ(out.str(), "");

    // Whole numbers are written as the stream writes doubles, whatever its state.
    std::mt19937 rng(3);
    for (int round = 0; round < 4000; ++round) {
        float x = static_cast<float>(static_cast<int>(rng() % 4000000) - 2000000);
        if (round % 4 == 1) x = std::ldexp(x, static_cast<int>(rng() % 40) - 20);
        if (round == 0) x = -0.0f;
        std::ostringstream listed, plain;
        if (round % 5 == 2) {
            listed << std::showpoint, plain << std::showpoint;
        } else if (round % 5 == 3) {
            listed.precision(3), plain.precision(3);
        } else if (round % 5 == 4) {
            listed << std::fixed, plain << std::fixed;
        }
        listed << SubpathList{{M(x, 1)}};
        plain << "Path 0\n\tMoveToPoint:  (" << static_cast<double>(x) << ", " << 1.0 << ")\n";
        ASSERT_EQ(listed.str(), plain.str()) << x;
    }
}

TEST(PathFinderAssemblyDeathTest, BrokenInvariantsAbortWithTheCheckedText) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Subpath empty;
    EXPECT_DEATH(RetraceOpenSubpath(empty),
                 "^PathFinder\\.cpp:[0-9]+: failed assertion `0 != elements\\.size\\(\\)'\n");
    Subpath destination = {L(0, 0)}, source = {M(1, 1)};
    EXPECT_DEATH(CombinePaths(destination, source, true, false),
                 "failed assertion `kCGPathElementMoveToPoint == type'");
    SubpathList open = {{L(0, 0), Z()}}, closed;
    auto position = open.begin();
    EXPECT_DEATH(TransferClosedPath(open, position, closed),
                 "failed assertion `kCGPathElementMoveToPoint == subpath->at\\(0\\)\\.type'");
}
