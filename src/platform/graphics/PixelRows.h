// Row kernels of the drawing engine. Between reading and writing, a pixel is one 32-bit word
// 0xAARRGGBB with premultiplied colour (pixman's a8r8g8b8).
#pragma once

#include "platform/graphics/GraphicsTypes.h"

#include <cstddef>
#include <cstdint>

namespace plim::graphics {

// round(x / 255) for x in 0 ... 255 * 255, exactly.
inline uint32_t Div255(uint32_t x) {
    x += 128;
    return (x + (x >> 8)) >> 8;
}

// Reads n pixels of a row starting at pixel x into premultiplied words. Grey g reads as
// (g, g, g); non-premultiplied colour becomes round(C * A / 255).
using FetchRow = void (*)(const uint8_t *row, size_t x, size_t n, uint32_t *out);
FetchRow FetchFor(Layout layout, CGImageAlphaInfo alpha);

// Draws n premultiplied words source-over onto a destination row. Layouts without alpha are
// drawn onto as opaque (so a transparent source over fresh zero memory gives its colour over
// black); grey takes the luminance; alpha-only takes alpha alone.
using BlendRow = void (*)(const uint32_t *src, size_t n, uint8_t *dst);
BlendRow BlendFor(Layout layout, CGImageAlphaInfo alpha);

// Reads n pixels from pixel x of a source row and draws them onto a destination row in one
// pass, with the bytes of FetchFor followed by BlendFor. Null where there is no such row for
// the pair of layouts; callers then fetch and blend. With `ontoZero` the row draws as onto zero
// bytes without reading the destination, whatever it holds.
using ConvertRow = void (*)(const uint8_t *row, size_t x, size_t n, uint8_t *dst);
ConvertRow ConvertFor(Layout source, CGImageAlphaInfo sourceAlpha, Layout dest,
                      CGImageAlphaInfo destAlpha, bool ontoZero = false);

// The per-pixel rows that the selectors above speed up with SIMD where they can; the two must
// give the same bytes.
FetchRow ScalarFetchFor(Layout layout, CGImageAlphaInfo alpha);
BlendRow ScalarBlendFor(Layout layout, CGImageAlphaInfo alpha);

// Premultiplies straight-alpha words in place.
void PremultiplyWords(uint32_t *words, size_t n);

// Expands n 1-bit grey pixels from pixel x into bytes 0 or 255.
void ExpandGrey1(const uint8_t *row, size_t x, size_t n, uint8_t *out);

}  // namespace plim::graphics
