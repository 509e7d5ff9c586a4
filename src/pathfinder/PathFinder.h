// The alpha path tracer's own outline records and the steps that assemble traced pieces into
// closed subpaths. Internal to the library; the public entry point is PlimCFImageCopyAlphaPath.
#pragma once

#include <PlimBitmapLib/platform/CGPath.h>

#include <cstdint>
#include <ostream>
#include <vector>

namespace PathFinder {

class TraceLog;

// A broken invariant of the tracer or the assembly ends the process, naming the check; no
// input image gets here.
[[noreturn]] void ReportFailedCheck(unsigned line, const char *text);

#define PATHFINDER_CHECK(expression)                                               \
    do {                                                                           \
        if (!(expression)) ::PathFinder::ReportFailedCheck(__LINE__, #expression); \
    } while (0)

struct PathElement {
    CGPathElementType type;
    CGPoint point;  // (0, 0) for a close element, never read
};

inline bool operator==(const PathElement &a, const PathElement &b) {
    return a.type == b.type && a.point.x == b.point.x && a.point.y == b.point.y;
}

inline PathElement Element(CGPathElementType type, float x, float y) { return {type, CGPointMake(x, y)}; }
inline PathElement CloseElement() { return Element(kCGPathElementCloseSubpath, 0.0f, 0.0f); }

// Starts with a move; only lines follow, except that a closed subpath ends with a close.
using Subpath = std::vector<PathElement>;
using SubpathList = std::vector<Subpath>;

// Equal or 8-neighbours, by the truncated coordinate differences.
bool PointsAdjacent(CGPoint a, CGPoint b);

// Appends a line to (x, y) to the list's last subpath; the list must not be empty.
void AddLineToCurrentSubpath(SubpathList *list, int x, int y);

// Moves open[position] to the end of `closed` if it is closed; `position` then names the
// subpath that followed it. False, with nothing changed, when the subpath is open.
bool TransferClosedPath(SubpathList &open, SubpathList::iterator &position, SubpathList &closed);

// Moves every closed subpath of `open` to the end of `closed`, keeping both orders: the
// result of TransferClosedPath applied at each position in turn.
void SortOutClosedSubpaths(SubpathList &open, SubpathList &closed);

// Joins `source` (reversed first when asked) onto the front or back of `destination`. The
// source is modified in place; the caller erases it.
void CombinePaths(Subpath &destination, Subpath &source, bool atFront, bool reverse);

// Joins open subpaths whose ends touch until a whole pass joins nothing; a join that closes a
// ring moves it to `closed` at once.
void JoinOpenSubpaths(SubpathList &open, SubpathList &closed);

// The first rule that joins j to i: Fi-Fj (front, reversed), Fi-Bj (front), Bi-Fj (back),
// Bi-Bj (back, reversed). False when no end of one touches an end of the other.
bool MatchJoinRule(const Subpath &i, const Subpath &j, bool *atFront, bool *reverse);

// The two ways of joining, with the same result. Pairwise compares every pair of subpaths in
// each pass; indexed finds the next candidate through a grid of end points, and declines
// (false, nothing changed) when an end point is too far out or not finite for the grid.
void JoinOpenSubpathsPairwise(SubpathList &open, SubpathList &closed);
bool JoinOpenSubpathsIndexed(SubpathList &open, SubpathList &closed);

// Closes an open subpath by running back along it: a ring of zero area over the chain.
void RetraceOpenSubpath(Subpath &elements);

// The assembly after a trace, listing its input, the sorted lists and its result in the log.
// Returns the closed subpaths in the order they closed, then the retraced ones.
SubpathList AssembleSubpaths(SubpathList open, TraceLog &log);

// Debug listing on a stream: "Path <n>" and one line per element, each line flushed.
std::ostream &operator<<(std::ostream &stream, const SubpathList &list);

// The traced image: one 32-bit word per pixel, rows packed, alpha in each word's first byte.
struct ImageInfo {
    const uint32_t *pixels;
    uint32_t width;
    uint32_t height;
    float threshold;
};

// Whether the neighbour of `pixel` in direction (`counter` mod 8) exists. `neighbour` is
// written for every direction, existing or not.
bool IsValidPixel(const ImageInfo &info, unsigned long pixel, int counter, unsigned long *neighbour);

// The pixel's alpha, as a fraction of 255, is above the threshold.
bool IsPixelSolid(const ImageInfo &info, unsigned long pixel);

// All eight neighbours exist and are solid: an interior pixel, never on the image's edge.
bool IsPixelFloating(const ImageInfo &info, unsigned long pixel);

// Class of a trace direction (0 west, then clockwise): 1 west/east, 2 north/south,
// 3 north-east/south-west, 4 north-west/south-east. A trace uses 0 for "no step yet".
inline constexpr int kDirectionClass[8] = {1, 4, 2, 3, 1, 4, 2, 3};

// Checks that the straight run of a trace from the segment start (startRow, startColumn) to
// the pixel just reached (row, column) lies in the direction of travel.
void CheckRun(unsigned direction, long row, long column, long startRow, long startColumn);

// Traces the boundaries of `info`'s solid region into open subpaths (closed ones end with a
// close), logging each start, corner and close. Both tracers give the same subpaths and log;
// both throw std::bad_alloc when a container cannot grow.
//
// The plain tracer makes every test pixel by pixel on a visited map of one zeroed byte per
// pixel; it is the reference for the other.
SubpathList TraceSubpaths(const ImageInfo &info, uint8_t *visited, TraceLog &log);

// The fast tracer works on a grid of cells, the image framed by one cell of nothing on every
// side, which it fills first with the boundary pixels (solid, not floating). BoundaryCells is
// the grid's size in bytes, 0 when it would not fit in memory.
size_t BoundaryCells(uint32_t width, uint32_t height);
SubpathList TraceBoundaries(const ImageInfo &info, uint8_t *cells, TraceLog &log);

}  // namespace PathFinder
