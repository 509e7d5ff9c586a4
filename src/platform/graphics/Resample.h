// The drawing engine's own resampling filters, for pictures of 32-bit pixels whose four bytes
// are filtered alike (so any channel order, premultiplied): area averaging when reducing by
// whole factors, and bilinear interpolation when enlarging. Each filter has a plain per-pixel
// definition (the Reference rows) and a fast row-by-row engine that must give the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace plim::graphics {

struct Pixels32 {
    const uint8_t *data;
    size_t bytesPerRow;
    size_t width, height;
};

// Area averaging by whole factors: destination pixel (i, j) is the mean of the kx x ky block
// of source pixels whose top-left pixel is (x + kx i, y + ky j), rounded half up. The blocks
// lie inside the source.
struct BoxGeometry {
    size_t kx, ky, x, y;
};

// Bilinear interpolation in 16.16 fixed point: destination pixel (i, j) is interpolated at
// source position (x + dx i, y + dy j), measured from the centre of source pixel (0, 0). Each
// position takes 7-bit weights (its fraction's top bits), pixels beyond the edge repeat the
// edge pixel, and the weighted sum of 2^14 is truncated: the arithmetic of pixman's bilinear
// filter, so that the picture does not depend on which of the two drew it.
struct BilinearGeometry {
    int64_t x, dx, y, dy;
};

// Instruction sets the row engines can use; the best one the processor has is the default.
enum class VectorLevel { None, SSE2, AVX2 };
VectorLevel BestVectorLevel();

// The filters' definitions, one destination row of `width` pixels at a time.
void ReferenceBoxRow(const Pixels32 &source, const BoxGeometry &g, size_t j, size_t width,
                     uint8_t *out);
void ReferenceBilinearRow(const Pixels32 &source, const BilinearGeometry &g, size_t j,
                          size_t width, uint8_t *out);

// Whether the engines take the geometry: box factors whose sums fit their 16- and 32-bit
// lanes, and bilinear positions that fit pixman's 16.16 coordinates.
bool BoxFits(const Pixels32 &source, const BoxGeometry &g, size_t width, size_t height);
bool BilinearFits(const Pixels32 &source, const BilinearGeometry &g, size_t width,
                  size_t height);

class BoxReducer {
public:
    BoxReducer(const Pixels32 &source, const BoxGeometry &g, size_t width,
               VectorLevel level = BestVectorLevel());
    void Row(size_t j, uint8_t *out);

private:
    Pixels32 source_;
    BoxGeometry g_;
    size_t width_;
    VectorLevel level_;
    std::vector<uint16_t> columnSums_;  // one block row summed down, 4 lanes a pixel
};

// Rows are made from horizontally interpolated source rows, of which the last two are kept,
// so asking for rows in order interpolates each source row across once.
class BilinearResampler {
public:
    BilinearResampler(const Pixels32 &source, const BilinearGeometry &g, size_t width,
                      VectorLevel level = BestVectorLevel());
    void Row(size_t j, uint8_t *out);

private:
    const uint16_t *Across(size_t sourceRow);

    Pixels32 source_;
    BilinearGeometry g_;
    size_t width_;
    VectorLevel level_;
    // Per destination column: the left source pixel (clamped to the row), and the columns
    // [inner0, inner1) whose two pixels are both inside the row.
    std::vector<uint32_t> left_;
    size_t inner0_ = 0, inner1_ = 0;
    std::vector<uint8_t> byteWeights_;    // (127 - w, w) four times a column
    std::vector<uint16_t> shortWeights_;  // (128 - w) four times, then w four times
    std::vector<uint16_t> across_[2];     // 4 lanes a pixel: left (128 - w) + right w
    size_t acrossRow_[2] = {SIZE_MAX, SIZE_MAX};
    size_t nextSlot_ = 0;
};

}  // namespace plim::graphics
