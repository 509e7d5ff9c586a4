// The plain contour tracer: every neighbour, threshold and visited test made pixel by pixel on
// the image itself. The library traces with the boundary tracer (BoundaryTracer.cpp); this one
// is the definition that the other must match, subpath for subpath and line for line.
#include "PathFinder.h"
#include "TraceLog.h"

namespace PathFinder {

bool IsValidPixel(const ImageInfo &info, unsigned long pixel, int counter, unsigned long *neighbour) {
    const unsigned long width = info.width;
    const unsigned long row = pixel / width, column = pixel % width;
    const bool hasWest = column > 0, hasEast = column < width - 1;
    const bool hasNorth = row > 0, hasSouth = row < static_cast<unsigned long>(info.height) - 1;
    switch (((counter % 8) + 8) % 8) {
    case 0: *neighbour = pixel - 1; return hasWest;
    case 1: *neighbour = pixel - width - 1; return hasWest && hasNorth;
    case 2: *neighbour = pixel - width; return hasNorth;
    case 3: *neighbour = pixel - width + 1; return hasEast && hasNorth;
    case 4: *neighbour = pixel + 1; return hasEast;
    case 5: *neighbour = pixel + width + 1; return hasEast && hasSouth;
    case 6: *neighbour = pixel + width; return hasSouth;
    default: *neighbour = pixel + width - 1; return hasWest && hasSouth;
    }
}

bool IsPixelSolid(const ImageInfo &info, unsigned long pixel) {
    // The first byte in memory of the word, whatever the machine's byte order.
    const uint8_t alpha = reinterpret_cast<const uint8_t *>(info.pixels)[pixel * 4];
    return static_cast<float>(alpha) / 255.0f > info.threshold;
}

bool IsPixelFloating(const ImageInfo &info, unsigned long pixel) {
    for (int direction = 0; direction < 8; ++direction) {
        unsigned long neighbour;
        if (!IsValidPixel(info, pixel, direction, &neighbour) || !IsPixelSolid(info, neighbour)) return false;
    }
    return true;
}

void CheckRun(unsigned direction, long row, long column, long startRow, long startColumn) {
    switch (direction) {
    case 0: PATHFINDER_CHECK(row == startRow && column <= startColumn); break;
    case 1: PATHFINDER_CHECK(row <= startRow && column <= startColumn); break;
    case 2: PATHFINDER_CHECK(row <= startRow && column == startColumn); break;
    case 3: PATHFINDER_CHECK(row <= startRow && column >= startColumn); break;
    case 4: PATHFINDER_CHECK(row == startRow && column >= startColumn); break;
    case 5: PATHFINDER_CHECK(row >= startRow && column >= startColumn); break;
    case 6: PATHFINDER_CHECK(row >= startRow && column == startColumn); break;
    default: PATHFINDER_CHECK(row >= startRow && column <= startColumn); break;
    }
}

namespace {

class Tracer {
public:
    Tracer(const ImageInfo &info, uint8_t *visited, TraceLog &log) : info_(info), visited_(visited), log_(log) {}

    SubpathList Run() {
        const unsigned long width = info_.width, height = info_.height;
        for (unsigned long row = 0; row < height; ++row) {
            for (unsigned long column = 0; column < width; ++column) {
                unsigned long pixel = column + row * width;
                if (visited_[pixel]) continue;
                visited_[pixel] = 1;
                if (!IsPixelSolid(info_, pixel) || IsPixelFloating(info_, pixel)) continue;
                log_.StartingSubpath(static_cast<int>(column), static_cast<int>(row));
                open_.push_back({Element(kCGPathElementMoveToPoint, static_cast<float>(column),
                                         static_cast<float>(height - 1 - row))});
                Trace(pixel);
            }
        }
        return std::move(open_);
    }

private:
    void AddVertex(unsigned long pixel) {
        const unsigned long width = info_.width;
        const unsigned long row = pixel / width, column = pixel % width;
        AddLineToCurrentSubpath(&open_, static_cast<int>(column), static_cast<int>(info_.height - 1 - row));
        log_.AddingLine(static_cast<int>(column), static_cast<int>(row));
    }

    void CheckSegment(int direction, unsigned long lastValidIndex, unsigned long segmentStart) const {
        const unsigned long width = info_.width;
        CheckRun(static_cast<unsigned>(direction), static_cast<long>(lastValidIndex / width),
                 static_cast<long>(lastValidIndex % width), static_cast<long>(segmentStart / width),
                 static_cast<long>(segmentStart % width));
    }

    // Follows the boundary clockwise from `start`, adding a vertex wherever the direction of
    // travel changes, until it comes back to the start or has nowhere to go.
    void Trace(unsigned long start) {
        unsigned long current = start, segmentStart = start;
        unsigned long lastValidIndex = static_cast<unsigned long>(-1);
        int previousClass = 0, counter = 1, rejections = 0;
        for (;;) {
            const int direction = ((counter % 8) + 8) % 8;
            unsigned long neighbour;
            if (!IsValidPixel(info_, current, counter, &neighbour)) {
                ++rejections;
            } else if (previousClass != 0 && neighbour == start) {
                log_.ClosingSubpath();
                open_.back().push_back(CloseElement());
                return;
            } else if (visited_[neighbour]) {
                ++rejections;
            } else if (visited_[neighbour] = 1; !IsPixelSolid(info_, neighbour) || IsPixelFloating(info_, neighbour)) {
                // Marked before the test, so that transparent and interior pixels are never
                // examined twice.
                ++rejections;
            } else {
                const int directionClass = kDirectionClass[direction];
                if (previousClass != 0 && previousClass != directionClass) {
                    PATHFINDER_CHECK((size_t)-1 != lastValidIndex);
                    AddVertex(lastValidIndex);
                    segmentStart = lastValidIndex;
                }
                lastValidIndex = neighbour;
                PATHFINDER_CHECK((size_t)-1 != lastValidIndex);
                CheckSegment(direction, lastValidIndex, segmentStart);
                counter -= 4;
                previousClass = directionClass;
                current = neighbour;
                rejections = 1;
            }
            ++counter;
            if (rejections > 7) break;
        }
        // Dead end: the run so far ends at the last pixel reached, and the subpath stays open.
        if (lastValidIndex != static_cast<unsigned long>(-1)) AddVertex(lastValidIndex);
    }

    const ImageInfo &info_;
    uint8_t *visited_;
    TraceLog &log_;
    SubpathList open_;
};

}  // namespace

SubpathList TraceSubpaths(const ImageInfo &info, uint8_t *visited, TraceLog &log) {
    return Tracer(info, visited, log).Run();
}

}  // namespace PathFinder
