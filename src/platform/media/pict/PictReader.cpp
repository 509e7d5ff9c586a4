// PICT reader: walks the opcode stream of a version 1 or version 2 picture, skipping every opcode
// by its documented length, and draws the bitmap opcodes (BitsRect, BitsRgn, PackBitsRect,
// PackBitsRgn, DirectBitsRect, DirectBitsRgn) into an A,R,G,B canvas. Vector drawing, text and
// transfer modes are not rendered: bitmaps are copied (srcCopy), scaled nearest-neighbour from
// their source to their destination rectangle.
//
// Every byte is untrusted: all reads go through a bounds-checked cursor, every rectangle, row
// length and table size is validated before use, and nothing is allocated from a size that has
// not been checked against the limits in PictCodec.h.
#include "platform/media/pict/PictCodec.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace plim::pict {

namespace {

constexpr uint32_t kWhite = 0xFFFFFFFFu;
constexpr uint32_t kBlack = 0xFF000000u;

// Big-endian reader that never goes past the end. A read beyond the end marks the cursor short
// and yields zeros; callers check isShort() before acting on what they read.
class Cursor {
public:
    Cursor(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    size_t pos() const { return pos_; }
    bool isShort() const { return short_; }
    bool has(size_t n) const { return n <= size_ - pos_; }

    const uint8_t* take(size_t n) {
        if (!has(n)) {
            pos_ = size_;
            short_ = true;
            return nullptr;
        }
        const uint8_t* p = data_ + pos_;
        pos_ += n;
        return p;
    }
    void skip(size_t n) { take(n); }
    uint8_t u8() {
        const uint8_t* p = take(1);
        return p ? p[0] : 0;
    }
    uint16_t u16() {
        const uint8_t* p = take(2);
        return p ? static_cast<uint16_t>((p[0] << 8) | p[1]) : 0;
    }
    uint32_t u32() {
        const uint8_t* p = take(4);
        return p ? (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
                       (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3])
                 : 0;
    }
    int s16() { return static_cast<int16_t>(u16()); }
    // Version 2 opcodes start on even offsets from the start of the picture.
    void alignEven() {
        if (pos_ & 1) skip(1);
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
    bool short_ = false;
};

struct Rect {
    int top = 0, left = 0, bottom = 0, right = 0;
    int width() const { return right - left; }
    int height() const { return bottom - top; }
    bool empty() const { return right <= left || bottom <= top; }
};

Rect ReadRect(Cursor& c) {
    Rect r;
    r.top = c.s16();
    r.left = c.s16();
    r.bottom = c.s16();
    r.right = c.s16();
    return r;
}

Rect Intersect(const Rect& a, const Rect& b) {
    Rect r;
    r.top = std::max(a.top, b.top);
    r.left = std::max(a.left, b.left);
    r.bottom = std::min(a.bottom, b.bottom);
    r.right = std::min(a.right, b.right);
    return r;
}

// Data length of the opcodes whose length is a constant (0 for the many that carry none).
// Opcodes with variable data are handled before this is consulted.
size_t FixedLength(uint32_t op) {
    if (op >= 0x0100 && op <= 0x7FFF) return static_cast<size_t>(op >> 8) * 2;
    if (op > 0xFF) return 0;  // 0x8000-0x80FF
    switch (op) {
        case 0x02: case 0x09: case 0x0A: case 0x10: return 8;
        case 0x03: case 0x05: case 0x08: case 0x0D: case 0x15: case 0x16: case 0x23: case 0xA0:
            return 2;
        case 0x04: return 1;
        case 0x06: case 0x07: case 0x0B: case 0x0C: case 0x0E: case 0x0F: case 0x21: return 4;
        case 0x1A: case 0x1B: case 0x1D: case 0x1F: case 0x22: return 6;
        case 0x20: return 8;
        default: break;
    }
    if ((op >= 0x30 && op <= 0x37) || (op >= 0x40 && op <= 0x47) || (op >= 0x50 && op <= 0x57)) {
        return 8;  // rectangle, rounded rectangle, oval
    }
    if (op >= 0x60 && op <= 0x67) return 12;  // arc: rect + two angles
    if (op >= 0x68 && op <= 0x6F) return 4;   // arc of the same rect
    return 0;  // same-shape, highlight, reserved zero-length opcodes
}

// How the rows of one bitmap are stored after unpacking.
enum class Layout { Indexed, Rgb555, Chunky32, Rgb24, Planar };
// How they are stored in the picture.
enum class Packing { Raw, Bytes, Words };

struct PixSource {
    bool isPixMap = false;
    bool direct = false;
    int rowBytes = 0;
    Rect bounds;
    int packType = 0;
    int pixelSize = 1;
    int cmpCount = 1;
    Layout layout = Layout::Indexed;
    Packing packing = Packing::Raw;
    size_t rowLen = 0;  // bytes of one unpacked row
    std::array<uint32_t, 256> palette{};
};

void ReadPixMapFields(Cursor& c, PixSource* s) {
    s->bounds = ReadRect(c);
    c.skip(2);  // pmVersion
    s->packType = c.u16();
    c.skip(4 + 4 + 4);  // packSize, hRes, vRes
    c.skip(2);          // pixelType
    s->pixelSize = c.u16();
    s->cmpCount = c.u16();
    c.skip(2);              // cmpSize
    c.skip(4 + 4 + 4);      // planeBytes, pmTable, pmReserved
}

uint32_t To8(uint32_t v) { return (v * 255u + 32767u) / 65535u; }

void ReadColorTable(Cursor& c, PixSource* s) {
    c.skip(4);  // ctSeed
    const uint16_t flags = c.u16();
    const size_t count = static_cast<size_t>(c.u16()) + 1;
    if (c.isShort() || !c.has(count * 8)) {
        c.skip(count * 8);
        return;
    }
    s->palette.fill(kBlack);
    for (size_t i = 0; i < count; ++i) {
        const size_t value = c.u16();
        // 16-bit components to the nearest 8-bit value.
        const uint32_t r = To8(c.u16()), g = To8(c.u16()), b = To8(c.u16());
        // Device tables index by position; others name the pixel value in each entry.
        const size_t index = (flags & 0x8000) ? i : value;
        if (index < s->palette.size()) s->palette[index] = kBlack | (r << 16) | (g << 8) | b;
    }
}

// Checks the geometry and format of a bitmap and decides how its rows are read. Rows shorter
// than 8 bytes are stored unpacked, whatever the opcode says, unless narrowPacked.
PictStatus ClassifySource(PixSource* s, bool packedOp, bool narrowPacked = false) {
    const Rect& b = s->bounds;
    if (b.empty()) return PictStatus::Corrupt;
    const int64_t w = b.width();
    if (w > kMaxDimension || b.height() > kMaxDimension) return PictStatus::TooLarge;
    const int64_t rowBytes = s->rowBytes;
    const bool packed = packedOp && (rowBytes >= 8 || narrowPacked);
    if (!s->direct) {
        if (s->pixelSize != 1 && s->pixelSize != 2 && s->pixelSize != 4 && s->pixelSize != 8) {
            return PictStatus::Unsupported;
        }
        if (rowBytes * 8 < w * s->pixelSize) return PictStatus::Corrupt;
        s->layout = Layout::Indexed;
        s->packing = packed ? Packing::Bytes : Packing::Raw;
        s->rowLen = static_cast<size_t>(rowBytes);
        return PictStatus::Ok;
    }
    const bool unpacked = (rowBytes < 8 && !narrowPacked) || s->packType == 1;
    if (s->pixelSize == 16) {
        if (rowBytes < w * 2) return PictStatus::Corrupt;
        if (!unpacked && s->packType != 0 && s->packType != 3) return PictStatus::Unsupported;
        s->layout = Layout::Rgb555;
        s->packing = unpacked ? Packing::Raw : Packing::Words;
        s->rowLen = static_cast<size_t>(rowBytes);
        return PictStatus::Ok;
    }
    if (s->pixelSize != 32) return PictStatus::Unsupported;
    if (s->cmpCount != 3 && s->cmpCount != 4) return PictStatus::Unsupported;
    if (unpacked) {
        if (rowBytes < w * 4) return PictStatus::Corrupt;
        s->layout = Layout::Chunky32;
        s->packing = Packing::Raw;
        s->rowLen = static_cast<size_t>(rowBytes);
    } else if (s->packType == 2) {
        // Pad byte dropped, rows stored as plain R,G,B triples.
        s->layout = Layout::Rgb24;
        s->packing = Packing::Raw;
        s->rowLen = static_cast<size_t>(w * 3);
    } else if (s->packType == 0 || s->packType == 4) {
        s->layout = Layout::Planar;
        s->packing = Packing::Bytes;
        s->rowLen = static_cast<size_t>(w * s->cmpCount);
    } else {
        return PictStatus::Unsupported;
    }
    return PictStatus::Ok;
}

// Whether the bytes at `c` hold the bitmap's rows packed, each with its byte count first.
bool RowsArePacked(Cursor c, const PixSource& s) {
    const size_t unit = s.packing == Packing::Words ? 2 : 1;
    for (int r = 0; r < s.bounds.height(); ++r) {
        const size_t count = s.rowBytes > 250 ? c.u16() : c.u8();
        const uint8_t* packed = count > 0 ? c.take(count) : nullptr;
        if (!packed || !PackBitsUnpacksTo(packed, count, s.rowLen, unit)) return false;
    }
    return true;
}

// Pixel x of an unpacked row as 0xAARRGGBB; x is within the bounds width, which ClassifySource
// has checked against the row length.
uint32_t FetchPixel(const PixSource& s, const uint8_t* row, size_t x) {
    switch (s.layout) {
        case Layout::Indexed: {
            const size_t bits = static_cast<size_t>(s.pixelSize);
            const size_t bit = x * bits;
            const unsigned shift = static_cast<unsigned>(8 - bits - (bit & 7));
            const unsigned index = (row[bit >> 3] >> shift) & ((1u << bits) - 1u);
            return s.palette[index];
        }
        case Layout::Rgb555: {
            const uint32_t v = (static_cast<uint32_t>(row[2 * x]) << 8) | row[2 * x + 1];
            const uint32_t r = (v >> 10) & 31, g = (v >> 5) & 31, b = v & 31;
            // Spread 5 bits over 8 so that 31 becomes 255.
            return kBlack | (((r << 3) | (r >> 2)) << 16) | (((g << 3) | (g >> 2)) << 8) |
                   ((b << 3) | (b >> 2));
        }
        case Layout::Chunky32: {
            const uint8_t* p = row + 4 * x;
            const uint32_t a = s.cmpCount == 4 ? p[0] : 0xFFu;
            return (a << 24) | (static_cast<uint32_t>(p[1]) << 16) |
                   (static_cast<uint32_t>(p[2]) << 8) | p[3];
        }
        case Layout::Rgb24: {
            const uint8_t* p = row + 3 * x;
            return kBlack | (static_cast<uint32_t>(p[0]) << 16) |
                   (static_cast<uint32_t>(p[1]) << 8) | p[2];
        }
        case Layout::Planar: {
            const size_t w = static_cast<size_t>(s.bounds.width());
            const uint8_t* p = row + x;
            if (s.cmpCount == 4) {
                return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[w]) << 16) |
                       (static_cast<uint32_t>(p[2 * w]) << 8) | p[3 * w];
            }
            return kBlack | (static_cast<uint32_t>(p[0]) << 16) |
                   (static_cast<uint32_t>(p[w]) << 8) | p[2 * w];
        }
    }
    return kWhite;
}

// Whether every colour the bitmap's pixel values can pick is a shade of grey.
bool GreyPalette(const PixSource& s) {
    const size_t entries = size_t{1} << s.pixelSize;
    for (size_t i = 0; i < entries; ++i) {
        const uint32_t c = s.palette[i];
        const uint32_t r = (c >> 16) & 0xFF, g = (c >> 8) & 0xFF, b = c & 0xFF;
        if (r != g || g != b) return false;
    }
    return true;
}

class PictureWalker {
public:
    PictureWalker(const uint8_t* data, size_t size, bool draw, int64_t maxPixels = kMaxPixels)
        : c_(data, size), draw_(draw), maxPixels_(maxPixels) {}

    PictStatus Run();

    const Rect& canvas() const { return canvas_; }
    bool canvasFixed() const { return canvasFixed_; }
    std::vector<uint8_t>& pixels() { return pixels_; }
    int depth() const {
        if (sawAlpha_) return 32;
        if (sawColour_) return 24;
        if (sawGrey_) return 8;
        return 1;
    }
    bool sawBitmap() const { return sawAlpha_ || sawColour_ || sawGrey_ || sawMono_; }

private:
    PictStatus ReadHeader();
    PictStatus Opcode(uint32_t op);
    PictStatus HeaderOp();
    PictStatus Region(Rect* bbox);
    PictStatus LengthPrefixed(size_t lengthBytes);
    PictStatus PixPat();
    PictStatus Bits(uint32_t op);
    PictStatus FixCanvas();
    PictStatus PixData(const PixSource& s, const Rect& srcRect, const Rect& dstRect,
                       const Rect& mask);

    Cursor c_;
    bool draw_;
    int64_t maxPixels_;
    int version_ = 0;
    Rect canvas_;
    bool canvasFixed_ = false;
    bool sawHeaderOp_ = false;
    std::vector<uint8_t> pixels_;
    std::vector<uint8_t> row_;
    std::vector<int> columns_;
    int64_t paintBudget_ = 0;
    bool sawAlpha_ = false, sawColour_ = false, sawGrey_ = false, sawMono_ = false;
};

PictStatus PictureWalker::ReadHeader() {
    c_.skip(2);  // picSize: only the low 16 bits of the size, useless for large pictures
    canvas_ = ReadRect(c_);
    const uint8_t first = c_.u8();
    if (first == 0x11) {
        if (c_.u8() == 0x01) version_ = 1;
    } else if (first == 0x00) {
        if (c_.u8() == 0x11 && c_.u8() == 0x02 && c_.u8() == 0xFF) version_ = 2;
    }
    if (c_.isShort()) return PictStatus::Truncated;
    if (version_ == 0) return PictStatus::Corrupt;
    if (canvas_.empty()) return PictStatus::Corrupt;
    return PictStatus::Ok;
}

PictStatus PictureWalker::Run() {
    if (PictStatus s = ReadHeader(); s != PictStatus::Ok) return s;
    for (;;) {
        if (version_ == 2) c_.alignEven();
        const uint32_t op = version_ == 2 ? c_.u16() : c_.u8();
        if (c_.isShort()) return PictStatus::Truncated;
        if (op == 0x00FF) break;
        if (PictStatus s = Opcode(op); s != PictStatus::Ok) return s;
        if (c_.isShort()) return PictStatus::Truncated;
    }
    if (!sawBitmap()) return PictStatus::Unsupported;
    return PictStatus::Ok;
}

PictStatus PictureWalker::Opcode(uint32_t op) {
    switch (op) {
        case 0x0001: return Region(nullptr);
        case 0x0011: c_.skip(version_ == 2 ? 2 : 1); return PictStatus::Ok;
        case 0x0012: case 0x0013: case 0x0014: return PixPat();
        case 0x0028: c_.skip(4); c_.skip(c_.u8()); return PictStatus::Ok;  // point, text
        case 0x0029: case 0x002A: c_.skip(1); c_.skip(c_.u8()); return PictStatus::Ok;
        case 0x002B: c_.skip(2); c_.skip(c_.u8()); return PictStatus::Ok;
        case 0x0090: case 0x0091: case 0x0098: case 0x0099: case 0x009A: case 0x009B:
            return Bits(op);
        case 0x00A1: c_.skip(2); return LengthPrefixed(2);  // kind, then sized comment
        case 0x0C00: return HeaderOp();
        default: break;
    }
    if ((op >= 0x24 && op <= 0x27) || (op >= 0x2C && op <= 0x2F) || (op >= 0x92 && op <= 0x97) ||
        (op >= 0x9C && op <= 0x9F) || (op >= 0xA2 && op <= 0xAF)) {
        return LengthPrefixed(2);
    }
    if (op >= 0x70 && op <= 0x77) {  // polygon: its size word counts itself
        const size_t size = c_.u16();
        if (c_.isShort()) return PictStatus::Truncated;
        if (size < 10) return PictStatus::Corrupt;
        c_.skip(size - 2);
        return PictStatus::Ok;
    }
    if (op >= 0x80 && op <= 0x87) return Region(nullptr);
    if ((op >= 0xD0 && op <= 0xFE) || op >= 0x8100) return LengthPrefixed(4);
    c_.skip(FixedLength(op));
    return PictStatus::Ok;
}

PictStatus PictureWalker::LengthPrefixed(size_t lengthBytes) {
    const size_t length = lengthBytes == 2 ? c_.u16() : c_.u32();
    c_.skip(length);
    return PictStatus::Ok;
}

// The first header opcode of an extended version 2 picture gives the source rectangle at the
// picture's own resolution; the drawing opcodes use those coordinates, while the frame is at 72
// dpi. Drawing at full resolution is what a reader of a high-resolution picture wants.
PictStatus PictureWalker::HeaderOp() {
    const int headerVersion = c_.s16();
    if (headerVersion == -2 && !sawHeaderOp_ && !canvasFixed_) {
        c_.skip(2 + 4 + 4);  // reserved, hRes, vRes
        const Rect src = ReadRect(c_);
        c_.skip(4);
        if (!c_.isShort() && !src.empty()) canvas_ = src;
    } else {
        c_.skip(22);
    }
    sawHeaderOp_ = true;
    return PictStatus::Ok;
}

PictStatus PictureWalker::Region(Rect* bbox) {
    const size_t size = c_.u16();
    const Rect r = ReadRect(c_);
    if (c_.isShort()) return PictStatus::Truncated;
    if (size < 10) return PictStatus::Corrupt;
    c_.skip(size - 10);
    if (bbox) *bbox = r;
    return PictStatus::Ok;
}

PictStatus PictureWalker::PixPat() {
    const int patType = c_.u16();
    c_.skip(8);  // the one-bit pattern
    if (patType == 2) {
        c_.skip(6);  // RGB colour of a dither pattern
        return PictStatus::Ok;
    }
    if (patType != 1) return PictStatus::Ok;
    // A full pixel pattern: PixMap without its base address, colour table, pixel data.
    PixSource s;
    const uint16_t raw = c_.u16();
    s.isPixMap = true;
    s.rowBytes = raw & 0x3FFF;
    ReadPixMapFields(c_, &s);
    ReadColorTable(c_, &s);
    if (c_.isShort()) return PictStatus::Truncated;
    s.direct = s.pixelSize == 16 || s.pixelSize == 32;
    if (PictStatus st = ClassifySource(&s, true); st != PictStatus::Ok) return st;
    return PixData(s, Rect{}, Rect{}, Rect{});
}

PictStatus PictureWalker::FixCanvas() {
    if (canvasFixed_) return PictStatus::Ok;
    const int64_t w = canvas_.width(), h = canvas_.height();
    if (w <= 0 || h <= 0) return PictStatus::Corrupt;
    if (w > kMaxDimension || h > kMaxDimension || w * h > kMaxPixels || w * h > maxPixels_)
        return PictStatus::TooLarge;
    canvasFixed_ = true;
    // Overdrawing the whole frame a few times is normal; thousands of times is an attack.
    paintBudget_ = w * h * 16;
    if (draw_) pixels_.assign(static_cast<size_t>(w * h * 4), 0xFF);
    return PictStatus::Ok;
}

PictStatus PictureWalker::Bits(uint32_t op) {
    const bool direct = op == 0x9A || op == 0x9B;
    const bool withRegion = (op & 1) != 0;
    const bool packedOp = op >= 0x98;
    if (direct) c_.skip(4);  // base address placeholder
    const uint16_t raw = c_.u16();
    PixSource s;
    s.direct = direct;
    if (raw & 0x8000) {
        s.isPixMap = true;
        s.rowBytes = raw & 0x3FFF;
        ReadPixMapFields(c_, &s);
        if (!direct) ReadColorTable(c_, &s);
    } else {
        if (direct) return c_.isShort() ? PictStatus::Truncated : PictStatus::Corrupt;
        s.rowBytes = raw & 0x7FFF;
        s.bounds = ReadRect(c_);
        s.pixelSize = 1;
        s.palette[0] = kWhite;
        s.palette[1] = kBlack;
    }
    const Rect srcRect = ReadRect(c_);
    const Rect dstRect = ReadRect(c_);
    c_.skip(2);  // transfer mode: bitmaps are copied
    Rect mask{INT16_MIN, INT16_MIN, INT16_MAX, INT16_MAX};
    if (withRegion) {
        if (PictStatus st = Region(&mask); st != PictStatus::Ok) return st;
    }
    if (c_.isShort()) return PictStatus::Truncated;
    if (PictStatus st = ClassifySource(&s, packedOp); st != PictStatus::Ok) return st;
    if (packedOp && s.rowBytes < 8 && s.packing == Packing::Raw) {
        // The format stores such narrow rows unpacked, but common writers pack them anyway, each
        // with its count byte; the bytes themselves tell which was done.
        PixSource packed = s;
        if (ClassifySource(&packed, packedOp, true) == PictStatus::Ok &&
            packed.packing != Packing::Raw && RowsArePacked(c_, packed)) {
            s = packed;
        }
    }
    if (PictStatus st = FixCanvas(); st != PictStatus::Ok) return st;

    if (s.direct) {
        (s.pixelSize == 32 && s.cmpCount == 4 ? sawAlpha_ : sawColour_) = true;
    } else if (s.pixelSize == 1 && s.palette[0] == kWhite && s.palette[1] == kBlack) {
        sawMono_ = true;
    } else if (GreyPalette(s)) {
        sawGrey_ = true;
    } else {
        sawColour_ = true;
    }
    return PixData(s, srcRect, dstRect, Intersect(mask, canvas_));
}

// Reads every row of a bitmap and, when drawing, copies the rows that land inside `clip` to
// their places in dstRect. Rows that nothing shows are skipped without unpacking.
PictStatus PictureWalker::PixData(const PixSource& s, const Rect& srcRect, const Rect& dstRect,
                                  const Rect& clip) {
    const int boundsWidth = s.bounds.width();
    const int rows = s.bounds.height();
    Rect visible = Intersect(dstRect, clip);
    const bool paint = draw_ && canvasFixed_ && !visible.empty() && !srcRect.empty() &&
                       !dstRect.empty();
    const int64_t srcW = srcRect.width(), srcH = srcRect.height();
    const int64_t dstW = dstRect.width(), dstH = dstRect.height();
    if (paint) {
        columns_.assign(static_cast<size_t>(visible.width()), -1);
        for (int dx = visible.left; dx < visible.right; ++dx) {
            const int64_t sx = srcRect.left + (dx - dstRect.left) * srcW / dstW - s.bounds.left;
            if (sx >= 0 && sx < boundsWidth) {
                columns_[static_cast<size_t>(dx - visible.left)] = static_cast<int>(sx);
            }
        }
        row_.resize(s.rowLen);
    } else {
        visible = Rect{};
    }
    auto sourceRowOf = [&](int dy) {
        return srcRect.top + (static_cast<int64_t>(dy) - dstRect.top) * srcH / dstH;
    };
    const size_t canvasWidth = static_cast<size_t>(canvas_.width());
    int dy = visible.top;
    for (int r = 0; r < rows; ++r) {
        const int64_t sy = static_cast<int64_t>(s.bounds.top) + r;
        // Destination rows whose source lies above the bounds get nothing.
        while (dy < visible.bottom && sourceRowOf(dy) < sy) ++dy;
        const bool needed = dy < visible.bottom && sourceRowOf(dy) == sy;

        const uint8_t* row = nullptr;
        if (s.packing == Packing::Raw) {
            row = c_.take(s.rowLen);
            if (!row) return PictStatus::Truncated;
        } else {
            const size_t count = s.rowBytes > 250 ? c_.u16() : c_.u8();
            const uint8_t* packed = c_.take(count);
            if (!packed) return PictStatus::Truncated;
            if (needed) {
                const size_t unit = s.packing == Packing::Words ? 2 : 1;
                const size_t n = PackBitsDecode(packed, count, row_.data(), s.rowLen, unit);
                std::memset(row_.data() + n, 0, s.rowLen - n);
                row = row_.data();
            }
        }
        while (needed && dy < visible.bottom && sourceRowOf(dy) == sy) {
            paintBudget_ -= visible.width();
            if (paintBudget_ < 0) return PictStatus::TooLarge;
            uint8_t* out = pixels_.data() +
                           (static_cast<size_t>(dy - canvas_.top) * canvasWidth +
                            static_cast<size_t>(visible.left - canvas_.left)) * 4;
            for (size_t i = 0; i < columns_.size(); ++i, out += 4) {
                if (columns_[i] < 0) continue;
                const uint32_t argb = FetchPixel(s, row, static_cast<size_t>(columns_[i]));
                out[0] = static_cast<uint8_t>(argb >> 24);
                out[1] = static_cast<uint8_t>(argb >> 16);
                out[2] = static_cast<uint8_t>(argb >> 8);
                out[3] = static_cast<uint8_t>(argb);
            }
            ++dy;
        }
    }
    return PictStatus::Ok;
}

}  // namespace

PictStatus ReadPictInfo(const uint8_t* picture, size_t size, PictInfo* info) {
    if (!info) return PictStatus::Corrupt;
    *info = PictInfo{0, 0, 0};
    if (!picture) return size == 0 ? PictStatus::Truncated : PictStatus::Corrupt;
    PictureWalker walker(picture, size, false);
    const PictStatus status = walker.Run();
    if (status != PictStatus::Ok) return status;
    *info = PictInfo{walker.canvas().width(), walker.canvas().height(), walker.depth()};
    return PictStatus::Ok;
}

PictStatus DecodePict(const uint8_t* picture, size_t size, std::vector<uint8_t>* argb,
                      PictInfo* info, int64_t maxPixels) {
    if (info) *info = PictInfo{0, 0, 0};
    if (!argb) return PictStatus::Corrupt;
    argb->clear();
    if (!picture) return size == 0 ? PictStatus::Truncated : PictStatus::Corrupt;
    PictureWalker walker(picture, size, true, maxPixels);
    const PictStatus status = walker.Run();
    const bool keep = status == PictStatus::Ok ||
                      (status == PictStatus::Truncated && walker.canvasFixed());
    if (!keep) return status;
    *argb = std::move(walker.pixels());
    if (info) *info = PictInfo{walker.canvas().width(), walker.canvas().height(), walker.depth()};
    return status;
}

}  // namespace plim::pict
