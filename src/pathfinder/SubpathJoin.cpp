// Joining open subpaths through an index of their end points. A trace of a large mask leaves
// tens of thousands of open pieces, and comparing every pair in every pass takes seconds; the
// index finds, for each subpath, the same next partner the pairwise scan would find.
//
// End points are filed by cell (the whole parts of their coordinates) in a box around all of
// them. Points adjacent to a point lie within one cell of its cell when all points are whole,
// within two otherwise. A table maps cells to the subpaths that have an end there, and, where the
// box is small enough, a bit per cell says whether any end was filed there: most subpaths have
// no end anywhere near theirs, and the bits tell so without a look into the table.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "PathFinder.h"

namespace PathFinder {

namespace {

// Cells must fit in 64 bits with room for the margin.
bool Indexable(CGPoint p) {
    return std::isfinite(p.x) && std::isfinite(p.y) && std::fabs(p.x) < 1e9f && std::fabs(p.y) < 1e9f;
}

int64_t CellOf(float v) { return static_cast<int64_t>(std::floor(static_cast<double>(v))); }

// The box of cells around every end point, with a margin on every side.
class CellBox {
public:
    CellBox(int64_t minX, int64_t minY, int64_t maxX, int64_t maxY, int64_t margin)
        : x0_(minX - margin), y0_(minY - margin), width_(static_cast<uint64_t>(maxX - minX + 1 + 2 * margin)),
          cells_(width_ * static_cast<uint64_t>(maxY - minY + 1 + 2 * margin)) {}

    uint64_t Cell(int64_t x, int64_t y) const {
        return static_cast<uint64_t>(y - y0_) * width_ + static_cast<uint64_t>(x - x0_);
    }
    uint64_t Cell(CGPoint p) const { return Cell(CellOf(p.x), CellOf(p.y)); }
    uint64_t Width() const { return width_; }
    uint64_t Cells() const { return cells_; }

private:
    int64_t x0_, y0_;
    uint64_t width_, cells_;
};

// One bit per cell of the box.
class CellBits {
public:
    void Reset(uint64_t cells) { words_.assign(static_cast<size_t>(cells / 64 + 2), 0); }
    bool Test(uint64_t cell) const { return (words_[cell >> 6] >> (cell & 63)) & 1; }
    void Set(uint64_t cell) { words_[cell >> 6] |= uint64_t{1} << (cell & 63); }
    void Clear(uint64_t cell) { words_[cell >> 6] &= ~(uint64_t{1} << (cell & 63)); }
    // Whether any of `count` (at most 5) cells from `cell` on is set.
    bool Any(uint64_t cell, unsigned count) const {
        const size_t word = static_cast<size_t>(cell >> 6);
        const unsigned bit = static_cast<unsigned>(cell & 63);
        uint64_t bits = words_[word] >> bit;
        if (bit + count > 64) bits |= words_[word + 1] << (64 - bit);
        return (bits & ((uint64_t{1} << count) - 1)) != 0;
    }

private:
    std::vector<uint64_t> words_;
};

// Subpath numbers by cell, several to a cell, in an open-addressed table.
class CellTable {
public:
    void Reset(size_t expected) {
        size_t capacity = 64;
        while (capacity < 2 * expected) capacity *= 2;
        slots_.assign(capacity, Slot{kEmpty, 0});
        used_ = 0;
    }

    void Add(uint64_t cell, uint32_t id) {
        if (2 * (used_ + 1) > slots_.size()) Grow();
        Insert(cell, id);
    }

    template <typename Visit>
    void ForEachAt(uint64_t cell, Visit visit) const {
        const size_t mask = slots_.size() - 1;
        for (size_t k = Home(cell); slots_[k].cell != kEmpty; k = (k + 1) & mask)
            if (slots_[k].cell == cell) visit(slots_[k].id);
    }

private:
    static constexpr uint64_t kEmpty = UINT64_MAX;
    struct Slot {
        uint64_t cell;
        uint32_t id;
    };

    size_t Home(uint64_t cell) const {
        return static_cast<size_t>((cell * 0x9E3779B97F4A7C15ull) >> 32) & (slots_.size() - 1);
    }
    void Insert(uint64_t cell, uint32_t id) {
        const size_t mask = slots_.size() - 1;
        size_t k = Home(cell);
        while (slots_[k].cell != kEmpty) k = (k + 1) & mask;
        slots_[k] = Slot{cell, id};
        ++used_;
    }
    void Grow() {
        std::vector<Slot> old(2 * slots_.size(), Slot{kEmpty, 0});
        old.swap(slots_);
        used_ = 0;
        for (const Slot &slot : old)
            if (slot.cell != kEmpty) Insert(slot.cell, slot.id);
    }

    std::vector<Slot> slots_;
    size_t used_ = 0;
};

// The index of the end points. Entries are only added: when a subpath's ends move, its new ends
// are filed too and the old entries go stale (as do those of subpaths joined into others), so
// every subpath found is checked against its current ends. `filed` has a bit for each cell where an end was filed, `shared` one for each
// cell where ends of two subpaths (or of one subpath at two times) were.
class EndpointIndex {
public:
    // Bits for boxes of up to 2^27 cells (two maps of 16 MB); larger boxes only use the table.
    static constexpr uint64_t kMaxBitCells = uint64_t{1} << 27;

    EndpointIndex(const CellBox &box, int64_t margin) : box_(box), margin_(margin) {}

    void Reset(size_t subpaths) {
        table_.Reset(2 * subpaths);
        bits_ = box_.Cells() <= kMaxBitCells;
        if (bits_) filed_.Reset(box_.Cells()), shared_.Reset(box_.Cells());
    }

    void Add(const Subpath &subpath, uint32_t id) {
        const uint64_t front = box_.Cell(subpath.front().point), back = box_.Cell(subpath.back().point);
        File(front, id);
        if (back != front) File(back, id);
    }

    // Whether another subpath may have an end adjacent to one of `subpath`'s: false only when
    // no other end was filed in any cell near them.
    bool MayHaveNeighbours(const Subpath &subpath) {
        if (!bits_) return true;
        const uint64_t front = box_.Cell(subpath.front().point), back = box_.Cell(subpath.back().point);
        if (shared_.Test(front) || shared_.Test(back)) return true;
        // The subpath's own cells hold nobody else's ends (they are not shared), so they are left
        // out while the cells around them are looked at.
        filed_.Clear(front), filed_.Clear(back);
        const bool near = Near(front) || Near(back);
        filed_.Set(front), filed_.Set(back);
        return near;
    }

    // Calls visit(id) for every subpath filed in the cells around p (stale ones included).
    template <typename Visit>
    void ForEachNear(CGPoint p, Visit visit) const {
        const int64_t x = CellOf(p.x), y = CellOf(p.y);
        for (int64_t dy = -margin_; dy <= margin_; ++dy)
            for (int64_t dx = -margin_; dx <= margin_; ++dx) {
                const uint64_t cell = box_.Cell(x + dx, y + dy);
                if (!bits_ || filed_.Test(cell)) table_.ForEachAt(cell, visit);
            }
    }

private:
    void File(uint64_t cell, uint32_t id) {
        table_.Add(cell, id);
        if (!bits_) return;
        if (filed_.Test(cell)) shared_.Set(cell);
        filed_.Set(cell);
    }

    bool Near(uint64_t cell) const {
        const auto span = static_cast<unsigned>(2 * margin_ + 1);
        const uint64_t corner = cell - static_cast<uint64_t>(margin_) * box_.Width() - static_cast<uint64_t>(margin_);
        for (unsigned row = 0; row < span; ++row)
            if (filed_.Any(corner + row * box_.Width(), span)) return true;
        return false;
    }

    const CellBox &box_;
    int64_t margin_;
    CellTable table_;
    bool bits_ = false;
    CellBits filed_, shared_;
};

}  // namespace

bool JoinOpenSubpathsIndexed(SubpathList &open, SubpathList &closed) {
    if (open.size() >= UINT32_MAX) return false;
    bool whole = true;
    int64_t minX = INT64_MAX, minY = INT64_MAX, maxX = INT64_MIN, maxY = INT64_MIN;
    for (const Subpath &subpath : open) {
        for (CGPoint p : {subpath.front().point, subpath.back().point}) {
            if (!Indexable(p)) return false;
            whole = whole && std::floor(p.x) == p.x && std::floor(p.y) == p.y;
            minX = std::min(minX, CellOf(p.x)), maxX = std::max(maxX, CellOf(p.x));
            minY = std::min(minY, CellOf(p.y)), maxY = std::max(maxY, CellOf(p.y));
        }
    }
    if (open.empty()) return true;
    // Joins only bring existing end points together, so the box and wholeness hold for every
    // pass.
    const int64_t margin = whole ? 1 : 2;
    const CellBox box(minX, minY, maxX, maxY, margin);
    EndpointIndex index(box, margin);

    // Joined and closed subpaths are only marked and dropped at the end; list positions (and so
    // the pairwise scan's order) stay as they were, and the index stays good for every pass.
    const auto count = static_cast<uint32_t>(open.size());
    std::vector<bool> alive(count, true);
    index.Reset(count);
    for (uint32_t id = 0; id < count; ++id) index.Add(open[id], id);
    bool joined = true;
    while (joined) {
        joined = false;
        for (uint32_t i = 0; i < count; ++i) {
            if (!alive[i]) continue;
            // The pairwise scan goes on after each join from the subpath that followed the one
            // joined, so only candidates after `cursor` count.
            uint32_t cursor = i;
            while (index.MayHaveNeighbours(open[i])) {
                uint32_t next = UINT32_MAX;
                auto consider = [&](uint32_t j) {
                    bool atFront, reverse;
                    if (j > cursor && j < next && alive[j] && MatchJoinRule(open[i], open[j], &atFront, &reverse))
                        next = j;
                };
                index.ForEachNear(open[i].front().point, consider);
                index.ForEachNear(open[i].back().point, consider);
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
                    grown.back() = CloseElement();
                    closed.push_back(std::move(grown));
                    alive[i] = false;
                    break;
                }
                index.Add(grown, i);
            }
        }
    }
    size_t kept = 0;
    for (uint32_t id = 0; id < count; ++id)
        if (alive[id]) {
            if (kept != id) open[kept] = std::move(open[id]);
            ++kept;
        }
    open.resize(kept);
    return true;
}

}  // namespace PathFinder
