// Row kernels of the resampling engines (Resample.h), one set per instruction set. Pixels are
// four bytes; sums and interpolated rows hold four 16-bit lanes a pixel.
#pragma once

#include "platform/graphics/Resample.h"

#include <cstddef>
#include <cstdint>

namespace plim::graphics {

struct ResampleRows {
    // out[i] = rounded mean of pixels 2i and 2i + 1 of the two rows.
    void (*box2x2)(const uint8_t *top, const uint8_t *bottom, size_t n, uint8_t *out);
    // sums[k] = sum of byte k of `rows` rows, for `lanes` bytes.
    void (*sumColumns)(const uint8_t *first, size_t bytesPerRow, size_t rows, size_t lanes,
                       uint16_t *sums);
    // out[i] = (sum of the kx pixels of sums from pixel kx i, plus divisor / 2) / divisor.
    void (*averageBlocks)(const uint16_t *sums, size_t kx, uint32_t divisor, size_t n,
                          uint8_t *out);
    // across[i] = row[left[i]] (128 - w) + row[left[i] + 1] w for columns [i0, i1), with the
    // weights in the forms of BilinearResampler.
    void (*interpolateAcross)(const uint8_t *row, const uint32_t *left, const uint8_t *byteWeights,
                              const uint16_t *shortWeights, size_t i0, size_t i1,
                              uint16_t *across);
    // out = (top (128 - w) + bottom w) >> 14, for n pixels.
    void (*interpolateDown)(const uint16_t *top, const uint16_t *bottom, unsigned w, size_t n,
                            uint8_t *out);
};

// The kernels of `level`, or of the best level below it that this build and processor have.
const ResampleRows &ResampleRowsFor(VectorLevel level);

}  // namespace plim::graphics
