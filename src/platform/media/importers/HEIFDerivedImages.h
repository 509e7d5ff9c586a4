// Whether the derived images (grids, overlays, identities) of a HEIF file are safe to decode:
// each declared canvas within the decoding pixel limit, no derivation leading back to itself or
// nesting absurdly deep. False too when a grid's or overlay's description cannot be read.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plim::media {

bool HEIFDerivedImagesAcceptable(const uint8_t *data, size_t size);

}  // namespace plim::media
