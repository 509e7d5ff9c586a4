// PICT writer: one extended version 2 picture holding the image as 32-bit DirectBitsRect
// opcodes, rows PackBits-compressed one component plane at a time.
#include "platform/media/pict/PictCodec.h"

#include <algorithm>

namespace plim::pict {

namespace {

constexpr size_t kFileHeaderSize = 512;
// A PixMap's row length must stay below 0x4000, so a 32-bit row holds at most 4095 pixels;
// wider images are written as several side-by-side strips.
constexpr int kMaxStripWidth = 0x3FFF / 4;
constexpr uint32_t kResolution72 = 72u << 16;  // Fixed 72.0

class Writer {
public:
    explicit Writer(std::vector<uint8_t>* out) : out_(out) {}
    void u8(uint32_t v) { out_->push_back(static_cast<uint8_t>(v)); }
    void u16(uint32_t v) {
        u8(v >> 8);
        u8(v);
    }
    void u32(uint32_t v) {
        u16(v >> 16);
        u16(v);
    }
    void rect(int top, int left, int bottom, int right) {
        u16(static_cast<uint32_t>(top));
        u16(static_cast<uint32_t>(left));
        u16(static_cast<uint32_t>(bottom));
        u16(static_cast<uint32_t>(right));
    }
    // Opcodes start on even offsets from the start of the picture (the header is even).
    void alignEven() {
        if (out_->size() & 1) u8(0);
    }

private:
    std::vector<uint8_t>* out_;
};

void WriteStrip(Writer& w, std::vector<uint8_t>* out, const uint8_t* argb, int height,
                size_t bytesPerRow, int x0, int stripWidth, bool withAlpha) {
    const int rowBytes = stripWidth * 4;
    const int components = withAlpha ? 4 : 3;
    w.u16(0x009A);  // DirectBitsRect
    w.u32(0x000000FF);  // base address placeholder
    w.u16(0x8000u | static_cast<uint32_t>(rowBytes));
    w.rect(0, x0, height, x0 + stripWidth);  // bounds
    w.u16(0);      // pmVersion
    // packType: PackBits per component plane; rows under 8 bytes are never packed, which
    // packType 1 says outright, so that no reader takes their bytes for packed ones.
    w.u16(rowBytes < 8 ? 1 : 4);
    w.u32(0);      // packSize
    w.u32(kResolution72);
    w.u32(kResolution72);
    w.u16(16);     // pixelType: RGBDirect
    w.u16(32);     // pixelSize
    w.u16(static_cast<uint32_t>(components));
    w.u16(8);      // cmpSize
    w.u32(0);      // planeBytes
    w.u32(0);      // pmTable
    w.u32(0);      // pmReserved
    w.rect(0, x0, height, x0 + stripWidth);  // srcRect
    w.rect(0, x0, height, x0 + stripWidth);  // dstRect
    w.u16(0);      // srcCopy

    const size_t n = static_cast<size_t>(stripWidth);
    std::vector<uint8_t> planes(n * 4);
    std::vector<uint8_t> packed;
    for (int y = 0; y < height; ++y) {
        const uint8_t* src =
            argb + static_cast<size_t>(y) * bytesPerRow + static_cast<size_t>(x0) * 4;
        if (rowBytes < 8) {
            // Rows shorter than 8 bytes are never packed: plain pixels, alpha or pad first.
            for (size_t x = 0; x < n; ++x) {
                w.u8(withAlpha ? src[4 * x] : 0);
                w.u8(src[4 * x + 1]);
                w.u8(src[4 * x + 2]);
                w.u8(src[4 * x + 3]);
            }
            continue;
        }
        // Alpha (when present) is the first plane, then red, green, blue.
        const int first = withAlpha ? 0 : 1;
        for (int c = 0; c < components; ++c) {
            uint8_t* plane = planes.data() + static_cast<size_t>(c) * n;
            for (size_t x = 0; x < n; ++x) plane[x] = src[4 * x + static_cast<size_t>(first + c)];
        }
        packed.clear();
        // Each plane packed on its own, so no run crosses from one component into the next.
        for (int c = 0; c < components; ++c) {
            PackBitsEncode(planes.data() + static_cast<size_t>(c) * n, n, 1, &packed);
        }
        if (rowBytes > 250) {
            w.u16(static_cast<uint32_t>(packed.size()));
        } else {
            w.u8(static_cast<uint32_t>(packed.size()));
        }
        out->insert(out->end(), packed.begin(), packed.end());
    }
    w.alignEven();
}

}  // namespace

bool EncodePictFile(const uint8_t* argb, int width, int height, size_t bytesPerRow, bool withAlpha,
                    std::vector<uint8_t>* file) {
    if (!file) return false;
    file->clear();
    if (!argb || width < 1 || height < 1 || width > kMaxDimension || height > kMaxDimension ||
        static_cast<int64_t>(width) * height > kMaxPixels ||
        bytesPerRow < static_cast<size_t>(width) * 4) {
        return false;
    }
    std::vector<uint8_t> out(kFileHeaderSize, 0);
    Writer w(&out);
    w.u16(0);  // picSize, filled in at the end
    w.rect(0, 0, height, width);  // picFrame
    w.u16(0x0011);  // VersionOp
    w.u16(0x02FF);  // version 2
    w.u16(0x0C00);  // HeaderOp, extended version 2
    w.u16(0xFFFE);
    w.u16(0);
    w.u32(kResolution72);
    w.u32(kResolution72);
    w.rect(0, 0, height, width);  // source rectangle
    w.u32(0);
    w.u16(0x0001);  // clip region: the frame
    w.u16(10);
    w.rect(0, 0, height, width);

    const int strips = (width + kMaxStripWidth - 1) / kMaxStripWidth;
    // Even strips, so that no strip is so narrow that its rows could not be packed.
    const int stripWidth = (width + strips - 1) / strips;
    for (int x0 = 0; x0 < width; x0 += stripWidth) {
        WriteStrip(w, &out, argb, height, bytesPerRow, x0, std::min(stripWidth, width - x0),
                   withAlpha);
    }
    w.u16(0x00FF);  // OpEndPic

    // picSize keeps only the low 16 bits of the picture's size, as the format has it.
    const size_t pictureSize = out.size() - kFileHeaderSize;
    out[kFileHeaderSize] = static_cast<uint8_t>(pictureSize >> 8);
    out[kFileHeaderSize + 1] = static_cast<uint8_t>(pictureSize);
    *file = std::move(out);
    return true;
}

}  // namespace plim::pict
