// PNG's row filters over bytes, both ways: undoing them when decoding, choosing and applying one
// per row when encoding.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plim::decoders {

enum PNGFilter : uint8_t { kFilterNone, kFilterSub, kFilterUp, kFilterAverage, kFilterPaeth, kFilterCount };

// Undoes filter `type` on the n bytes of `src` into `dst`; `prev` is the row above, unfiltered
// (zeros above the first row), and `bpp` the bytes of one pixel, 1 to 8. False for a type that
// is not a filter.
bool Unfilter(uint8_t type, const uint8_t *src, const uint8_t *prev, uint8_t *dst, size_t n, size_t bpp);

// Filters a row for writing: out[0] is the filter type, out[1 ... n] the filtered bytes. The type
// is the one whose bytes, read as signed, have the smallest sum of magnitudes (the first such
// in type order). `row` and `prev` (the row above, zeros above the first row) must each have
// 8 readable zero bytes before them.
void FilterRow(const uint8_t *row, const uint8_t *prev, uint8_t *out, size_t n, size_t bpp);

// The same one byte at a time: the definitions the rows above are tested against.
bool UnfilterReference(uint8_t type, const uint8_t *src, const uint8_t *prev, uint8_t *dst, size_t n, size_t bpp);
void FilterRowReference(const uint8_t *row, const uint8_t *prev, uint8_t *out, size_t n, size_t bpp);

}  // namespace plim::decoders
