// Premultiplication of four-byte pixels in place, each colour byte becoming round(C * A / 255):
// the one kernel behind the public buffer functions and the importers' drawing.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plim::graphics {

// `count` pixels with alpha in byte 0 (A,R,G,B) or in byte 3 (R,G,B,A).
void PremultiplyAlphaFirst(uint8_t *pixels, size_t count);
void PremultiplyAlphaLast(uint8_t *pixels, size_t count);

}  // namespace plim::graphics
