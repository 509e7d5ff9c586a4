// Outline records, subpath assembly, the debug listing and the entry point of the alpha path
// tracer (the tracers themselves are in Tracer.cpp and BoundaryTracer.cpp). The module's
// running debug log of every trace is collected in a TraceLog and written to standard output (or
// the caller's output hook) in one piece at the end of the call.
#include "PathFinder.h"

#include <PlimBitmapLib/PlimCFImageAlphaPath.h>

#include "TraceLog.h"
#include "core/ImageInternal.h"
#include "platform/runtime/Errors.h"
#include "platform/runtime/Output.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <locale>
#include <new>
#include <utility>

namespace PathFinder {

void ReportFailedCheck(unsigned line, const char *text) {
    std::fprintf(stderr, "%s:%u: failed assertion `%s'\n", "PathFinder.cpp", line, text);
    std::fflush(stderr);
    std::abort();
}

namespace {

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

// The listing's sink on a stream. A coordinate is written as the stream writes a double; whole
// numbers below a million come out of the default general format as plain integers, so a stream
// in its default state gets them the cheaper way. Every line is flushed.
class StreamListing {
public:
    explicit StreamListing(std::ostream &stream)
        : stream_(stream),
          integersAllowed_((stream.flags() & (std::ios::floatfield | std::ios::showpos | std::ios::showpoint |
                                              std::ios::basefield | std::ios::uppercase)) == std::ios::dec &&
                           stream.precision() >= 6 && stream.getloc() == std::locale::classic()) {}

    void Header(size_t number) { stream_ << "Path " << number << std::endl; }
    void Point(const char *prefix, CGPoint point) {
        stream_ << prefix;
        Coordinate(point.x);
        stream_ << ", ";
        Coordinate(point.y);
        stream_ << ")" << std::endl;
    }
    void Line(const char *text) { stream_ << text << std::endl; }

private:
    void Coordinate(float value) {
        if (integersAllowed_ && value > -1e6f && value < 1e6f && std::floor(value) == value &&
            !(value == 0.0f && std::signbit(value))) {
            stream_ << static_cast<long>(value);
        } else {
            stream_ << static_cast<double>(value);
        }
    }

    std::ostream &stream_;
    bool integersAllowed_;
};

}  // namespace

std::ostream &operator<<(std::ostream &stream, const SubpathList &list) {
    StreamListing sink(stream);
    WriteListing(sink, list);
    return stream;
}

SubpathList AssembleSubpaths(SubpathList open, TraceLog &log) {
    // The four listings hold the traced elements twice, then each retraced at most twice with
    // a close; no line takes more than 49 bytes.
    size_t elements = 0;
    for (const Subpath &subpath : open) elements += subpath.size();
    log.Expect((4 * elements + open.size()) * 49 + 3 * open.size() * 26 + 64);

    log.Listing(open);
    SubpathList closed;
    SortOutClosedSubpaths(open, closed);

    log.Text("\nClosed Paths:\n");
    log.Listing(closed);
    log.Text("\nOpen Paths:\n");
    log.Listing(open);

    JoinOpenSubpaths(open, closed);
    for (Subpath &subpath : open) RetraceOpenSubpath(subpath);
    open.insert(open.begin(), std::make_move_iterator(closed.begin()), std::make_move_iterator(closed.end()));
    log.Text("\n\n");
    log.Listing(open);
    return open;
}

}  // namespace PathFinder

// ---------------------------------------------------------------------------------------------
// The entry point.

namespace {

// The tracer's cells, from the image's own allocator (like its buffer), freed on every way out.
class Cells {
public:
    Cells(CFAllocatorRef allocator, size_t size)
        : allocator_(allocator),
          bytes_(size ? static_cast<uint8_t *>(CFAllocatorAllocate(allocator, static_cast<CFIndex>(size), 0))
                      : nullptr) {}
    ~Cells() {
        if (bytes_) CFAllocatorDeallocate(allocator_, bytes_);
    }
    Cells(const Cells &) = delete;
    Cells &operator=(const Cells &) = delete;
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
    const plim::errors::Mark mark;
    PlimCFImagePromoteImage(image, true, true);
    // A promotion that ran out of memory leaves no buffer, or not the ARGB words read below.
    if (!image->buffer || image->bitsPerPixel != 32 || image->alphaInfo != kCGImageAlphaPremultipliedFirst ||
        image->bytesPerRow != uint64_t{image->width} * 4 || image->width == 0 || image->height == 0) {
        mark.Fallback(kPlimErrorUnsupportedLayout);
        return nullptr;
    }

    PathFinder::ImageInfo info;
    info.pixels = static_cast<const uint32_t *>(PlimCFImageGetImageBuffer(image));
    info.width = image->width;
    info.height = image->height;
    info.threshold = threshold;

    Cells cells(CFGetAllocator(image), PathFinder::BoundaryCells(info.width, info.height));
    if (!cells.get()) return nullptr;

    try {
        PathFinder::TraceLog log;
        PathFinder::SubpathList subpaths =
            PathFinder::AssembleSubpaths(PathFinder::TraceBoundaries(info, cells.get(), log), log);
        const std::string_view logged = log.Logged();
        plim::output::Write(kPlimOutputStandardOutput, logged.data(), logged.size());
        return BuildPath(subpaths);
    } catch (const std::bad_alloc &) {
        return plim::errors::Fail(kPlimErrorOutOfMemory, nullptr);
    }
}
