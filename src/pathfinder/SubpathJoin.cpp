// Joining open subpaths through a grid of their end points. A trace of a large mask leaves tens
// of thousands of open pieces, and comparing every pair in every pass takes seconds; the grid
// finds, for each subpath, the same next partner the pairwise scan would find.
#include <cmath>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "PathFinder.h"

namespace PathFinder {

namespace {

// Grid cells must fit 32 bits with room for the search margin.
bool Indexable(CGPoint p) {
    return std::isfinite(p.x) && std::isfinite(p.y) && std::fabs(p.x) < 1e9f && std::fabs(p.y) < 1e9f;
}

int32_t Cell(float v) { return static_cast<int32_t>(std::floor(static_cast<double>(v))); }

uint64_t Key(int32_t column, int32_t row) {
    return (static_cast<uint64_t>(static_cast<uint32_t>(column)) << 32) | static_cast<uint32_t>(row);
}

// Subpath numbers by the cell of each end point. Entries go stale as ends move; every lookup
// is checked against the subpath's current ends, and the current ends are always entered.
class EndpointGrid {
public:
    EndpointGrid(int32_t margin, size_t points) : margin_(margin) { cells_.reserve(points); }

    void Add(CGPoint p, uint32_t id) { cells_[Key(Cell(p.x), Cell(p.y))].push_back(id); }

    // Points adjacent to p differ from it by less than 2 on each axis (truncated difference
    // within -1..1), so they lie within two cells; within one when all points are whole.
    template <typename Visit>
    void ForEachNear(CGPoint p, Visit visit) const {
        const int32_t column = Cell(p.x), row = Cell(p.y);
        for (int32_t dy = -margin_; dy <= margin_; ++dy)
            for (int32_t dx = -margin_; dx <= margin_; ++dx) {
                auto found = cells_.find(Key(column + dx, row + dy));
                if (found == cells_.end()) continue;
                for (uint32_t id : found->second) visit(id);
            }
    }

private:
    int32_t margin_;
    std::unordered_map<uint64_t, std::vector<uint32_t>> cells_;
};

}  // namespace

bool JoinOpenSubpathsIndexed(SubpathList &open, SubpathList &closed) {
    if (open.size() >= UINT32_MAX) return false;
    bool whole = true;
    for (const Subpath &subpath : open) {
        for (CGPoint p : {subpath.front().point, subpath.back().point}) {
            if (!Indexable(p)) return false;
            whole = whole && std::floor(p.x) == p.x && std::floor(p.y) == p.y;
        }
    }
    // Joins only bring existing end points together, so wholeness holds for every pass.
    const int32_t margin = whole ? 1 : 2;

    bool joined = true;
    while (joined) {
        joined = false;
        const auto count = static_cast<uint32_t>(open.size());
        // Joined and closed subpaths are only marked during a pass and dropped after it; list
        // positions (and so the pairwise scan's order) stay as they were.
        std::vector<bool> alive(count, true);
        EndpointGrid grid(margin, 2 * static_cast<size_t>(count));
        for (uint32_t id = 0; id < count; ++id) {
            grid.Add(open[id].front().point, id);
            grid.Add(open[id].back().point, id);
        }
        for (uint32_t i = 0; i < count; ++i) {
            if (!alive[i]) continue;
            // The pairwise scan goes on after each join from the subpath that followed the one
            // joined, so only candidates after `cursor` count.
            uint32_t cursor = i;
            for (;;) {
                uint32_t next = UINT32_MAX;
                auto consider = [&](uint32_t j) {
                    bool atFront, reverse;
                    if (j > cursor && j < next && alive[j] && MatchJoinRule(open[i], open[j], &atFront, &reverse))
                        next = j;
                };
                grid.ForEachNear(open[i].front().point, consider);
                grid.ForEachNear(open[i].back().point, consider);
                if (next == UINT32_MAX) break;

                bool atFront = false, reverse = false;
                MatchJoinRule(open[i], open[next], &atFront, &reverse);
                CombinePaths(open[i], open[next], atFront, reverse);
                alive[next] = false;
                Subpath().swap(open[next]);
                joined = true;
                cursor = next;

                Subpath &grown = open[i];
                if (grown.size() > 1 && PointsAdjacent(grown.front().point, grown.back().point)) {
                    // A ring leaves for the closed list at once, its last point replaced by the close.
                    grown.back() = PathElement{kCGPathElementCloseSubpath, CGPointMake(0.0f, 0.0f)};
                    closed.push_back(std::move(grown));
                    alive[i] = false;
                    break;
                }
                grid.Add(grown.front().point, i);
                grid.Add(grown.back().point, i);
            }
        }
        size_t kept = 0;
        for (uint32_t id = 0; id < count; ++id)
            if (alive[id]) {
                if (kept != id) open[kept] = std::move(open[id]);
                ++kept;
            }
        open.resize(kept);
    }
    return true;
}

}  // namespace PathFinder
