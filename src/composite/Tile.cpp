// Tiling. The result is that of one composite call per tile, row by row and column by column,
// but the cost follows what the tiles do to the image:
// - tiles the driver would skip (wholly past the right or far edge, or rounded to nothing) are
//   never visited one by one: along each axis the tiles that can land on the image form one
//   stretch of indexes, found by bisection;
// - consecutive tiles that land on the same pixels (a grid reaching past the left or top edge
//   piles its tiles there) are drawn until the pixels under them repeat a state, and then only
//   the remainder of the run; for every operation that takes a few hundred passes at most;
// - tiles side by side that do not overlap are drawn together, a row of pixels at a time.
// A grid that starts at a negative origin therefore costs its piled runs' passes plus one cheap
// step per piled tile within 2^25 tile lengths of the image (beyond that, every tile rounds to
// nothing); tiles of fractional size, whose piled positions differ from tile to tile, are drawn
// one by one there.
#include <PlimBitmapLib/PlimCFImageComposite.h>
#include <PlimBitmapLib/platform/CGGeometry.h>

#include "composite/CompositeInternal.h"
#include "composite/PairDrawer.h"
#include "composite/RepeatUntilCycle.h"
#include "platform/runtime/Errors.h"

#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

namespace plim::composite {
namespace {

// A rectangle size converted to a whole number: at least 0, at most 2^32 - 1, NaN as 0.
UInt32 Whole(float v) {
    if (!(v > 0)) return 0;
    if (v >= 4294967295.0f) return UINT32_MAX;
    return static_cast<UInt32>(v);
}

// A run of consecutive tiles along one axis that land on the same pixels.
struct Run {
    Extent extent;
    uint64_t count, first;  // how many, and the index of the first
};

// One axis of the grid: tile i starts at i x step + origin and is `length` long (the source
// rectangle's width or height as passed), on a destination `size` pixels long.
struct Axis {
    float origin, step, length;
    uint64_t count;
    UInt32 size;

    float At(uint64_t i) const { return static_cast<float>(i) * step + origin; }
    // Where the tile starts once standardized: monotonic in i, as At is.
    float Start(uint64_t i) const { return length < 0 ? At(i) + length : At(i); }
    bool Place(uint64_t i, Extent *e) const {
        return PlaceAxis(At(i), length, static_cast<float>(size), size, e);
    }

    // The indexes [*first, *end) of the tiles that can land on the image. A tile starting 2^25
    // tile lengths or more away from 0 rounds to nothing: adding its length to its start, whose
    // spacing there exceeds twice the length, gives the start back.
    void Candidates(uint64_t *first, uint64_t *end) const {
        const float far = std::isfinite(length) ? std::ldexp(1.0f, 25 + std::ilogb(std::fabs(length)))
                                                : INFINITY;
        const float upper = std::fmin(far, static_cast<float>(size));
        auto above = [&](uint64_t i) { return Start(i) > -far; };
        auto below = [&](uint64_t i) { return Start(i) < upper; };
        // First index for which `pred` holds, where it holds from some index on.
        auto firstTrue = [&](auto pred) {
            uint64_t lo = 0, hi = count;
            while (lo < hi) {
                const uint64_t mid = lo + (hi - lo) / 2;
                if (pred(mid)) hi = mid;
                else lo = mid + 1;
            }
            return lo;
        };
        if (step > 0) {
            *first = firstTrue(above);
            *end = firstTrue([&](uint64_t i) { return !below(i); });
        } else {
            *first = firstTrue(below);
            *end = firstTrue([&](uint64_t i) { return !above(i); });
        }
        if (*end < *first) *end = *first;
    }
};

// The runs of an axis in drawing order, kept when there are few (the usual case: the tiles on
// the image plus a pile or two), otherwise produced afresh on every pass.
class Runs {
public:
    explicit Runs(const Axis &axis) : axis_(axis) {
        axis.Candidates(&first_, &end_);
        kept_ = true;
        try {
            ForEachFresh([&](const Run &run) {
                if (runs_.size() >= kKeepLimit) return false;
                runs_.push_back(run);
                return true;
            });
        } catch (const std::bad_alloc &) {
            kept_ = false;
        }
        if (runs_.size() >= kKeepLimit) kept_ = false;
        if (!kept_) runs_.clear();
    }

    // Calls visit(run) for each run in order.
    template <class Visit>
    void ForEach(Visit visit) const {
        if (kept_) {
            for (const Run &run : runs_) visit(run);
        } else {
            ForEachFresh([&](const Run &run) {
                visit(run);
                return true;
            });
        }
    }

private:
    static constexpr size_t kKeepLimit = size_t{1} << 20;

    // visit returns false to stop.
    template <class Visit>
    void ForEachFresh(Visit visit) const {
        Run run{};
        bool open = false;
        for (uint64_t i = first_; i < end_; ++i) {
            Extent e;
            if (!axis_.Place(i, &e)) continue;
            if (open && run.extent == e && run.first + run.count == i) {
                ++run.count;
                continue;
            }
            if (open && !visit(run)) return;
            run = Run{e, 1, i};
            open = true;
        }
        if (open) visit(run);
    }

    Axis axis_;
    uint64_t first_ = 0, end_ = 0;
    bool kept_ = false;
    std::vector<Run> runs_;
};

// Tiles laid on a destination other than the source: every tile reads the same working source.
void TileFromSource(PairDrawer &drawer, Extent sx, Extent sy, const Runs &columns,
                    const Runs &rows) {
    const UInt32 bpp = drawer.BytesPerPixel();
    auto drawRow = [&](Extent dy) {
        // Consecutive single tiles of one width that abut (left to right or right to left) do
        // not overlap, so they are drawn together: [lo, hi) holds `count` of them.
        UInt32 lo = 0, hi = 0, len = 0, count = 0;
        auto flush = [&] {
            if (count) drawer.DrawSideBySide(sx, sy, Extent{lo, len}, dy, count);
            count = 0;
        };
        columns.ForEach([&](const Run &run) {
            const Extent dx = run.extent;
            if (run.count == 1) {
                if (count && dx.len == len && (dx.pos == hi || dx.pos + dx.len == lo)) {
                    if (dx.pos == hi) hi += len;
                    else lo = dx.pos;
                    ++count;
                    return;
                }
                flush();
                lo = dx.pos, hi = dx.pos + dx.len, len = dx.len, count = 1;
                return;
            }
            flush();
            const Region region{drawer.DestPixel(dx.pos, dy.pos), size_t{dx.len} * bpp,
                                drawer.DestRowBytes(), dy.len};
            RepeatUntilCycle(run.count, region, [&] { drawer.Draw(sx, sy, dx, dy); });
        });
        flush();
    };
    rows.ForEach([&](const Run &run) {
        if (run.count == 1) return drawRow(run.extent);
        const Region region{drawer.DestPixel(0, run.extent.pos), size_t{drawer.DestWidth()} * bpp,
                            drawer.DestRowBytes(), run.extent.len};
        RepeatUntilCycle(run.count, region, [&] { drawRow(run.extent); });
    });
}

}  // namespace
}  // namespace plim::composite

using namespace plim::composite;
using plim::CFRef;

void PlimCFImageTile(PlimCFImage src, PlimCFImage dest, CGRect srcRect, CGRect destRect,
                     PlimCompositeOperation operation, PlimTileOrigin tileOrigin) {
    const UInt32 tw = Whole(CGRectGetWidth(srcRect)), th = Whole(CGRectGetHeight(srcRect));
    const UInt32 dw = Whole(CGRectGetWidth(destRect)), dh = Whole(CGRectGetHeight(destRect));
    // An empty tile cannot be repeated; an empty destination needs no tiles.
    if (tw == 0 || th == 0) return plim::errors::Record(kPlimErrorInvalidArgument);
    if (dw == 0 || dh == 0) return;
    const uint64_t columns = Whole(ceilf(static_cast<float>(dw) / static_cast<float>(tw)));
    const uint64_t rows = Whole(ceilf(static_cast<float>(dh) / static_cast<float>(th)));

    const float W = srcRect.size.width, H = srcRect.size.height;
    const float twf = static_cast<float>(tw), thf = static_cast<float>(th);
    float originX, originY, stepX, stepY;
    switch (static_cast<UInt32>(tileOrigin)) {
        case kPlimTileOriginMinXMaxY:
            originX = destRect.origin.x, originY = CGRectGetMaxY(destRect) - thf;
            stepX = W, stepY = -H;
            break;
        case kPlimTileOriginMaxXMaxY:
            originX = CGRectGetMaxX(destRect) - twf, originY = CGRectGetMaxY(destRect) - thf;
            stepX = -W, stepY = -H;
            break;
        case kPlimTileOriginMinXMinY:
            originX = destRect.origin.x, originY = destRect.origin.y;
            stepX = W, stepY = H;
            break;
        case kPlimTileOriginMaxXMinY:
            originX = CGRectGetMaxX(destRect) - twf, originY = destRect.origin.y;
            stepX = -W, stepY = H;
            break;
        default:
            return plim::errors::Record(kPlimErrorInvalidArgument);
    }

    if (src == dest) {
        // Every tile reads a snapshot of the image as the earlier tiles left it: one composite
        // call per tile, over the runs of tiles that land on the image. The first call unifies
        // the image with a copy of itself, whether or not its tile draws.
        {
            CFRef<PlimCFImage> first = WorkingSource(src, dest);
            if (!first) return;
        }
        PairDrawer image(dest, dest, static_cast<UInt32>(operation));
        if (!image.Ready() || !image.DestinationHasPixels()) return;
        const Axis ax{originX, stepX, W, columns, image.DestWidth()};
        const Axis ay{originY, stepY, H, rows, image.DestHeight()};
        const Runs columnRuns(ax), rowRuns(ay);
        const Region whole{image.DestPixel(0, 0), size_t{image.DestWidth()} * image.BytesPerPixel(),
                           image.DestRowBytes(), image.DestHeight()};
        rowRuns.ForEach([&](const Run &row) {
            RepeatUntilCycle(row.count, whole, [&] {
                columnRuns.ForEach([&](const Run &column) {
                    const CGRect tile = CGRectMake(ax.At(column.first), ay.At(row.first), W, H);
                    RepeatUntilCycle(column.count, whole, [&] {
                        PlimCFImageComposite(src, dest, &srcRect, &tile, 1, operation);
                    });
                });
            });
        });
        return;
    }

    CFRef<PlimCFImage> working = WorkingSource(src, dest);
    if (!working) return;
    PairDrawer drawer(working.get(), dest, static_cast<UInt32>(operation));
    if (!drawer.Ready() || !drawer.DestinationHasPixels()) return;
    Extent sx, sy;
    // A tile wholly off the source has nothing to repeat.
    if (!drawer.PlaceSource(srcRect, &sx, &sy)) return plim::errors::Record(kPlimErrorInvalidArgument);
    const Runs columnRuns(Axis{originX, stepX, W, columns, drawer.DestWidth()});
    const Runs rowRuns(Axis{originY, stepY, H, rows, drawer.DestHeight()});
    TileFromSource(drawer, sx, sy, columnRuns, rowRuns);
    if (drawer.Drew()) PlimCFImageInvalidateImage(dest);
}
