// HEIF's derived images (grids of tiles, overlays, identities), read before libheif sees them:
// libheif allocates a derived image's canvas from its own description rather than from the size
// the item's properties give, and follows derivations without noticing a loop, so the importer
// holds each declared canvas to the decoding pixel limit and refuses loops and deep chains.
#include "platform/media/importers/HEIFDerivedImages.h"

#include "platform/graphics/decoders/Raster.h"
#include "platform/media/ComponentInternal.h"

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

namespace plim::media {

namespace {

// Big-endian fields of one box's payload; reading past the end sets `failed` and gives 0.
struct Reader {
    const uint8_t *data;
    size_t size;
    size_t at = 0;
    bool failed = false;

    uint64_t Read(size_t bytes) {
        if (at > size || bytes > size - at) {
            failed = true;
            at = size;
            return 0;
        }
        uint64_t value = 0;
        for (size_t i = 0; i < bytes; i++) value = value << 8 | data[at++];
        return value;
    }
    // A field whose width a box gives in bytes; libheif reads widths of 1, 2, 4 and 8 bytes and
    // takes any other as an empty field of value 0, so this does too.
    uint64_t ReadField(uint64_t bytes) {
        return bytes == 1 || bytes == 2 || bytes == 4 || bytes == 8 ? Read(static_cast<size_t>(bytes)) : 0;
    }
    void Skip(size_t bytes) {
        if (at > size || bytes > size - at) {
            failed = true;
            at = size;
        } else {
            at += bytes;
        }
    }
};

struct Box {
    OSType type;
    const uint8_t *payload;
    size_t size;
};

// The boxes in [data, data + size), in order. A box claiming more than its container holds is
// read up to the container's end, as libheif reads it.
std::vector<Box> Children(const uint8_t *data, size_t size) {
    std::vector<Box> boxes;
    Reader r{data, size};
    while (r.at + 8 <= size) {
        const size_t start = r.at;
        uint64_t length = r.Read(4);
        const auto type = static_cast<OSType>(r.Read(4));
        if (length == 1) length = r.Read(8);
        if (length == 0 || length > size - start) length = size - start;
        const size_t header = r.at - start;
        if (r.failed || length < header) break;
        boxes.push_back(Box{type, data + r.at, static_cast<size_t>(length) - header});
        r.at = start + static_cast<size_t>(length);
    }
    return boxes;
}

struct Extent {
    int construction = 0;  // 0: file offset, 1: inside the idat box
    uint64_t offset = 0;
    uint64_t length = 0;
};

// The first extent of each item in an item location box.
std::vector<std::pair<uint32_t, Extent>> Locations(const Box &iloc) {
    std::vector<std::pair<uint32_t, Extent>> out;
    Reader r{iloc.payload, iloc.size};
    const auto version = static_cast<int>(r.Read(1));
    r.Skip(3);
    const auto sizes = r.Read(2);
    const size_t offsetSize = sizes >> 12, lengthSize = (sizes >> 8) & 15, baseSize = (sizes >> 4) & 15;
    const size_t indexSize = version >= 1 ? sizes & 15 : 0;
    const uint64_t count = r.Read(version < 2 ? 2 : 4);
    for (uint64_t i = 0; i < count && !r.failed; i++) {
        const auto id = static_cast<uint32_t>(r.Read(version < 2 ? 2 : 4));
        Extent e;
        if (version >= 1) e.construction = static_cast<int>(r.Read(2) & 15);
        r.Skip(2);  // data reference index
        const uint64_t base = r.ReadField(baseSize);
        const uint64_t extents = r.Read(2);
        for (uint64_t k = 0; k < extents && !r.failed; k++) {
            r.ReadField(indexSize);
            const uint64_t offset = r.ReadField(offsetSize), length = r.ReadField(lengthSize);
            if (k == 0) {
                e.offset = base + offset;
                e.length = length;
            }
        }
        if (!r.failed) out.emplace_back(id, e);
    }
    return out;
}

// The derived images ('grid', 'iovl', 'iden') an item information box lists, with their types.
std::vector<std::pair<uint32_t, OSType>> DerivedItems(const Box &iinf) {
    std::vector<std::pair<uint32_t, OSType>> out;
    Reader r{iinf.payload, iinf.size};
    const auto version = r.Read(1);
    r.Skip(3 + (version == 0 ? 2 : 4));
    if (r.failed) return out;
    for (const Box &infe : Children(iinf.payload + r.at, iinf.size - r.at)) {
        Reader e{infe.payload, infe.size};
        const auto infeVersion = e.Read(1);
        e.Skip(3);
        if (infe.type != FourCC("infe") || infeVersion < 2) continue;
        const auto id = static_cast<uint32_t>(e.Read(infeVersion == 2 ? 2 : 4));
        e.Skip(2);  // protection index
        const auto type = static_cast<OSType>(e.Read(4));
        if (!e.failed && (type == FourCC("grid") || type == FourCC("iovl") || type == FourCC("iden")))
            out.emplace_back(id, type);
    }
    return out;
}

// The canvas a grid or overlay description declares; false if it cannot be read.
bool DeclaredCanvas(OSType type, const uint8_t *data, size_t size, uint64_t *w, uint64_t *h) {
    Reader r{data, size};
    r.Skip(1);  // version
    const size_t field = (r.Read(1) & 1) ? 4 : 2;
    r.Skip(type == FourCC("grid") ? 2 : 8);  // rows and columns; or the canvas fill colour
    *w = r.Read(field);
    *h = r.Read(field);
    return !r.failed;
}

// The 'dimg' references of an item reference box: which items each derived image is made from.
std::vector<std::pair<uint32_t, uint32_t>> Derivations(const Box &iref) {
    std::vector<std::pair<uint32_t, uint32_t>> out;
    Reader r{iref.payload, iref.size};
    const size_t field = r.Read(1) == 0 ? 2 : 4;
    r.Skip(3);
    if (r.failed) return out;
    for (const Box &ref : Children(iref.payload + r.at, iref.size - r.at)) {
        if (ref.type != FourCC("dimg")) continue;
        Reader e{ref.payload, ref.size};
        const auto from = static_cast<uint32_t>(e.Read(field));
        const uint64_t count = e.Read(2);
        for (uint64_t i = 0; i < count; i++) {
            const auto to = static_cast<uint32_t>(e.Read(field));
            if (e.failed) break;
            out.emplace_back(from, to);
        }
    }
    return out;
}

// Derived images nest a level or two in practice; far deeper is hostile.
constexpr int kMaxDerivationDepth = 16;

// How many derivation steps lie below `id` at most; -1 for a derivation that leads back to an
// item on the way, or one deeper than kMaxDerivationDepth. `edges` are sorted; `known`
// remembers finished items.
int DerivationDepth(uint32_t id, const std::vector<std::pair<uint32_t, uint32_t>> &edges,
                    std::map<uint32_t, int> *known, std::vector<uint32_t> *path) {
    if (auto found = known->find(id); found != known->end()) return found->second;
    const bool onPath = std::find(path->begin(), path->end(), id) != path->end();
    if (onPath || path->size() > static_cast<size_t>(kMaxDerivationDepth)) return -1;
    path->push_back(id);
    int depth = 0;
    const auto first = std::lower_bound(edges.begin(), edges.end(), std::pair<uint32_t, uint32_t>{id, 0});
    for (auto edge = first; edge != edges.end() && edge->first == id; ++edge) {
        const int below = DerivationDepth(edge->second, edges, known, path);
        if (below < 0) return -1;
        depth = std::max(depth, below + 1);
    }
    path->pop_back();
    if (depth > kMaxDerivationDepth) return -1;
    known->emplace(id, depth);
    return depth;
}

}  // namespace

bool HEIFDerivedImagesAcceptable(const uint8_t *data, size_t size) {
    for (const Box &meta : Children(data, size)) {
        if (meta.type != FourCC("meta") || meta.size < 4) continue;
        const std::vector<Box> boxes = Children(meta.payload + 4, meta.size - 4);
        const Box *iinf = nullptr, *iloc = nullptr, *idat = nullptr, *iref = nullptr;
        // The first of each, as libheif takes them.
        for (const Box &b : boxes) {
            if (b.type == FourCC("iinf") && !iinf) iinf = &b;
            if (b.type == FourCC("iloc") && !iloc) iloc = &b;
            if (b.type == FourCC("idat") && !idat) idat = &b;
            if (b.type == FourCC("iref") && !iref) iref = &b;
        }
        if (!iinf || !iloc) continue;
        auto locations = Locations(*iloc);
        std::stable_sort(locations.begin(), locations.end(),
                         [](const auto &a, const auto &b) { return a.first < b.first; });
        auto edges = iref ? Derivations(*iref) : std::vector<std::pair<uint32_t, uint32_t>>{};
        std::sort(edges.begin(), edges.end());
        std::map<uint32_t, int> known;
        for (const auto &[id, type] : DerivedItems(*iinf)) {
            std::vector<uint32_t> path;
            if (DerivationDepth(id, edges, &known, &path) < 0) return false;
            if (type == FourCC("iden")) continue;  // no canvas of its own
            const auto located = std::lower_bound(locations.begin(), locations.end(), id,
                                                  [](const auto &l, uint32_t key) { return l.first < key; });
            if (located == locations.end() || located->first != id) continue;
            const Extent &e = located->second;
            const uint8_t *base = e.construction == 1 && idat ? idat->payload : data;
            const size_t available = e.construction == 1 ? (idat ? idat->size : 0) : size;
            if (e.construction > 1 || e.offset > available) return false;
            // A length of 0 runs to the end of the data.
            const uint64_t left = available - e.offset;
            const size_t length = static_cast<size_t>(e.length && e.length < left ? e.length : left);
            uint64_t w = 0, h = 0;
            if (!DeclaredCanvas(type, base + e.offset, length, &w, &h) || !decoders::DimensionsAcceptable(w, h))
                return false;
        }
    }
    return true;
}

}  // namespace plim::media
