// Helpers for building small PICT pictures by hand in tests.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/media/pict/PictCodec.h"

namespace pict_test {

struct Rgb {
    uint8_t r, g, b;
};

struct Rect {
    int top, left, bottom, right;
};

// Writes a picture opcode by opcode: big-endian fields, version 2 opcodes word-aligned.
class PictBuilder {
public:
    // Starts a picture (no 512-byte file header) with the given frame. Version 2 pictures get
    // the standard header opcode; extendedSrc, when given, makes it an extended version 2 header
    // with that source rectangle.
    PictBuilder(int version, Rect frame, const Rect* extendedSrc = nullptr) : version_(version) {
        u16(0);
        rect(frame);
        if (version == 1) {
            u8(0x11);
            u8(0x01);
            return;
        }
        u16(0x0011);
        u16(0x02FF);
        u16(0x0C00);
        if (extendedSrc) {
            u16(0xFFFE);
            u16(0);
            u32(72u << 16);
            u32(72u << 16);
            rect(*extendedSrc);
            u32(0);
        } else {
            u32(0xFFFFFFFFu);
            for (int v : {frame.left, frame.top, frame.right, frame.bottom})
                u32(static_cast<uint32_t>(v) << 16);
            u32(0);
        }
    }

    void op(uint32_t code) {
        if (version_ == 2) {
            if (data_.size() & 1) u8(0);
            u16(code);
        } else {
            u8(code);
        }
    }
    void end() { op(0xFF); }

    void u8(uint32_t v) { data_.push_back(static_cast<uint8_t>(v)); }
    void u16(uint32_t v) {
        u8(v >> 8);
        u8(v);
    }
    void u32(uint32_t v) {
        u16(v >> 16);
        u16(v);
    }
    void rect(const Rect& r) {
        u16(static_cast<uint32_t>(r.top));
        u16(static_cast<uint32_t>(r.left));
        u16(static_cast<uint32_t>(r.bottom));
        u16(static_cast<uint32_t>(r.right));
    }
    void bytes(const std::vector<uint8_t>& b) { data_.insert(data_.end(), b.begin(), b.end()); }
    void fill(size_t n, uint8_t v) { data_.insert(data_.end(), n, v); }

    // PixMap fields after rowBytes (bounds through pmReserved).
    void pixMapFields(const Rect& bounds, int packType, int pixelType, int pixelSize, int cmpCount,
                      int cmpSize) {
        rect(bounds);
        u16(0);
        u16(static_cast<uint32_t>(packType));
        u32(0);
        u32(72u << 16);
        u32(72u << 16);
        u16(static_cast<uint32_t>(pixelType));
        u16(static_cast<uint32_t>(pixelSize));
        u16(static_cast<uint32_t>(cmpCount));
        u16(static_cast<uint32_t>(cmpSize));
        u32(0);
        u32(0);
        u32(0);
    }

    // A BitsRect/PackBitsRect opcode with a one-bit BitMap, up to its pixel data.
    void bitMapOp(uint32_t code, int rowBytes, const Rect& bounds, const Rect& src,
                  const Rect& dst) {
        op(code);
        u16(static_cast<uint32_t>(rowBytes));
        rect(bounds);
        rect(src);
        rect(dst);
        u16(0);  // srcCopy
    }

    // A DirectBitsRect/DirectBitsRgn opcode drawing all of `bounds` to dst, up to its pixel data
    // (or mask region).
    void directOp(uint32_t code, int rowBytes, const Rect& bounds, int packType, int pixelSize,
                  int cmpCount, const Rect& dst) {
        op(code);
        u32(0xFF);
        u16(0x8000u | static_cast<uint32_t>(rowBytes));
        pixMapFields(bounds, packType, 16, pixelSize, cmpCount, pixelSize == 16 ? 5 : 8);
        rect(bounds);
        rect(dst);
        u16(0);
    }

    // A colour table. With device set, entries are indexed by position; otherwise entry i names
    // the pixel value values[i].
    void colorTable(const std::vector<Rgb>& colors, bool device,
                    const std::vector<int>& values = {}) {
        u32(0);
        u16(device ? 0x8000 : 0);
        u16(static_cast<uint32_t>(colors.size() - 1));
        for (size_t i = 0; i < colors.size(); ++i) {
            u16(device || values.empty() ? static_cast<uint32_t>(i)
                                         : static_cast<uint32_t>(values[i]));
            u16(colors[i].r * 257u);
            u16(colors[i].g * 257u);
            u16(colors[i].b * 257u);
        }
    }

    // Pixel data rows: packed with a byte count when `packed`, else raw.
    void pixData(const std::vector<std::vector<uint8_t>>& rows, int rowBytes, bool packed,
                 size_t unit = 1) {
        for (const auto& row : rows) {
            if (!packed) {
                bytes(row);
                continue;
            }
            std::vector<uint8_t> p;
            plim::pict::PackBitsEncode(row.data(), row.size(), unit, &p);
            if (rowBytes > 250) {
                u16(static_cast<uint32_t>(p.size()));
            } else {
                u8(static_cast<uint32_t>(p.size()));
            }
            bytes(p);
        }
    }

    const std::vector<uint8_t>& data() const { return data_; }

private:
    int version_;
    std::vector<uint8_t> data_;
};

// Packs pixel values of `bits` bits each, most significant first, into rowBytes bytes.
inline std::vector<uint8_t> PackIndexedRow(const std::vector<int>& values, int bits, int rowBytes) {
    std::vector<uint8_t> row(static_cast<size_t>(rowBytes), 0);
    for (size_t x = 0; x < values.size(); ++x) {
        const size_t bit = x * static_cast<size_t>(bits);
        row[bit / 8] |= static_cast<uint8_t>(values[x] << (8 - bits - static_cast<int>(bit % 8)));
    }
    return row;
}

inline std::vector<uint8_t> Argb(uint8_t a, uint8_t r, uint8_t g, uint8_t b) {
    return {a, r, g, b};
}

// The 4 bytes of pixel (x, y) of a decoded canvas.
inline std::vector<uint8_t> PixelAt(const std::vector<uint8_t>& argb, int width, int x, int y) {
    const size_t i =
        (static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)) * 4;
    return {argb[i], argb[i + 1], argb[i + 2], argb[i + 3]};
}

}  // namespace pict_test
