// The contour tracer as the library runs it. The image first becomes a grid of one-byte cells,
// framed by a cell of nothing on every side, in which the boundary pixels (solid and not
// floating) are marked, a few rows of alpha at a time. The raster scan is then a search for the
// next unreached boundary cell, and each neighbour test of a trace is one byte: the frame stands
// for the neighbours that do not exist, and every cell before the scan's position counts as
// reached, since the scan has reached every pixel before it. Tracer.cpp has the plain tracer,
// which this one matches subpath for subpath and line for line.
#include "PathFinder.h"
#include "TraceLog.h"

#include <cstring>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#define PLIM_PATHFINDER_SSE2 1
#endif

namespace PathFinder {

namespace {

constexpr uint8_t kBoundary = 1;  // solid and not floating
constexpr uint8_t kReached = 2;   // examined by a trace

// The smallest solid alpha, 256 when none is: the quotient only grows with the alpha, so the
// threshold test splits the alphas in two.
unsigned FirstSolidAlpha(float threshold) {
    for (unsigned a = 0; a < 256; ++a)
        if (static_cast<float>(a) / 255.0f > threshold) return a;
    return 256;
}

// out[x] = 0xFF where pixel x of an ARGB row is solid, else 0.
void SolidRow(const uint8_t *argb, size_t width, uint8_t firstSolid, uint8_t *out) {
    size_t x = 0;
#if PLIM_PATHFINDER_SSE2
    const __m128i alphaBytes = _mm_set1_epi32(0xFF);
    const __m128i least = _mm_set1_epi8(static_cast<char>(firstSolid));
    for (; x + 16 <= width; x += 16) {
        const auto *p = reinterpret_cast<const __m128i *>(argb + 4 * x);
        __m128i a0 = _mm_and_si128(_mm_loadu_si128(p), alphaBytes);
        __m128i a1 = _mm_and_si128(_mm_loadu_si128(p + 1), alphaBytes);
        __m128i a2 = _mm_and_si128(_mm_loadu_si128(p + 2), alphaBytes);
        __m128i a3 = _mm_and_si128(_mm_loadu_si128(p + 3), alphaBytes);
        __m128i alpha = _mm_packus_epi16(_mm_packs_epi32(a0, a1), _mm_packs_epi32(a2, a3));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + x), _mm_cmpeq_epi8(_mm_max_epu8(alpha, least), alpha));
    }
#endif
    for (; x < width; ++x) out[x] = argb[4 * x] >= firstSolid ? 0xFF : 0;
}

// Cells 1 to width of one framed row: a boundary where the pixel is solid and not all of its
// eight neighbours (in the solid masks of the rows above, at and below) are.
void BoundaryRow(const uint8_t *above, const uint8_t *here, const uint8_t *below, size_t width, uint8_t *cells) {
    size_t x = 1;
#if PLIM_PATHFINDER_SSE2
    auto at = [](const uint8_t *row, size_t i) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + i)); };
    const __m128i one = _mm_set1_epi8(kBoundary);
    for (; x + 16 <= width + 1; x += 16) {
        __m128i floating = _mm_and_si128(_mm_and_si128(at(above, x - 1), at(above, x)), at(above, x + 1));
        floating = _mm_and_si128(floating, _mm_and_si128(at(here, x - 1), at(here, x + 1)));
        floating = _mm_and_si128(floating, _mm_and_si128(_mm_and_si128(at(below, x - 1), at(below, x)), at(below, x + 1)));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(cells + x), _mm_and_si128(_mm_andnot_si128(floating, at(here, x)), one));
    }
#endif
    for (; x <= width; ++x) {
        const uint8_t floating = above[x - 1] & above[x] & above[x + 1] & here[x - 1] & here[x + 1] & below[x - 1] &
                                 below[x] & below[x + 1];
        cells[x] = static_cast<uint8_t>(here[x] & ~floating & kBoundary);
    }
}

void MarkBoundaries(const ImageInfo &info, uint8_t *cells) {
    const size_t width = info.width, height = info.height, stride = width + 2;
    const unsigned firstSolid = FirstSolidAlpha(info.threshold);
    if (firstSolid > 255) {
        std::memset(cells, 0, stride * (height + 2));
        return;
    }
    const auto *argb = reinterpret_cast<const uint8_t *>(info.pixels);
    const auto least = static_cast<uint8_t>(firstSolid);
    // Solid masks of three framed rows; the frame and the rows beyond the image stay 0.
    std::vector<uint8_t> masks(3 * stride, 0);
    uint8_t *above = masks.data(), *here = above + stride, *below = here + stride;
    SolidRow(argb, width, least, here + 1);
    std::memset(cells, 0, stride);
    for (size_t row = 0; row < height; ++row) {
        if (row + 1 < height)
            SolidRow(argb + 4 * width * (row + 1), width, least, below + 1);
        else
            std::memset(below, 0, stride);
        uint8_t *cellRow = cells + (row + 1) * stride;
        cellRow[0] = cellRow[width + 1] = 0;
        BoundaryRow(above, here, below, width, cellRow);
        uint8_t *done = above;
        above = here, here = below, below = done;
    }
    std::memset(cells + (height + 1) * stride, 0, stride);
}

constexpr long kRowStep[8] = {0, -1, -1, -1, 0, 1, 1, 1};
constexpr long kColumnStep[8] = {-1, -1, 0, 1, 1, 1, 0, -1};

class BoundaryTracer {
public:
    BoundaryTracer(const ImageInfo &info, uint8_t *cells, TraceLog &log)
        : height_(info.height), stride_(static_cast<size_t>(info.width) + 2), cells_(cells), log_(log) {
        for (int d = 0; d < 8; ++d)
            offset_[d] = static_cast<size_t>(kRowStep[d] * static_cast<long>(stride_) + kColumnStep[d]);
    }

    SubpathList Run() {
        const size_t end = stride_ * (height_ + 2);
        // Frame cells are never boundaries, so the search runs through them.
        for (size_t from = stride_; from < end;) {
            const void *found = std::memchr(cells_ + from, kBoundary, end - from);
            if (!found) break;
            const auto start = static_cast<size_t>(static_cast<const uint8_t *>(found) - cells_);
            const long row = static_cast<long>(start / stride_) - 1, column = static_cast<long>(start % stride_) - 1;
            log_.StartingSubpath(static_cast<int>(column), static_cast<int>(row));
            open_.push_back({Element(kCGPathElementMoveToPoint, static_cast<float>(column),
                                     static_cast<float>(height_ - 1 - static_cast<unsigned long>(row)))});
            Trace(start, row, column);
            from = start + 1;
        }
        return std::move(open_);
    }

private:
    void AddVertex(long row, long column) {
        AddLineToCurrentSubpath(&open_, static_cast<int>(column),
                                static_cast<int>(height_ - 1 - static_cast<unsigned long>(row)));
        log_.AddingLine(static_cast<int>(column), static_cast<int>(row));
    }

    // Follows the boundary clockwise from the cell `start` at (row, column); the plain
    // tracer's Trace, with the position kept as a cell and its row and column.
    void Trace(size_t start, long row, long column) {
        size_t current = start;
        size_t lastValidIndex = static_cast<size_t>(-1);
        long segmentRow = row, segmentColumn = column;
        int previousClass = 0, rejections = 0;
        unsigned counter = 1;  // only its value mod 8 counts, so it may wrap
        for (;;) {
            const unsigned direction = counter & 7;
            const size_t neighbour = current + offset_[direction];
            if (previousClass != 0 && neighbour == start) {
                log_.ClosingSubpath();
                open_.back().push_back(CloseElement());
                return;
            }
            const uint8_t cell = cells_[neighbour];
            if (neighbour < start || (cell & kReached)) {
                ++rejections;
            } else if (cells_[neighbour] = cell | kReached; !(cell & kBoundary)) {
                ++rejections;
            } else {
                const int directionClass = kDirectionClass[direction];
                if (previousClass != 0 && previousClass != directionClass) {
                    PATHFINDER_CHECK((size_t)-1 != lastValidIndex);
                    AddVertex(row, column);
                    segmentRow = row, segmentColumn = column;
                }
                lastValidIndex = neighbour;
                PATHFINDER_CHECK((size_t)-1 != lastValidIndex);
                row += kRowStep[direction], column += kColumnStep[direction];
                CheckRun(direction, row, column, segmentRow, segmentColumn);
                counter -= 4;
                previousClass = directionClass;
                current = neighbour;
                rejections = 1;
            }
            ++counter;
            if (rejections > 7) break;
        }
        // Dead end: the run so far ends at the last pixel reached, and the subpath stays open.
        if (lastValidIndex != static_cast<size_t>(-1)) AddVertex(row, column);
    }

    unsigned long height_;
    size_t stride_;
    size_t offset_[8];  // cell steps, negative ones wrapped
    uint8_t *cells_;
    TraceLog &log_;
    SubpathList open_;
};

}  // namespace

size_t BoundaryCells(uint32_t width, uint32_t height) {
    const uint64_t cells = (uint64_t{width} + 2) * (uint64_t{height} + 2);
    return cells > static_cast<uint64_t>(PTRDIFF_MAX) ? 0 : static_cast<size_t>(cells);
}

SubpathList TraceBoundaries(const ImageInfo &info, uint8_t *cells, TraceLog &log) {
    MarkBoundaries(info, cells);
    return BoundaryTracer(info, cells, log).Run();
}

}  // namespace PathFinder
