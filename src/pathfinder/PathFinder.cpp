// Outline records, subpath assembly and the alpha contour tracer. The module keeps a running
// debug log of every trace on standard output: printf lines for the trace itself, stream
// listings for the subpath lists, in program order (stdio and iostreams stay synchronised).
#include "PathFinder.h"

#include <PlimBitmapLib/PlimCFImageAlphaPath.h>

#include "core/ImageInternal.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <locale>
#include <new>
#include <utility>

namespace PathFinder {

namespace {

// A broken invariant of the tracer or the assembly ends the process; no input image gets here.
[[noreturn]] void ReportFailedCheck(unsigned line, const char *text) {
    std::fprintf(stderr, "%s:%u: failed assertion `%s'\n", "PathFinder.cpp", line, text);
    std::fflush(stderr);
    std::abort();
}

#define PATHFINDER_CHECK(expression)                                               \
    do {                                                                           \
        if (!(expression)) ::PathFinder::ReportFailedCheck(__LINE__, #expression); \
    } while (0)

PathElement Element(CGPathElementType type, float x, float y) {
    PathElement element;
    element.type = type;
    element.point = CGPointMake(x, y);
    return element;
}

PathElement CloseElement() { return Element(kCGPathElementCloseSubpath, 0.0f, 0.0f); }

bool WithinOne(float a, float b) {
    const float difference = a - b;
    // Out of the integer's range (or NaN) the hardware conversion gives INT32_MIN, far from
    // -1..1; say so without the undefined conversion.
    if (!(difference > -2147483648.0f && difference < 2147483648.0f)) return false;
    // Truncated toward zero, then -1..1 folded into one unsigned comparison.
    const auto truncated = static_cast<int32_t>(difference);
    return static_cast<uint32_t>(truncated) + 1u <= 2u;
}

}  // namespace

bool PointsAdjacent(CGPoint a, CGPoint b) { return WithinOne(a.x, b.x) && WithinOne(a.y, b.y); }

void AddLineToCurrentSubpath(SubpathList *list, int x, int y) {
    list->back().push_back(Element(kCGPathElementAddLineToPoint, static_cast<float>(x), static_cast<float>(y)));
}

namespace {

// Whether a subpath in the open list has been closed; checks that it starts with a move.
bool IsClosedSubpath(const Subpath *subpath) {
    PATHFINDER_CHECK(kCGPathElementMoveToPoint == subpath->at(0).type);
    size_t size = subpath->size();
    PATHFINDER_CHECK(size >= 1);
    return size >= 2 && subpath->back().type == kCGPathElementCloseSubpath;
}

}  // namespace

bool TransferClosedPath(SubpathList &open, SubpathList::iterator &position, SubpathList &closed) {
    if (!IsClosedSubpath(&*position)) return false;
    closed.push_back(*position);
    position = open.erase(position);
    return true;
}

void SortOutClosedSubpaths(SubpathList &open, SubpathList &closed) {
    // The same outcome as TransferClosedPath at each position in turn, in one pass instead of
    // one erase per closed subpath.
    size_t kept = 0;
    for (size_t k = 0; k < open.size(); ++k) {
        if (IsClosedSubpath(&open[k])) {
            closed.push_back(std::move(open[k]));
        } else {
            if (kept != k) open[kept] = std::move(open[k]);
            ++kept;
        }
    }
    open.resize(kept);
}

void CombinePaths(Subpath &destination, Subpath &source, bool atFront, bool reverse) {
    if (reverse) {
        std::reverse(source.begin(), source.end());
        // Only the types trade places: the new first element becomes the move.
        std::swap(source.front().type, source.back().type);
    }
    if (atFront) {
        CGPathElementType type = destination.front().type;
        PATHFINDER_CHECK(kCGPathElementMoveToPoint == type);
        destination.front().type = kCGPathElementAddLineToPoint;
        destination.insert(destination.begin(), source.begin(), source.end());
    } else {
        CGPathElementType type = source.front().type;
        PATHFINDER_CHECK(kCGPathElementMoveToPoint == type);
        source.front().type = kCGPathElementAddLineToPoint;
        destination.insert(destination.end(), source.begin(), source.end());
    }
}

bool MatchJoinRule(const Subpath &i, const Subpath &j, bool *atFront, bool *reverse) {
    const CGPoint fi = i.front().point, bi = i.back().point;
    const CGPoint fj = j.front().point, bj = j.back().point;
    if (PointsAdjacent(fi, fj)) {
        *atFront = true, *reverse = true;
    } else if (PointsAdjacent(fi, bj)) {
        *atFront = true, *reverse = false;
    } else if (PointsAdjacent(bi, fj)) {
        *atFront = false, *reverse = false;
    } else if (PointsAdjacent(bi, bj)) {
        *atFront = false, *reverse = true;
    } else {
        return false;
    }
    return true;
}

void JoinOpenSubpathsPairwise(SubpathList &open, SubpathList &closed) {
    bool joined = true;
    while (joined) {
        joined = false;
        // Indices, not iterators: erasing j shifts everything after it, never i.
        size_t i = 0;
        while (i < open.size()) {
            size_t j = i + 1;
            bool ringClosed = false;
            while (j < open.size()) {
                bool atFront, reverse;
                if (!MatchJoinRule(open[i], open[j], &atFront, &reverse)) {
                    ++j;
                    continue;
                }
                CombinePaths(open[i], open[j], atFront, reverse);
                open.erase(open.begin() + static_cast<std::ptrdiff_t>(j));
                joined = true;
                Subpath &grown = open[i];
                if (grown.size() > 1 && PointsAdjacent(grown.front().point, grown.back().point)) {
                    // A ring: the closing edge replaces the last point.
                    grown.back() = CloseElement();
                    auto position = open.begin() + static_cast<std::ptrdiff_t>(i);
                    TransferClosedPath(open, position, closed);
                    ringClosed = true;
                    break;
                }
            }
            // After a ring moved out, i already names the subpath that followed it.
            if (!ringClosed) ++i;
        }
    }
}

void JoinOpenSubpaths(SubpathList &open, SubpathList &closed) {
    if (!JoinOpenSubpathsIndexed(open, closed)) JoinOpenSubpathsPairwise(open, closed);
}

void RetraceOpenSubpath(Subpath &elements) {
    PATHFINDER_CHECK(0 != elements.size());
    size_t n = elements.size();
    if (n == 1) {
        const CGPoint point = elements.front().point;
        elements.push_back(Element(kCGPathElementAddLineToPoint, point.x, point.y));
    } else {
        // Elements n-2 down to 1, copied out first: the vector grows while they are read.
        const Subpath back(elements.rbegin() + 1, elements.rend() - 1);
        elements.insert(elements.end(), back.begin(), back.end());
    }
    elements.push_back(CloseElement());
}

namespace {

// Writes a coordinate as the stream writes a double. Whole numbers below a million come out of
// the default general format as plain integers, so a stream in its default state gets them the
// cheaper way; traces of large masks list hundreds of thousands of them.
class CoordinateWriter {
public:
    explicit CoordinateWriter(std::ostream &stream)
        : stream_(stream),
          integersAllowed_((stream.flags() & (std::ios::floatfield | std::ios::showpos | std::ios::showpoint |
                                              std::ios::basefield | std::ios::uppercase)) == std::ios::dec &&
                           stream.precision() >= 6 && stream.getloc() == std::locale::classic()) {}

    void operator()(float value) const {
        if (integersAllowed_ && value > -1e6f && value < 1e6f && std::floor(value) == value &&
            !(value == 0.0f && std::signbit(value))) {
            stream_ << static_cast<long>(value);
        } else {
            stream_ << static_cast<double>(value);
        }
    }

private:
    std::ostream &stream_;
    bool integersAllowed_;
};

}  // namespace

std::ostream &operator<<(std::ostream &stream, const SubpathList &list) {
    const CoordinateWriter write(stream);
    size_t number = 0;
    for (const Subpath &subpath : list) {
        stream << "Path " << number++ << std::endl;
        for (const PathElement &element : subpath) {
            switch (element.type) {
            case kCGPathElementMoveToPoint:
            case kCGPathElementAddLineToPoint:
                stream << (element.type == kCGPathElementMoveToPoint ? "\tMoveToPoint:  (" : "\tAddLineToPoint:  (");
                write(element.point.x);
                stream << ", ";
                write(element.point.y);
                stream << ")" << std::endl;
                break;
            case kCGPathElementCloseSubpath:
                stream << "\tCloseSubpath" << std::endl;
                break;
            default:
                stream << "UNRECOGNIZED TYPE" << std::endl;
                break;
            }
        }
    }
    return stream;
}

SubpathList AssembleSubpaths(SubpathList open) {
    std::cout << open;
    SubpathList closed;
    SortOutClosedSubpaths(open, closed);

    std::cout << "\nClosed Paths:\n" << closed << "\nOpen Paths:\n" << open;

    JoinOpenSubpaths(open, closed);
    for (Subpath &subpath : open) RetraceOpenSubpath(subpath);
    open.insert(open.begin(), std::make_move_iterator(closed.begin()), std::make_move_iterator(closed.end()));
    std::cout << "\n\n" << open;
    return open;
}

// ---------------------------------------------------------------------------------------------
// The tracer.

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

static uint8_t AlphaOf(const ImageInfo &info, unsigned long pixel) {
    // The first byte in memory of the word, whatever the machine's byte order.
    return reinterpret_cast<const uint8_t *>(info.pixels)[pixel * 4];
}

bool IsPixelSolid(const ImageInfo &info, unsigned long pixel) {
    return static_cast<float>(AlphaOf(info, pixel)) / 255.0f > info.threshold;
}

bool IsPixelFloating(const ImageInfo &info, unsigned long pixel) {
    for (int direction = 0; direction < 8; ++direction) {
        unsigned long neighbour;
        if (!IsValidPixel(info, pixel, direction, &neighbour) || !IsPixelSolid(info, neighbour)) return false;
    }
    return true;
}

namespace {

// Class of a direction: 1 west/east, 2 north/south, 3 north-east/south-west, 4 north-west/
// south-east. 0 stands for "no step yet".
constexpr int kDirectionClass[8] = {1, 4, 2, 3, 1, 4, 2, 3};

class Tracer {
public:
    Tracer(const ImageInfo &info, uint8_t *visited) : info_(info), visited_(visited) {
        // The threshold test per alpha value, computed once: the same single-precision test.
        for (int a = 0; a < 256; ++a) solid_[a] = static_cast<float>(a) / 255.0f > info.threshold;
    }

    SubpathList Run() {
        const unsigned long width = info_.width, height = info_.height;
        for (unsigned long row = 0; row < height; ++row) {
            for (unsigned long column = 0; column < width; ++column) {
                unsigned long pixel = column + row * width;
                if (visited_[pixel]) continue;
                visited_[pixel] = 1;
                if (!Solid(pixel) || Floating(pixel)) continue;
                std::printf("starting subpath (%d, %d)\n", static_cast<int>(column), static_cast<int>(row));
                Subpath subpath;
                subpath.push_back(Element(kCGPathElementMoveToPoint, static_cast<float>(column),
                                          static_cast<float>(height - 1 - row)));
                open_.push_back(std::move(subpath));
                Trace(pixel);
            }
        }
        return std::move(open_);
    }

private:
    bool Solid(unsigned long pixel) const { return solid_[AlphaOf(info_, pixel)]; }

    // Same answer as IsPixelFloating, with the table test and the edge tests done once.
    bool Floating(unsigned long pixel) const {
        const unsigned long width = info_.width;
        const unsigned long row = pixel / width, column = pixel % width;
        if (column == 0 || column >= width - 1 || row == 0 || row >= static_cast<unsigned long>(info_.height) - 1)
            return false;
        return Solid(pixel - 1) && Solid(pixel - width - 1) && Solid(pixel - width) && Solid(pixel - width + 1) &&
               Solid(pixel + 1) && Solid(pixel + width + 1) && Solid(pixel + width) && Solid(pixel + width - 1);
    }

    void AddVertex(unsigned long pixel) {
        const unsigned long width = info_.width;
        const unsigned long row = pixel / width, column = pixel % width;
        AddLineToCurrentSubpath(&open_, static_cast<int>(column), static_cast<int>(info_.height - 1 - row));
        std::printf("adding line (%d, %d)\n", static_cast<int>(column), static_cast<int>(row));
    }

    // The straight run from the segment start to the pixel just reached must lie in the
    // direction of travel.
    void CheckRun(int direction, unsigned long lastValidIndex, unsigned long segmentStart) const {
        const unsigned long width = info_.width;
        const unsigned long row = lastValidIndex / width, column = lastValidIndex % width;
        const unsigned long startRow = segmentStart / width, startColumn = segmentStart % width;
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
                std::puts("closing subpath");
                open_.back().push_back(CloseElement());
                return;
            } else if (visited_[neighbour]) {
                ++rejections;
            } else if (visited_[neighbour] = 1; !Solid(neighbour) || Floating(neighbour)) {
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
                CheckRun(direction, lastValidIndex, segmentStart);
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
    std::array<bool, 256> solid_{};
    SubpathList open_;
};

}  // namespace

SubpathList TraceSubpaths(const ImageInfo &info, uint8_t *visited) { return Tracer(info, visited).Run(); }

}  // namespace PathFinder

// ---------------------------------------------------------------------------------------------
// The entry point.

namespace {

// The visited map, zero-filled, from the image's own allocator (like its buffer), freed on every
// way out.
class VisitedMap {
public:
    VisitedMap(CFAllocatorRef allocator, size_t size)
        : allocator_(allocator),
          bytes_(static_cast<uint8_t *>(CFAllocatorAllocate(allocator, static_cast<CFIndex>(size), 0))) {
        if (bytes_) std::memset(bytes_, 0, size);
    }
    ~VisitedMap() {
        if (bytes_) CFAllocatorDeallocate(allocator_, bytes_);
    }
    VisitedMap(const VisitedMap &) = delete;
    VisitedMap &operator=(const VisitedMap &) = delete;
    uint8_t *get() const { return bytes_; }

private:
    CFAllocatorRef allocator_;
    uint8_t *bytes_;
};

CGMutablePathRef BuildPath(const PathFinder::SubpathList &subpaths) {
    CGMutablePathRef path = CGPathCreateMutable();
    if (!path) return nullptr;
    for (const PathFinder::Subpath &subpath : subpaths) {
        for (const PathFinder::PathElement &element : subpath) {
            switch (element.type) {
            case kCGPathElementMoveToPoint:
                CGPathMoveToPoint(path, nullptr, element.point.x, element.point.y);
                break;
            case kCGPathElementAddLineToPoint:
                CGPathAddLineToPoint(path, nullptr, element.point.x, element.point.y);
                break;
            case kCGPathElementCloseSubpath:
                CGPathCloseSubpath(path);
                break;
            default:
                std::printf("unsupported type %x\n", static_cast<unsigned>(element.type));
                PATHFINDER_CHECK(false);
            }
        }
    }
    return path;
}

}  // namespace

extern "C" CGMutablePathRef PlimCFImageCopyAlphaPath(PlimCFImage image, float threshold) {
    if (!PlimCFImageHasAlpha(image)) return CGPathCreateMutable();
    PlimCFImagePromoteImage(image, true, true);
    // A promotion that ran out of memory leaves no buffer, or not the ARGB words read below.
    if (!image->buffer || image->bitsPerPixel != 32 || image->alphaInfo != kCGImageAlphaPremultipliedFirst ||
        image->bytesPerRow != uint64_t{image->width} * 4 || image->width == 0 || image->height == 0)
        return nullptr;

    PathFinder::ImageInfo info;
    info.pixels = static_cast<const uint32_t *>(PlimCFImageGetImageBuffer(image));
    info.width = image->width;
    info.height = image->height;
    info.threshold = threshold;

    // One byte per pixel; the buffer's size bounds it, so the product cannot overflow.
    VisitedMap visited(CFGetAllocator(image), static_cast<size_t>(info.width) * info.height);
    if (!visited.get()) return nullptr;

    try {
        PathFinder::SubpathList subpaths =
            PathFinder::AssembleSubpaths(PathFinder::TraceSubpaths(info, visited.get()));
        return BuildPath(subpaths);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}
