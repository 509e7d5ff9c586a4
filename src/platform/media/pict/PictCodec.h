// PICT pictures: a reader for the bitmap content of version 1 and version 2 pictures, and a writer
// of complete version 2 files with 32-bit direct pixels. Self-contained: no other part of the
// library is used, so the codec can be fuzzed and tested on its own.
//
// "Picture" below means the bytes starting at the 16-bit picSize field, i.e. a PICT file without
// its 512-byte header.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace plim::pict {

struct PictInfo {
    int width;   // pixels
    int height;  // pixels
    // What the picture's pixels really are: 32 when a bitmap carries an alpha component, 24 for
    // colour (direct 16- or 32-bit pixels, or indexed pixels whose colour table holds a colour),
    // 8 for grey (indexed pixels whose colour table holds only greys), 1 when every bitmap is
    // black-and-white one bit per pixel.
    int depth;
};

enum class PictStatus {
    Ok,
    Truncated,    // the data ended before the end-of-picture opcode
    Corrupt,      // a field contradicts the format (bad version, impossible rectangle, ...)
    Unsupported,  // valid but not something we can turn into pixels (no bitmap, odd pixel size)
    TooLarge,     // dimensions or work beyond the codec's limits
};

// Largest picture the reader and writer accept.
constexpr int kMaxDimension = 32767;
constexpr int64_t kMaxPixels = int64_t{1} << 28;

// Walks the whole picture (every opcode, every bitmap's rows) without drawing. On Ok, *info holds
// the frame size and the depth.
PictStatus ReadPictInfo(const uint8_t* picture, size_t size, PictInfo* info);

// Draws the picture's bitmaps into A,R,G,B bytes (width * 4 per row, top row first,
// non-premultiplied). Unpainted areas are opaque white; alpha is 255 unless a bitmap carries an
// alpha component. On Truncated, *argb and *info hold what was drawn before the data ran out;
// on other failures *argb is left empty. A frame of more than maxPixels pixels is TooLarge,
// refused before its canvas is allocated.
PictStatus DecodePict(const uint8_t* picture, size_t size, std::vector<uint8_t>* argb,
                      PictInfo* info, int64_t maxPixels = kMaxPixels);

// Writes a complete version 2 PICT file (512 zero header bytes first) holding the A,R,G,B pixels
// as 32-bit direct pixels, PackBits-compressed per component plane; with alpha as a fourth
// component when withAlpha. Returns false (and leaves *file empty) for absurd arguments.
bool EncodePictFile(const uint8_t* argb, int width, int height, size_t bytesPerRow, bool withAlpha,
                    std::vector<uint8_t>* file);

// PackBits over units of 1 byte (ordinary) or 2 bytes (16-bit pixels). Appends the packed form
// of src (size a multiple of unit) to *out.
void PackBitsEncode(const uint8_t* src, size_t size, size_t unit, std::vector<uint8_t>* out);

// Unpacks src into dst, stopping when either is exhausted; a run that would overflow dst is cut.
// Returns the number of bytes written to dst.
size_t PackBitsDecode(const uint8_t* src, size_t srcSize, uint8_t* dst, size_t dstSize,
                      size_t unit);

// Whether src is whole PackBits data of exactly `size` unpacked bytes: no field cut short, no
// byte left over.
bool PackBitsUnpacksTo(const uint8_t* src, size_t srcSize, size_t size, size_t unit);

}  // namespace plim::pict
